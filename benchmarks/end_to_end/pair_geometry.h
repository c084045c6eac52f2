// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace marlo::bench {

/// Points of two photographs, pixel centres at integers; first[i] belongs to second[i].
struct PointPairs {
    std::vector<cv::Point2f> first;
    std::vector<cv::Point2f> second;
};

/// What is known of how two photographs of one scene lie to each other.
class PairGeometry {
public:
    static constexpr double kMostError = 10.0;  ///< pixels; what errors count for at most

    virtual ~PairGeometry() = default;
    /// Which pairs of points are within 3 pixels of what is known.
    [[nodiscard]] virtual std::vector<bool> confirmed(const PointPairs& pairs) const = 0;
    /// How far the geometry that a robust estimate makes of `matches` is from the known one, in
    /// pixels: the mean over points all over the image. Every point counts kMostError at most, and
    /// all do if there is no estimate.
    [[nodiscard]] virtual double errorOfEstimate(const PointPairs& matches) const = 0;

protected:
    PairGeometry() = default;
    PairGeometry(const PairGeometry&) = default;
    PairGeometry& operator=(const PairGeometry&) = default;
};

/// A flat or far scene with a known homography, a file of 3 x 3 numbers that map points (x, y, 1)
/// of the first photograph to the second. The points are the middles of 20 x 20 cells of the first
/// that lie in the second, too; the distances are those in the second.
/// @throws std::runtime_error if the file cannot be read.
std::unique_ptr<PairGeometry> knownHomography(const std::string& path, const cv::Size& first,
                                              const cv::Size& second);

/// Any scene, with the fundamental matrix that a robust estimate makes of `matches`, as many as
/// there are. The points are those of its inliers, one of each of 20 x 20 cells of the first
/// photograph; the distances are those to the epipolar lines, the larger of both photographs.
/// @throws std::runtime_error if there is no estimate.
std::unique_ptr<PairGeometry> epipolarReference(const PointPairs& matches, const cv::Size& first);

}  // namespace marlo::bench
