// SPDX-License-Identifier: BSD-3-Clause
#include <algorithm>
#include <cmath>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "end_to_end/sift_systems.h"
#include "utilities/timing.h"

namespace marlo::bench {
namespace {

constexpr double kNoEdgeTest = 1e9;
constexpr double kSigma = 1.6;

// A view of the same pixels. OpenCV's inputs are const, but its headers of matrices are not.
cv::Mat view(const ByteImage& image) {
    return {static_cast<int>(image.rows()), static_cast<int>(image.cols()), CV_8U,
            const_cast<unsigned char*>(image.data())};
}
cv::Mat view(const FloatImage& image) {
    return {static_cast<int>(image.rows()), static_cast<int>(image.cols()), CV_32F,
            const_cast<float*>(image.data())};
}

class OpenCvSift : public SiftSystem {
public:
    OpenCvSift(cv::Mat image, cv::Ptr<cv::SIFT> sift)
        : image_(std::move(image)), sift_(std::move(sift)) {}

    // Description has no call of its own that would not build the pyramid again; its time is that
    // of both steps together less that of detection.
    void run() override {
        times.record(Stage::Detect, secondsOf([&] { sift_->detect(image_, keypoints_); }));
        times.record(Stage::Whole, secondsOf([&] {
                         sift_->detectAndCompute(image_, cv::noArray(), keypoints_, descriptors_);
                     }));
        times.set(Stage::Describe, times[Stage::Whole] - times[Stage::Detect]);
        keypoints = keypoints_.size();
    }

protected:
    [[nodiscard]] const std::vector<cv::KeyPoint>& found() const { return keypoints_; }

private:
    cv::Mat image_;
    cv::Ptr<cv::SIFT> sift_;
    std::vector<cv::KeyPoint> keypoints_;
    cv::Mat descriptors_;
};

class OpenCvAtEqualWork : public OpenCvSift {
public:
    using OpenCvSift::OpenCvSift;

    void run() override {
        OpenCvSift::run();
        // The octave is the low byte, signed; -1 is the doubled image.
        const auto beyond = std::count_if(found().begin(), found().end(), [](const auto& keypoint) {
            return static_cast<signed char>(keypoint.octave & 255) > 1;
        });
        remark =
            "input of half the size, which it doubles; contrast 2e-4, no edge test; the number "
            "of octaves cannot be limited (" +
            std::to_string(beyond) + " keypoints are beyond the third, pixels 1.6 %)";
    }
};

struct StageImages {
    cv::Mat levels[6];
    cv::Mat differences[5];
};

class OpenCvStages : public SiftSystem {
public:
    explicit OpenCvStages(const cv::Mat& image) : image_(image) {
        name = "OpenCV functions";
        remark =
            "GaussianBlur, subtract, Sobel and cartToPolar (to 0.3 degrees) on float images of the "
            "full size";
    }

    void run() override {
        times.record(Stage::Pyramid, secondsOf([&] { makePyramid(); }));
        times.record(Stage::Differences, secondsOf([&] { makeDifferences(); }));
        times.record(Stage::Gradients, secondsOf([&] { makeGradients(); }));
    }

private:
    static void blur(const cv::Mat& from, cv::Mat& to, double sigma) {
        const int side = 2 * static_cast<int>(std::ceil(4.0 * sigma)) + 1;
        cv::GaussianBlur(from, to, cv::Size(side, side), sigma, sigma, cv::BORDER_REFLECT);
    }

    void makePyramid() {
        blur(image_, octaves_[0].levels[0], std::sqrt(kSigma * kSigma - 0.25));
        for (int o = 0; o < 3; ++o) {
            cv::Mat* const levels = octaves_[o].levels;
            if (o > 0) {
                const cv::Mat& below = octaves_[o - 1].levels[3];
                cv::resize(below, levels[0], cv::Size(below.cols / 2, below.rows / 2), 0, 0,
                           cv::INTER_NEAREST);
            }
            double sigma = kSigma;
            const double step = std::cbrt(2.0);
            for (int i = 0; i < 5; ++i, sigma *= step) {
                blur(levels[i], levels[i + 1], sigma * std::sqrt(step * step - 1.0));
            }
        }
    }

    void makeDifferences() {
        for (StageImages& octave : octaves_) {
            for (int i = 0; i < 5; ++i) {
                cv::subtract(octave.levels[i], octave.levels[i + 1], octave.differences[i]);
            }
        }
    }

    void makeGradients() {
        for (const StageImages& octave : octaves_) {
            for (int i = 1; i <= 3; ++i) {
                cv::Sobel(octave.levels[i], horizontal_, CV_32F, 1, 0, 1, 0.5);
                cv::Sobel(octave.levels[i], vertical_, CV_32F, 0, 1, 1, -0.5);
                cv::cartToPolar(horizontal_, vertical_, length_, direction_);
            }
        }
    }

    cv::Mat image_;
    StageImages octaves_[3];
    cv::Mat horizontal_;
    cv::Mat vertical_;
    cv::Mat length_;
    cv::Mat direction_;
};

}  // namespace

std::unique_ptr<SiftSystem> makeOpenCvAtEqualWork(const ByteImage& image) {
    const cv::Mat full = view(image);
    cv::Mat half;
    cv::resize(full, half, cv::Size(full.cols / 2, full.rows / 2), 0, 0, cv::INTER_AREA);
    auto system = std::make_unique<OpenCvAtEqualWork>(
        half, cv::SIFT::create(0, 3, 2e-4, kNoEdgeTest, kSigma));
    system->name = "OpenCV at equal work";
    return system;
}

std::unique_ptr<SiftSystem> makeOpenCvDefault(const ByteImage& image) {
    auto system = std::make_unique<OpenCvSift>(view(image), cv::SIFT::create());
    system->name = "OpenCV default";
    system->remark = "doubles the image, then drops edges and weak extrema";
    return system;
}

std::unique_ptr<SiftSystem> makeOpenCvStages(const FloatImage& image) {
    return std::make_unique<OpenCvStages>(view(image));
}

}  // namespace marlo::bench
