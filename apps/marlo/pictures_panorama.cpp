// SPDX-License-Identifier: BSD-3-Clause
#include <algorithm>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <vector>

#include "libfeatures/transforms/spherical_layout.h"
#include "libfeatures/transforms/spherical_transform.h"
#include "marlo/picture_tools.h"
#include "marlo/pictures.h"

namespace marlo::app {
namespace {

constexpr double kDark = 0.35;  // of the brightness, where nothing is kept
constexpr int kGap = 12;        // between the two images, in pixels
const cv::Scalar kOutline(60, 245, 255);

cv::Mat workingImage(const cv::Mat& panorama) {
    SphericalTransform transform;
    std::vector<cv::Mat> channels;
    cv::split(panorama, channels);
    for (cv::Mat& channel : channels) {
        ByteImage plane(channel.rows, channel.cols);
        channel.copyTo(cv::Mat(channel.size(), CV_8UC1, plane.data()));
        const ByteImage& working = transform.transformImage(plane);
        channel.create(static_cast<int>(working.rows()), static_cast<int>(working.cols()), CV_8UC1);
        std::copy_n(working.data(), working.size(), channel.data);
    }
    cv::Mat working;
    cv::merge(channels, working);
    return working;
}

// What of the working image belongs to its band and to its discs: filled, or as lines.
void drawZones(cv::Mat& image, const SphericalLayout& layout, const cv::Scalar& colour,
               int thickness) {
    cv::rectangle(
        image,
        cv::Rect(layout.margin, layout.margin, layout.width, layout.bandRows - 2 * layout.margin),
        colour, thickness);
    for (const int col : {layout.northCentreCol, layout.southCentreCol}) {
        cv::circle(image, subPixel(col, layout.discCentreRow), subPixel(layout.keptRadius, 0).x,
                   colour, thickness, cv::LINE_AA, kSubPixelBits);
    }
}

// The picture is higher than wide: what its height leaves for the panorama's width.
int longestPanorama(const cv::Size& panorama, int longestSide) {
    constexpr int kRounding = 2;  // pixels, of the heights of both images
    const SphericalLayout layout(panorama.width, panorama.height);
    const double share = static_cast<double>(panorama.width) / (panorama.height + layout.rows);
    return std::max(2, static_cast<int>(share * (longestSide - kGap - kRounding)));
}

}  // namespace

cv::Mat drawPanorama(const cv::Mat& photograph, const std::vector<Keypoint>& keypoints,
                     int longestSide) {
    checkPhotograph(photograph);
    if (photograph.cols != 2 * photograph.rows) {
        throw std::invalid_argument("a full panorama is twice as wide as high");
    }
    const cv::Mat upper =
        drawKeypoints(photograph, keypoints, longestPanorama(photograph.size(), longestSide));
    // Resizing may have rounded to another shape.
    cv::Mat panorama;
    const int height = upper.cols / 2;
    cv::resize(photograph, panorama, cv::Size(2 * height, height), 0.0, 0.0, cv::INTER_AREA);
    const SphericalLayout layout(2 * height, height);
    cv::Mat lower = workingImage(panorama);
    cv::Mat kept = cv::Mat::zeros(lower.size(), CV_8UC1);
    drawZones(kept, layout, cv::Scalar(255), cv::FILLED);
    cv::Mat dark = lower * kDark;
    lower.copyTo(dark, kept);
    drawZones(dark, layout, kOutline, lineWidth(dark));

    cv::Mat picture =
        cv::Mat::zeros(upper.rows + kGap + dark.rows, std::max(upper.cols, dark.cols), CV_8UC3);
    const auto place = [&](const cv::Mat& image, int row) {
        image.copyTo(
            picture(cv::Rect((picture.cols - image.cols) / 2, row, image.cols, image.rows)));
    };
    place(upper, 0);
    place(dark, upper.rows + kGap);
    return picture;
}

}  // namespace marlo::app
