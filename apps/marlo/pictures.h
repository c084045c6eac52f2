// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "libfeatures/base/coverage.h"
#include "libfeatures/base/keypoint.h"
#include "marlo/project.h"

namespace marlo::app {

// Pictures for people. Photographs are 8-bit with three channels in OpenCV's order (CV_8UC3: blue,
// green, red), keypoints are in their pixels, centres at integers. A photograph that would make the
// picture larger than `longestSide` is reduced, and the keypoints with it; none is enlarged. The
// arguments stay as they are. All functions throw std::invalid_argument if a photograph is empty or
// of another type.

constexpr int kLongestPictureSide = 2400;  ///< pixels
constexpr double kCircleScales = 2.0;      ///< radius of a keypoint's circle, in its scales
constexpr double kSmallestCircle = 2.0;    ///< radius in pixels of the picture
constexpr int kCoverageCells = 20;         ///< of the grid that coverage is counted in, each way

/// The keypoints in a photograph that has been resized by `factor` with its outer edges kept, as
/// cv::resize does it: x becomes factor (x + 1/2) - 1/2, the scale `factor` times as large.
[[nodiscard]] std::vector<Keypoint> scaledKeypoints(const std::vector<Keypoint>& keypoints,
                                                    double factor);

/// The photograph with a circle for each keypoint, of kCircleScales times its scale and no smaller
/// than kSmallestCircle, and a line from the centre to the circle in the keypoint's direction.
/// Small circles lie on top of large ones.
[[nodiscard]] cv::Mat drawKeypoints(const cv::Mat& photograph,
                                    const std::vector<Keypoint>& keypoints,
                                    int longestSide = kLongestPictureSide);

/// Two photographs side by side, with a line from keypoint to keypoint for each match, and a strip
/// below that says how many there are and what the colours mean.
///
/// Matches that are in `verified`, too, have thick lines in the colour of their score, from violet
/// for the lowest of all scores to yellow for the highest; the others have thin red lines, and lie
/// below. If none is verified, all lines are thin and have the colours of their scores.
///
/// Of more than `mostLines` matches every n-th is drawn, so that the picture has `mostLines`, and
/// the strip says so.
/// @throws std::invalid_argument if there is not one score for each match, or if a match has an
///         index beyond the keypoints.
[[nodiscard]] cv::Mat drawMatches(const cv::Mat& first, const cv::Mat& second,
                                  const std::vector<Keypoint>& firstKeypoints,
                                  const std::vector<Keypoint>& secondKeypoints,
                                  const MatchList& matches, const std::vector<float>& scores,
                                  const MatchList& verified, std::size_t mostLines,
                                  int longestSide = kLongestPictureSide);

/// What the strip of drawMatches() says of the numbers.
[[nodiscard]] std::string matchesCaption(std::size_t matches, std::size_t verified,
                                         std::size_t lines);

/// The photograph in grey, coloured by how many keypoints there are around each place, and a strip
/// below with the colours' meaning and coverageCaption(). The number of keypoints is smoothed with
/// a Gaussian of 2 % of the longer side.
[[nodiscard]] cv::Mat drawCoverage(const cv::Mat& photograph,
                                   const std::vector<Keypoint>& keypoints,
                                   int longestSide = kLongestPictureSide);

/// A full panorama with its keypoints, and below it the working image that they were found in: what
/// belongs to the band and to the two discs is bright and has an outline, what is shown a second
/// time or nothing at all is dark. No side of the whole picture is longer than `longestSide`.
/// @throws std::invalid_argument if the photograph is not twice as wide as high.
[[nodiscard]] cv::Mat drawPanorama(const cv::Mat& photograph,
                                   const std::vector<Keypoint>& keypoints,
                                   int longestSide = kLongestPictureSide);

/// coverage() of a photograph, counted in kCoverageCells.
[[nodiscard]] Coverage photographCoverage(const cv::Mat& photograph,
                                          const std::vector<Keypoint>& keypoints);

/// "N keypoints, occupied cells of a 20 x 20 grid: P %, nearest-neighbour ratio: R", P rounded, R
/// with two decimals.
[[nodiscard]] std::string coverageCaption(std::size_t keypoints, const Coverage& measured);

}  // namespace marlo::app
