// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/picture_strip.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace marlo::app {
namespace {

constexpr int kFont = cv::FONT_HERSHEY_DUPLEX;
const cv::Scalar kInk(235, 235, 235);

// All lengths, in heights of a capital letter.
constexpr double kRowHeight = 2.0;
constexpr double kMargin = 0.8;
constexpr double kGap = 0.7;  // between the items of a row
constexpr double kLineLength = 3.0;
constexpr double kBarLength = 10.0;

double letterHeight(int width) {
    constexpr double kLettersAcross = 90.0;  // heights, in the width of the picture
    constexpr double kSmallest = 12.0;
    return std::max(kSmallest, width / kLettersAcross);
}

int rounded(double value) {
    return static_cast<int>(std::lround(value));
}

class Painter {
public:
    explicit Painter(double height)
        : height_(height),
          thickness_(std::max(1, rounded(height / 14.0))),
          fontScale_(height / 100.0 * cv::getFontScaleFromHeight(kFont, 100)) {}

    [[nodiscard]] double width(const StripItem& item) const {
        if (const auto* text = std::get_if<StripText>(&item)) {
            int baseline = 0;
            return cv::getTextSize(text->text, kFont, fontScale_, thickness_, &baseline).width;
        }
        return height_ * (std::holds_alternative<StripLine>(item) ? kLineLength : kBarLength);
    }

    [[nodiscard]] double width(const std::vector<StripItem>& row) const {
        double sum = 2 * kMargin * height_;
        for (const StripItem& item : row) sum += width(item) + kGap * height_;
        return sum;
    }

    // `middle`: the row of pixels that letters stand around.
    void draw(cv::Mat& strip, const std::vector<StripItem>& row, double middle) const {
        double x = kMargin * height_;
        for (const StripItem& item : row) {
            const double end = x + width(item);
            std::visit([&](const auto& what) { draw(strip, what, x, end, middle); }, item);
            x = end + kGap * height_;
        }
    }

private:
    void draw(cv::Mat& strip, const StripText& item, double x, double, double middle) const {
        const cv::Point corner(rounded(x), rounded(middle + height_ / 2));
        cv::putText(strip, item.text, corner, kFont, fontScale_, kInk, thickness_, cv::LINE_AA);
    }

    static void draw(cv::Mat& strip, const StripLine& item, double x, double end, double middle) {
        cv::line(strip, {rounded(x), rounded(middle)}, {rounded(end), rounded(middle)}, item.colour,
                 item.width);
    }

    void draw(cv::Mat& strip, const StripBar& item, double x, double end, double middle) const {
        const cv::Rect place(rounded(x), rounded(middle - height_ / 2), rounded(end - x),
                             rounded(height_));
        const cv::Rect inside = place & cv::Rect({}, strip.size());
        if (inside != place) return;
        cv::resize(item.colours, strip(place), place.size(), 0, 0, cv::INTER_LINEAR);
    }

    double height_;
    int thickness_;
    double fontScale_;
};

}  // namespace

int stripHeight(int width, int rows) {
    return rounded(letterHeight(width) * (kRowHeight * rows + kMargin));
}

cv::Mat drawStrip(int width, const std::vector<std::vector<StripItem>>& rows) {
    double height = letterHeight(width);
    double widest = 0.0;
    for (const auto& row : rows) widest = std::max(widest, Painter(height).width(row));
    if (widest > width) height *= width / widest;
    const Painter painter(height);
    cv::Mat strip(stripHeight(width, static_cast<int>(rows.size())), width, CV_8UC3, kStripGround);
    const double rowHeight = (strip.rows - kMargin * height) / static_cast<double>(rows.size());
    double middle = kMargin * height / 2 + rowHeight / 2;
    for (const auto& row : rows) {
        painter.draw(strip, row, middle);
        middle += rowHeight;
    }
    return strip;
}

}  // namespace marlo::app
