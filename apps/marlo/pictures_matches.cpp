// SPDX-License-Identifier: BSD-3-Clause
#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "marlo/picture_tools.h"
#include "marlo/pictures.h"

namespace marlo::app {
namespace {

constexpr int kGap = 8;  // pixels between the photographs
const cv::Scalar kOutline(0, 0, 0);
const cv::Scalar kUnverified(70, 70, 235);  // red, which the colours of scores do not have

struct Line {
    Eigen::Index match = 0;
    float score = 0.0F;
    bool verified = false;
};

void check(const std::vector<Keypoint>& first, const std::vector<Keypoint>& second,
           const MatchList& matches, const std::vector<float>& scores) {
    if (scores.size() != static_cast<std::size_t>(matches.rows())) {
        throw std::invalid_argument("a picture of matches needs a score for each of them");
    }
    for (Eigen::Index i = 0; i < matches.rows(); ++i) {
        if (matches(i, 0) >= first.size() || matches(i, 1) >= second.size()) {
            throw std::invalid_argument("a match has an index beyond the keypoints");
        }
    }
}

// `mostLines` of the matches, spread evenly over the list; those that are to lie on top come last.
std::vector<Line> chosenLines(const MatchList& matches, const std::vector<float>& scores,
                              const MatchList& verified, std::size_t mostLines) {
    using Indices = std::pair<std::uint32_t, std::uint32_t>;
    std::vector<Indices> good;
    for (Eigen::Index i = 0; i < verified.rows(); ++i) {
        good.emplace_back(verified(i, 0), verified(i, 1));
    }
    std::sort(good.begin(), good.end());
    const std::size_t count = std::min(mostLines, scores.size());
    std::vector<Line> lines;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t position = i * scores.size() / count;
        const auto match = static_cast<Eigen::Index>(position);
        const Indices indices(matches(match, 0), matches(match, 1));
        lines.push_back(
            {match, scores[position], std::binary_search(good.begin(), good.end(), indices)});
    }
    std::stable_sort(lines.begin(), lines.end(), [](const Line& a, const Line& b) {
        return std::tie(a.verified, a.score) < std::tie(b.verified, b.score);
    });
    return lines;
}

// Scores from the lowest to the highest become colours from the first to the last.
class ScoreColours {
public:
    explicit ScoreColours(const std::vector<float>& scores) {
        if (scores.empty()) return;
        const auto [lowest, highest] = std::minmax_element(scores.begin(), scores.end());
        lowest_ = *lowest;
        highest_ = *highest;
    }

    [[nodiscard]] cv::Scalar operator()(float score) const {
        const float range = highest_ - lowest_;
        const float place = range > 0.0F ? (score - lowest_) / range : 1.0F;
        const float inside = std::fmin(1.0F, std::fmax(0.0F, place));
        return colours_.at<cv::Vec3b>(static_cast<int>(std::lround(255.0F * inside)));
    }

    // The bar between the scores at its ends, or the one score that all have.
    [[nodiscard]] std::vector<StripItem> legend(const std::string& title) const {
        if (!(lowest_ < highest_)) {
            return {StripText{title + decimals(highest_)}, StripBar{colours_.col(255)}};
        }
        return {StripText{title + decimals(lowest_)}, StripBar{colours_},
                StripText{decimals(highest_)}};
    }

private:
    static std::string decimals(float score) {
        return cv::format("%.2f", static_cast<double>(score));
    }

    cv::Mat colours_ = uniformColours();
    float lowest_ = 0.0F;
    float highest_ = 0.0F;
};

struct Stroke {
    cv::Point begin;
    cv::Point end;
    cv::Scalar colour;
    int width = 1;
    bool outlined = false;
};

void drawLine(cv::Mat& picture, const Stroke& stroke) {
    const auto line = [&](const cv::Scalar& colour, int width) {
        cv::line(picture, stroke.begin, stroke.end, colour, width, cv::LINE_AA, kSubPixelBits);
    };
    if (stroke.outlined) line(kOutline, stroke.width + 2);
    line(stroke.colour, stroke.width);
}

void drawEnds(cv::Mat& picture, const Stroke& stroke) {
    const auto dot = [&](const cv::Point& centre, const cv::Scalar& colour, double radius) {
        cv::circle(picture, centre, subPixel(radius, 0).x, colour, cv::FILLED, cv::LINE_AA,
                   kSubPixelBits);
    };
    for (const cv::Point& centre : {stroke.begin, stroke.end}) {
        if (stroke.outlined) dot(centre, kOutline, stroke.width + 2.0);
        dot(centre, stroke.colour, stroke.width + 1.0);
    }
}

// Lines let the photographs shine through, their ends do not.
void draw(cv::Mat& picture, const std::vector<Stroke>& strokes) {
    constexpr double kStrength = 0.8;
    cv::Mat lines = picture.clone();
    for (const Stroke& stroke : strokes) drawLine(lines, stroke);
    cv::addWeighted(lines, kStrength, picture, 1.0 - kStrength, 0.0, picture);
    for (const Stroke& stroke : strokes) drawEnds(picture, stroke);
}

std::vector<std::vector<StripItem>> legend(const std::string& caption, const ScoreColours& colours,
                                           bool anyVerified, int width) {
    std::vector<StripItem> meaning =
        colours.legend(anyVerified ? "verified, by score: " : "score: ");
    if (anyVerified) {
        meaning.emplace_back(StripLine{kUnverified, width});
        meaning.emplace_back(StripText{"not verified"});
    }
    return {{StripText{caption}}, std::move(meaning)};
}

}  // namespace

std::string matchesCaption(std::size_t matches, std::size_t verified, std::size_t lines) {
    std::string caption = std::to_string(matches) + (matches == 1 ? " match, " : " matches, ") +
                          std::to_string(verified) + " verified";
    if (matches > 0) caption += " (" + std::to_string(100 * verified / matches) + " %)";
    if (lines < matches) caption += "; " + std::to_string(lines) + " of them drawn, evenly chosen";
    return caption;
}

cv::Mat drawMatches(const cv::Mat& first, const cv::Mat& second,
                    const std::vector<Keypoint>& firstKeypoints,
                    const std::vector<Keypoint>& secondKeypoints, const MatchList& matches,
                    const std::vector<float>& scores, const MatchList& verified,
                    std::size_t mostLines, int longestSide) {
    checkPhotograph(first);
    checkPhotograph(second);
    check(firstKeypoints, secondKeypoints, matches, scores);
    constexpr int kRows = 2;
    const cv::Size both(first.cols + second.cols, std::max(first.rows, second.rows));
    const double factor =
        std::min(reduction({both.width, 1}, longestSide - kGap),
                 reduction({1, both.height}, longestSide - stripHeight(longestSide, kRows)));
    const cv::Mat left = resized(first, factor);
    const cv::Mat right = resized(second, factor);
    const int offset = left.cols + kGap;
    cv::Mat picture(std::max(left.rows, right.rows), offset + right.cols, CV_8UC3, kStripGround);
    left.copyTo(picture(cv::Rect({0, 0}, left.size())));
    right.copyTo(picture(cv::Rect({offset, 0}, right.size())));

    const std::vector<Keypoint> from = scaledKeypoints(firstKeypoints, factor);
    std::vector<Keypoint> to = scaledKeypoints(secondKeypoints, factor);
    for (Keypoint& keypoint : to) keypoint.x += static_cast<float>(offset);
    const ScoreColours colours(scores);
    const int thin = lineWidth(picture);
    const bool anyVerified = verified.rows() > 0;
    std::vector<Stroke> strokes;
    for (const Line& line : chosenLines(matches, scores, verified, mostLines)) {
        const Keypoint& begin = from[matches(line.match, 0)];
        const Keypoint& end = to[matches(line.match, 1)];
        const bool scored = line.verified || !anyVerified;
        strokes.push_back({subPixel(begin.x, begin.y), subPixel(end.x, end.y),
                           scored ? colours(line.score) : kUnverified,
                           line.verified ? thin + 1 : thin, line.verified});
    }
    draw(picture, strokes);
    const std::string caption =
        matchesCaption(scores.size(), static_cast<std::size_t>(verified.rows()), strokes.size());
    return withStrip(picture, legend(caption, colours, anyVerified, thin));
}

}  // namespace marlo::app
