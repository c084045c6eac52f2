// SPDX-License-Identifier: BSD-3-Clause
// What the spherical transform brings: features of a panorama matched with those of the same
// panorama turned by known angles, by latitude and across the seam, with and without it.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "libfeatures/base/features_controller.h"
#include "libfeatures/base/registration.h"
#include "libfeatures/matchers/desc_matcher_dist_frac_mutual.h"

namespace marlo::bench {
namespace {

constexpr const char* kUsage =
    "usage: panorama_bench PANORAMA...\n"
    "Prints how features of each panorama match with those of the panorama turned by known "
    "angles.\n";

constexpr int kKeypoints = 8000;
constexpr double kMostError = 2.0;   // pixels at the equator
constexpr double kSeamWidth = 0.01;  // of the panorama's width, on either side
constexpr float kRatio = 0.8F;
constexpr unsigned kMostBits = 50;
constexpr float kMostDistance = 1000000.0F;

// A turn of the whole sphere: maps directions of the turned panorama to those of the original.
struct Turn {
    const char* name;
    double degrees;
    bool overPole;  // else along the equator
};

constexpr Turn kTurns[] = {{"90 degrees along the equator", 90.0, false},
                           {"60 degrees over the pole", 60.0, true},
                           {"90 degrees over the pole", 90.0, true}};

cv::Matx33d matrixOf(const Turn& turn) {
    const double angle = turn.degrees * std::numbers::pi / 180.0;
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    if (turn.overPole) return {1, 0, 0, 0, c, -s, 0, s, c};
    return {c, 0, s, 0, 1, 0, -s, 0, c};
}

cv::Vec3d direction(double x, double y, const cv::Size& size) {
    const double longitude = (2.0 * x / size.width - 1.0) * std::numbers::pi;
    const double latitude = (y / size.height - 0.5) * std::numbers::pi;
    return {std::sin(longitude) * std::cos(latitude), std::sin(latitude),
            std::cos(longitude) * std::cos(latitude)};
}

cv::Point2d position(const cv::Vec3d& d, const cv::Size& size) {
    const double longitude = std::atan2(d[0], d[2]);
    const double latitude = std::asin(std::clamp(d[1], -1.0, 1.0));
    return {(longitude / std::numbers::pi + 1.0) * 0.5 * size.width,
            (latitude / std::numbers::pi + 0.5) * size.height};
}

FloatImage turned(const FloatImage& panorama, const cv::Matx33d& turn) {
    const cv::Size size(static_cast<int>(panorama.cols()), static_cast<int>(panorama.rows()));
    cv::Mat map(size, CV_32FC2);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            map.at<cv::Point2f>(y, x) = position(turn * direction(x, y, size), size);
        }
    }
    const cv::Mat from(size, CV_32F, const_cast<float*>(panorama.data()));
    FloatImage image(size.height, size.width);
    cv::Mat to(size, CV_32F, image.data());
    cv::remap(from, to, map, {}, cv::INTER_CUBIC, cv::BORDER_WRAP);
    return image;
}

struct Described {
    std::vector<Keypoint> keypoints;
    DescMat rows;
};

Described describe(const FloatImage& panorama, const QString& kind, const QString& transform) {
    FeaturesController controller(kind, kind, QStringLiteral("TOP"), transform);
    controller.setFeatureSetParams(1.0, static_cast<int>(panorama.rows()),
                                   static_cast<int>(panorama.cols()), kKeypoints);
    Described described;
    controller.process(panorama, described.keypoints, described.rows);
    return described;
}

struct Band {
    const char* name;
    std::size_t keypoints = 0;
    std::size_t matches = 0;
    std::size_t correct = 0;
};

enum BandIndex { kEquator, kMiddle, kPole, kSeam, kAll };

// Every keypoint counts in its latitude's band, in that of the seam if it lies there in either
// panorama, and among all.
using Bands = std::array<Band, 5>;

Bands judged(const Described& first, const Described& second, const cv::Matx33d& turn,
             const cv::Size& size) {
    Bands bands{{{"0 to 30 degrees"}, {"30 to 60"}, {"60 to 90"}, {"across the seam"}, {"all"}}};
    const cv::Matx33d toSecond = turn.t();
    const auto isOnSeam = [&](double x) {
        return x < kSeamWidth * size.width || x > (1.0 - kSeamWidth) * size.width;
    };
    std::vector<std::array<bool, 5>> in(first.keypoints.size());
    for (std::size_t i = 0; i < in.size(); ++i) {
        const auto x = static_cast<double>(first.keypoints[i].x);
        const auto y = static_cast<double>(first.keypoints[i].y);
        const double latitude = std::abs(y / size.height - 0.5) * 180.0;
        const cv::Point2d there = position(toSecond * direction(x, y, size), size);
        in[i] = {latitude < 30.0, latitude >= 30.0 && latitude < 60.0, latitude >= 60.0,
                 isOnSeam(x) || isOnSeam(there.x), true};
        for (std::size_t b = 0; b < bands.size(); ++b) bands[b].keypoints += in[i][b] ? 1 : 0;
    }
    DescMatcherDistFracMutual matcher;
    matcher.setParams(kMostBits, kRatio);
    matcher.setParams(kMostDistance, kRatio);
    const double mostAngle = kMostError * std::numbers::pi / size.height;
    for (const DMatch& match : matcher.match(first.rows, second.rows)) {
        const auto query = static_cast<std::size_t>(match.queryIndex);
        const Keypoint& a = first.keypoints[query];
        const Keypoint& b = second.keypoints[static_cast<std::size_t>(match.trainIndex)];
        const cv::Vec3d expected =
            toSecond * direction(static_cast<double>(a.x), static_cast<double>(a.y), size);
        const cv::Vec3d found = direction(static_cast<double>(b.x), static_cast<double>(b.y), size);
        const bool isCorrect = cv::norm(expected - found) < mostAngle;
        for (std::size_t i = 0; i < bands.size(); ++i) {
            if (!in[query][i]) continue;
            ++bands[i].matches;
            bands[i].correct += isCorrect ? 1 : 0;
        }
    }
    return bands;
}

double percent(std::size_t part, std::size_t whole) {
    return whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

void printRow(const Band& plain, const Band& spherical) {
    std::printf("| %s | %zu | %zu | %.1f %% | %.1f %% | %zu | %zu | %.1f %% | %.1f %% | %s |\n",
                plain.name, plain.keypoints, plain.correct, percent(plain.correct, plain.matches),
                percent(plain.correct, plain.keypoints), spherical.keypoints, spherical.correct,
                percent(spherical.correct, spherical.matches),
                percent(spherical.correct, spherical.keypoints),
                plain.correct == 0 ? "-"
                                   : cv::format("%.2f", static_cast<double>(spherical.correct) /
                                                            static_cast<double>(plain.correct))
                                         .c_str());
}

void compare(const FloatImage& panorama, const QString& kind) {
    const cv::Size size(static_cast<int>(panorama.cols()), static_cast<int>(panorama.rows()));
    const QString transforms[] = {QStringLiteral("Default"), QStringLiteral("Spherical")};
    const Described originals[] = {describe(panorama, kind, transforms[0]),
                                   describe(panorama, kind, transforms[1])};
    for (const Turn& turn : kTurns) {
        const cv::Matx33d matrix = matrixOf(turn);
        const FloatImage other = turned(panorama, matrix);
        Bands bands[2];
        for (std::size_t i = 0; i < 2; ++i) {
            bands[i] = judged(originals[i], describe(other, kind, transforms[i]), matrix, size);
        }
        std::printf(
            "\n%s, turned by %s; without, with the transform, ratio of correct matches:\n\n",
            kind.toUtf8().constData(), turn.name);
        std::printf(
            "| latitude | keypoints | correct | of matches | of keypoints | keypoints | correct | "
            "of matches | of keypoints | ratio |\n|---|---|---|---|---|---|---|---|---|---|\n");
        for (std::size_t b = 0; b < bands[0].size(); ++b) printRow(bands[0][b], bands[1][b]);
    }
}

int run(int argc, char** argv) {
    if (argc < 2 || argv[1][0] == '-') {
        std::fputs(kUsage, stderr);
        return 2;
    }
    registerMainFeatureDetectors();
    registerMainDescriptorExtractors();
    registerMainKeypointSelectors();
    registerMainTransforms();
    for (int i = 1; i < argc; ++i) {
        cv::Mat grey = cv::imread(argv[i], cv::IMREAD_GRAYSCALE);
        if (grey.empty() || grey.cols != 2 * grey.rows) {
            std::fprintf(stderr, "%s: not a readable full panorama\n", argv[i]);
            return 1;
        }
        FloatImage panorama(grey.rows, grey.cols);
        cv::Mat floats(grey.size(), CV_32F, panorama.data());
        grey.convertTo(floats, CV_32F, 1.0 / 255.0);
        std::printf("\n## %s, %d x %d\n", argv[i], grey.cols, grey.rows);
        for (const char* kind : {"SIFT", "LDAH"}) compare(panorama, QString::fromLatin1(kind));
    }
    return 0;
}

}  // namespace
}  // namespace marlo::bench

int main(int argc, char** argv) {
    return marlo::bench::run(argc, argv);
}
