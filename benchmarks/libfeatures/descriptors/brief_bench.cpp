// SPDX-License-Identifier: BSD-3-Clause
// How long Brief takes to describe keypoints, beside the descriptors of OpenCV's ORB where there is
// OpenCV: brief_bench [KEYPOINTS ...], 100, 2000, 10000 and 50000 if none are given.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <vector>

#include "libfeatures/descriptors/descriptor_brief.h"
#include "support/log.h"
#include "utilities/images.h"
#include "utilities/machine.h"
#include "utilities/random.h"
#include "utilities/timing.h"

#if defined(FEATURES_BENCH_WITH_OPENCV)
#include <opencv2/core/utility.hpp>
#include <opencv2/features2d.hpp>
#endif

namespace marlo::bench {
namespace {

constexpr int kRepeats = 15;
constexpr int kBorder = 40;  // keypoints are at least as far inside, so that ORB keeps them all

ByteImage photographLikeBytes(Eigen::Index rows, Eigen::Index cols) {
    FloatImage floats(rows, cols);
    fillLikePhotograph(floats, 3500.0, 1);
    return (floats * 255.0F).cast<unsigned char>();
}

// In no order, as selectors leave them; every angle.
std::vector<Keypoint> someKeypoints(std::size_t count, const ByteImage& image) {
    Random random(5);
    std::vector<Keypoint> keypoints(count);
    for (Keypoint& keypoint : keypoints) {
        const auto within = [&](Eigen::Index length) {
            return kBorder + static_cast<float>(length - 2 * kBorder) * random.next();
        };
        keypoint.x = within(image.cols());
        keypoint.y = within(image.rows());
        keypoint.angle = 359.9F * random.next();
    }
    return keypoints;
}

#if defined(FEATURES_BENCH_WITH_OPENCV)
// One level of the pyramid: the image itself is smoothed, then 256 pairs of its pixels are
// compared.
class OpenCvOrb {
public:
    OpenCvOrb(const ByteImage& image, const std::vector<Keypoint>& keypoints)
        : image_(static_cast<int>(image.rows()), static_cast<int>(image.cols()), CV_8U,
                 const_cast<unsigned char*>(image.data())) {
        for (const Keypoint& k : keypoints) {
            keypoints_.emplace_back(k.x, k.y, 31.0F, k.angle, 1.0F, 0);
        }
    }
    // Makes as many rows as there are keypoints.
    void run() {
        orb_->compute(image_, keypoints_, descriptors_);
        if (static_cast<std::size_t>(descriptors_.rows) != keypoints_.size()) std::abort();
    }

private:
    cv::Mat image_;
    cv::Ptr<cv::ORB> orb_ = cv::ORB::create();
    std::vector<cv::KeyPoint> keypoints_;
    cv::Mat descriptors_;
};
#endif

void print(const char* name, double seconds, std::size_t keypoints, int bits) {
    const double nanoseconds = 1e9 * seconds / static_cast<double>(keypoints);
    std::printf("  %-10s %8.2f ms  %8.0f ns a keypoint  %6.2f ns a bit", name, 1e3 * seconds,
                nanoseconds, nanoseconds / bits);
}

void measure(const ByteImage& image, std::size_t count) {
    std::vector<Keypoint> keypoints = someKeypoints(count, image);
    Brief brief;
    DescMat descriptors;
    double briefSeconds = std::numeric_limits<double>::infinity();
#if defined(FEATURES_BENCH_WITH_OPENCV)
    OpenCvOrb orb(image, keypoints);
    double orbSeconds = briefSeconds;
#endif
    for (int i = 0; i < kRepeats; ++i) {
        briefSeconds = std::min(briefSeconds,
                                secondsOf([&] { brief.compute(image, keypoints, descriptors); }));
#if defined(FEATURES_BENCH_WITH_OPENCV)
        orbSeconds = std::min(orbSeconds, secondsOf([&] { orb.run(); }));
#endif
    }
    std::printf("%zu keypoints\n", count);
    print("Brief", briefSeconds, count, 512);
    std::printf("\n");
#if defined(FEATURES_BENCH_WITH_OPENCV)
    print("OpenCV ORB", orbSeconds, count, 256);
    std::printf("  ORB / Brief %5.2f a keypoint, %5.2f a bit\n", orbSeconds / briefSeconds,
                2.0 * orbSeconds / briefSeconds);
#endif
}

}  // namespace
}  // namespace marlo::bench

int main(int argc, char** argv) {
    marlo::log::defaultLogSource().setThreshold(marlo::log::Level::Warning);
#if defined(FEATURES_BENCH_WITH_OPENCV)
    cv::setNumThreads(1);
#endif
    std::printf("%s, %s %s, one thread\n", marlo::bench::processorName().c_str(),
                marlo::bench::compilerName().c_str(), marlo::bench::compilerFlags().c_str());
    std::vector<std::size_t> counts;
    for (int i = 1; i < argc; ++i) counts.push_back(std::strtoull(argv[i], nullptr, 10));
    if (counts.empty()) counts = {100, 2000, 10000, 50000};
    for (const auto& [rows, cols] : {std::pair{1000, 1000}, std::pair{3000, 4000}}) {
        std::printf("\n%d x %d pixels\n", cols, rows);
        const marlo::ByteImage image = marlo::bench::photographLikeBytes(rows, cols);
        for (const std::size_t count : counts) marlo::bench::measure(image, count);
    }
    return 0;
}
