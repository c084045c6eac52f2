// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/working_image.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <utility>

namespace marlo::app {
namespace {

double scaleFor(int longer, const WorkingImageOptions& options) {
    if (options.longestSide > 0 && longer > options.longestSide) {
        return static_cast<double>(options.longestSide) / longer;
    }
    return longer < options.enlargeBelow ? 2.0 : 1.0;
}

int scaled(double scale, int size) {
    return static_cast<int>(std::max(1L, std::lround(scale * size)));
}

FloatImage resized(FloatImage& grey, int rows, int cols) {
    FloatImage image(rows, cols);
    const cv::Mat from(static_cast<int>(grey.rows()), static_cast<int>(grey.cols()), CV_32F,
                       grey.data());
    cv::Mat to(rows, cols, CV_32F, image.data());
    // One side may be too short to become shorter.
    const bool isSmaller = rows < grey.rows() || cols < grey.cols();
    cv::resize(from, to, to.size(), 0.0, 0.0, isSmaller ? cv::INTER_AREA : cv::INTER_LINEAR);
    return image;
}

}  // namespace

WorkingImage::WorkingImage(FloatImage&& grey, const WorkingImageOptions& options)
    : photographRows_(static_cast<int>(grey.rows())),
      photographCols_(static_cast<int>(grey.cols())) {
    if (options.isPanorama) layout_.emplace(photographCols_, photographRows_);  // checks the shape
    scale_ = scaleFor(std::max(photographRows_, photographCols_), options);
    if (scale_ == 1.0) {
        resized_ = std::move(grey);
    } else {
        int rows = scaled(scale_, photographRows_);
        int cols = scaled(scale_, photographCols_);
        if (options.isPanorama) {  // of the same shape, and no longer than asked for
            rows = std::max(1, cols / 2);
            cols = 2 * rows;
        }
        resized_ = resized(grey, rows, cols);
        xFactor_ = static_cast<double>(photographCols_) / cols;
        yFactor_ = static_cast<double>(photographRows_) / rows;
        // The zones of a panorama are known to the pixel.
        if (options.isPanorama) scale_ = 1.0 / xFactor_;
    }
    if (options.isPanorama) {
        layout_.emplace(static_cast<int>(resized_.cols()), static_cast<int>(resized_.rows()));
        image_ = &transform_.transformImage(resized_);
        resized_.resize(0, 0);
    }
}

int WorkingImage::height() const {
    if (!layout_) return photographRows_;
    return static_cast<int>(std::lround(static_cast<double>(image_->rows()) / scale_));
}

int WorkingImage::width() const {
    if (!layout_) return photographCols_;
    return static_cast<int>(std::lround(static_cast<double>(image_->cols()) / scale_));
}

void WorkingImage::keepOneOfEach(std::vector<Keypoint>& keypoints) {
    if (!layout_) return;
    std::vector<Keypoint> inPanorama;
    transform_.transformKeypointsBack(keypoints, keypoints, inPanorama, photographCols_,
                                      photographRows_);
}

// Resizing keeps the image's outer edges, so pixel centres move; and rounding makes the two sides
// differ a little. At the ends of a panorama this leads beyond them: there columns go on around it,
// and rows are at the pole.
cv::Point2d WorkingImage::inPhotograph(const Keypoint& keypoint) const {
    cv::Point2d point(static_cast<double>(keypoint.x) * scale_,
                      static_cast<double>(keypoint.y) * scale_);
    if (layout_) {
        const Eigen::Vector2d place = layout_->inPanorama(point.x, point.y);
        point = {place.x(), place.y()};
    }
    if (scale_ != 1.0) point = {(point.x + 0.5) * xFactor_ - 0.5, (point.y + 0.5) * yFactor_ - 0.5};
    if (layout_) {
        if (point.x < -0.5) point.x += photographCols_;
        if (point.x >= photographCols_ - 0.5) point.x -= photographCols_;
        point.y = std::clamp(point.y, 0.0, static_cast<double>(photographRows_));
    }
    return point;
}

}  // namespace marlo::app
