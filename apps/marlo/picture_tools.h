// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>
#include <vector>

#include "marlo/picture_strip.h"

// What the pictures have in common.
namespace marlo::app {

constexpr int kSubPixelBits = 4;  ///< OpenCV's `shift`: positions are in 1/16 pixels

/// A position in OpenCV's fixed-point numbers. What is not a number, or far away, is put outside of
/// every picture.
[[nodiscard]] cv::Point subPixel(double x, double y);

/// @throws std::invalid_argument unless it is an image of type CV_8UC3.
void checkPhotograph(const cv::Mat& photograph);

/// By what a picture of `size` is to be reduced so that no side is longer than `longestSide`; 1 for
/// pictures that are small enough.
[[nodiscard]] double reduction(const cv::Size& size, int longestSide);

/// A copy of the photograph, `factor` times as large, which is at most 1.
[[nodiscard]] cv::Mat resized(const cv::Mat& photograph, double factor);

/// Of thin lines in a picture of that size: 1 pixel, and more in large pictures.
[[nodiscard]] int lineWidth(const cv::Mat& picture);

/// 256 colours, 1 x 256, CV_8UC3, from violet to yellow; equal steps look equally large. They are
/// the part of OpenCV's viridis that is not too dark to be seen on a photograph.
[[nodiscard]] cv::Mat uniformColours();

/// The picture in the middle of the top, and a strip below that is at least so wide that it can be
/// read.
[[nodiscard]] cv::Mat withStrip(const cv::Mat& picture,
                                const std::vector<std::vector<StripItem>>& rows);

}  // namespace marlo::app
