// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>
#include <string>
#include <variant>
#include <vector>

namespace marlo::app {

/// What is around and below photographs: nearly black, so that they end visibly.
inline const cv::Scalar kStripGround(34, 30, 28);

struct StripText {
    std::string text;  ///< ASCII
};
/// A short piece of a line, as a sample.
struct StripLine {
    cv::Scalar colour;
    int width = 1;  ///< pixels
};
/// A bar of colours from left to right.
struct StripBar {
    cv::Mat colours;  ///< 1 x N, CV_8UC3
};
using StripItem = std::variant<StripText, StripLine, StripBar>;

/// The strip below a picture that says what is seen in it: `rows` of items from left to right,
/// light on dark. The letters are as large as the width calls for, and smaller where a row would
/// not fit. CV_8UC3, `width` pixels wide.
[[nodiscard]] cv::Mat drawStrip(int width, const std::vector<std::vector<StripItem>>& rows);

/// The rows of pixels that a strip of `rows` rows below a picture of that width needs at most.
[[nodiscard]] int stripHeight(int width, int rows);

}  // namespace marlo::app
