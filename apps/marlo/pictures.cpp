// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/pictures.h"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "marlo/picture_tools.h"

namespace marlo::app {
namespace {

const cv::Scalar kOutline(0, 0, 0);
const cv::Scalar kCircle(60, 245, 255);  // a yellow that photographs rarely have

void drawKeypoint(cv::Mat& picture, const Keypoint& keypoint, const cv::Scalar& colour, int width) {
    const double radius = std::max(kSmallestCircle, kCircleScales * keypoint.scale);
    const cv::Point centre = subPixel(keypoint.x, keypoint.y);
    // y runs down, and the angle counter-clockwise.
    const cv::Point end = subPixel(keypoint.x + radius * std::cos(keypoint.angle),
                                   keypoint.y - radius * std::sin(keypoint.angle));
    cv::circle(picture, centre, subPixel(radius, 0).x, colour, width, cv::LINE_AA, kSubPixelBits);
    cv::line(picture, centre, end, colour, width, cv::LINE_AA, kSubPixelBits);
}

}  // namespace

std::vector<Keypoint> scaledKeypoints(const std::vector<Keypoint>& keypoints, double factor) {
    std::vector<Keypoint> scaled = keypoints;
    for (Keypoint& keypoint : scaled) {
        keypoint.x = static_cast<float>(factor * (keypoint.x + 0.5) - 0.5);
        keypoint.y = static_cast<float>(factor * (keypoint.y + 0.5) - 0.5);
        keypoint.scale = static_cast<float>(factor * keypoint.scale);
    }
    return scaled;
}

cv::Mat drawKeypoints(const cv::Mat& photograph, const std::vector<Keypoint>& keypoints,
                      int longestSide) {
    checkPhotograph(photograph);
    const double factor = reduction(photograph.size(), longestSide);
    cv::Mat picture = resized(photograph, factor);
    std::vector<Keypoint> drawn = scaledKeypoints(keypoints, factor);
    std::stable_sort(drawn.begin(), drawn.end(),
                     [](const Keypoint& a, const Keypoint& b) { return a.scale > b.scale; });
    const int width = lineWidth(picture);
    // A shade around the lines makes them visible on light ground, too.
    constexpr double kShade = 0.5;
    cv::Mat outlined = picture.clone();
    for (const Keypoint& keypoint : drawn) drawKeypoint(outlined, keypoint, kOutline, width + 2);
    cv::addWeighted(outlined, kShade, picture, 1.0 - kShade, 0.0, picture);
    for (const Keypoint& keypoint : drawn) drawKeypoint(picture, keypoint, kCircle, width);
    return picture;
}

}  // namespace marlo::app
