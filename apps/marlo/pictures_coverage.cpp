// SPDX-License-Identifier: BSD-3-Clause
#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "marlo/picture_tools.h"
#include "marlo/pictures.h"

namespace marlo::app {
namespace {

bool isInside(const Keypoint& keypoint, int rows, int cols) {
    return keypoint.x >= -0.5F && keypoint.x < static_cast<float>(cols) - 0.5F &&
           keypoint.y >= -0.5F && keypoint.y < static_cast<float>(rows) - 0.5F;
}

// Keypoints on 1 % of the picture's area, around each pixel.
cv::Mat density(const std::vector<Keypoint>& keypoints, const cv::Size& size) {
    constexpr double kSmoothing = 0.02;  // of the longer side
    cv::Mat counts = cv::Mat::zeros(size, CV_32FC1);
    for (const Keypoint& keypoint : keypoints) {
        if (!isInside(keypoint, size.height, size.width)) continue;
        counts.at<float>(static_cast<int>(std::floor(keypoint.y + 0.5F)),
                         static_cast<int>(std::floor(keypoint.x + 0.5F))) += 1.0F;
    }
    counts *= size.area() / 100.0;
    // Mirrored at the borders, so that nothing is lost there.
    cv::GaussianBlur(counts, counts, {},
                     std::max(1.0, kSmoothing * std::max(size.width, size.height)), 0,
                     cv::BORDER_REFLECT);
    return counts;
}

// In grey, with less contrast than it has: light and shadow must not be taken for few and many.
cv::Mat groundOf(const cv::Mat& photograph) {
    constexpr double kContrast = 0.55;
    constexpr double kBlack = 60.0;
    cv::Mat grey;
    cv::cvtColor(photograph, grey, cv::COLOR_BGR2GRAY);
    grey.convertTo(grey, CV_8UC1, kContrast, kBlack);
    cv::cvtColor(grey, grey, cv::COLOR_GRAY2BGR);
    return grey;
}

}  // namespace

Coverage photographCoverage(const cv::Mat& photograph, const std::vector<Keypoint>& keypoints) {
    checkPhotograph(photograph);
    return coverage(keypoints, photograph.cols, photograph.rows, kCoverageCells);
}

std::string coverageCaption(std::size_t keypoints, const Coverage& measured) {
    return cv::format(
        "%zu %s, occupied cells of a %d x %d grid: %.0f %%, "
        "nearest-neighbour ratio: %.2f",
        keypoints, keypoints == 1 ? "keypoint" : "keypoints", kCoverageCells, kCoverageCells,
        100.0 * measured.occupiedCells, measured.nearestNeighbourRatio);
}

cv::Mat drawCoverage(const cv::Mat& photograph, const std::vector<Keypoint>& keypoints,
                     int longestSide) {
    checkPhotograph(photograph);
    constexpr int kRows = 2;
    const double factor =
        std::min(reduction({photograph.cols, 1}, longestSide),
                 reduction({1, photograph.rows}, longestSide - stripHeight(longestSide, kRows)));
    cv::Mat picture = groundOf(resized(photograph, factor));
    const cv::Mat heat = density(scaledKeypoints(keypoints, factor), picture.size());
    double most = 0.0;
    cv::minMaxLoc(heat, nullptr, &most);
    const cv::Mat colours = uniformColours();
    cv::Mat levels;
    heat.convertTo(levels, CV_8UC1, most > 0.0 ? 255.0 / most : 0.0);
    cv::Mat coloured;
    cv::applyColorMap(levels, coloured, colours.t());
    constexpr double kHeat = 0.6;
    cv::addWeighted(picture, 1.0 - kHeat, coloured, kHeat, 0.0, picture);
    const std::string caption =
        coverageCaption(keypoints.size(), photographCoverage(photograph, keypoints));
    return withStrip(picture, {{StripText{caption}},
                               {StripText{"keypoints on 1 % of the area: 0"}, StripBar{colours},
                                StripText{cv::format("%.0f", most)}}});
}

}  // namespace marlo::app
