// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <opencv2/core/types.hpp>
#include <optional>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/transforms/spherical_layout.h"
#include "libfeatures/transforms/spherical_transform.h"
#include "support/image.h"

namespace marlo::app {

/// How a photograph is made ready for detection.
struct WorkingImageOptions {
    int longestSide = 0;   ///< larger photographs are made smaller; 0: none
    int enlargeBelow = 0;  ///< photographs with a longest side below this get twice the size
    /// It is a full panorama, twice as wide as high: seam and poles are undone.
    bool isPanorama = false;
};

/// What the detector works on in place of a photograph, and where that lies in the photograph.
/// Keypoints have the detector's units: pixels of the photograph in its size, apart from rounding.
class WorkingImage {
public:
    /// @throws std::invalid_argument for a panorama that is not twice as wide as high.
    WorkingImage(FloatImage&& grey, const WorkingImageOptions& options);
    WorkingImage(const WorkingImage&) = delete;
    WorkingImage& operator=(const WorkingImage&) = delete;

    [[nodiscard]] const FloatImage& image() const { return *image_; }
    [[nodiscard]] double scale() const { return scale_; }  ///< that the detector is told
    /// The size of the image in the detector's units.
    [[nodiscard]] int height() const;
    [[nodiscard]] int width() const;

    /// Leaves out what a panorama's working image shows a second time elsewhere.
    void keepOneOfEach(std::vector<Keypoint>& keypoints);

    /// In pixels of the photograph; of a panorama, x is in [-1/2, width - 1/2), where
    /// its columns are, and y in [0, height].
    [[nodiscard]] cv::Point2d inPhotograph(const Keypoint& keypoint) const;

private:
    int photographRows_;
    int photographCols_;
    double scale_ = 1.0;
    double xFactor_ = 1.0;  ///< from the resized photograph to the photograph
    double yFactor_ = 1.0;
    FloatImage resized_;
    SphericalTransform transform_;
    std::optional<SphericalLayout> layout_;  ///< of a panorama
    const FloatImage* image_ = &resized_;
};

}  // namespace marlo::app
