// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/picture_tools.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

namespace marlo::app {

cv::Point subPixel(double x, double y) {
    const auto fixed = [](double value) {
        constexpr double kUnit = 1 << kSubPixelBits;
        constexpr double kFar = 1e6;
        return static_cast<int>(std::lround(kUnit * std::fmin(kFar, std::fmax(-kFar, value))));
    };
    return {fixed(x), fixed(y)};
}

void checkPhotograph(const cv::Mat& photograph) {
    if (photograph.empty() || photograph.type() != CV_8UC3) {
        throw std::invalid_argument("a picture is made from an 8-bit photograph of three channels");
    }
}

double reduction(const cv::Size& size, int longestSide) {
    return std::min(1.0, static_cast<double>(longestSide) / std::max(size.width, size.height));
}

cv::Mat resized(const cv::Mat& photograph, double factor) {
    const cv::Size size(std::max(1, static_cast<int>(std::lround(factor * photograph.cols))),
                        std::max(1, static_cast<int>(std::lround(factor * photograph.rows))));
    if (size == photograph.size()) return photograph.clone();
    cv::Mat smaller;
    cv::resize(photograph, smaller, size, 0, 0, cv::INTER_AREA);
    return smaller;
}

int lineWidth(const cv::Mat& picture) {
    constexpr double kWidthsAcross = 1600.0;
    const double width = std::max(picture.rows, picture.cols) / kWidthsAcross;
    return std::max(1, static_cast<int>(std::lround(width)));
}

cv::Mat uniformColours() {
    constexpr int kDarkest = 40;
    cv::Mat levels(1, 256, CV_8UC1);
    for (int i = 0; i < 256; ++i) {
        levels.at<unsigned char>(i) =
            static_cast<unsigned char>(kDarkest + i * (255 - kDarkest) / 255);
    }
    cv::Mat colours;
    cv::applyColorMap(levels, colours, cv::COLORMAP_VIRIDIS);
    return colours;
}

cv::Mat withStrip(const cv::Mat& picture, const std::vector<std::vector<StripItem>>& rows) {
    constexpr int kNarrowest = 640;  // pixels
    const int width = std::max(picture.cols, kNarrowest);
    const cv::Mat strip = drawStrip(width, rows);
    cv::Mat whole(picture.rows + strip.rows, width, CV_8UC3, kStripGround);
    picture.copyTo(whole(cv::Rect((width - picture.cols) / 2, 0, picture.cols, picture.rows)));
    strip.copyTo(whole.rowRange(picture.rows, whole.rows));
    return whole;
}

}  // namespace marlo::app
