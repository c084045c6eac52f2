// SPDX-License-Identifier: BSD-3-Clause
// How much memory detection and description of a large image take at their peak, beyond the image.
#include <omp.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include "libfeatures/detectors/features_2d_sift_ldah.h"
#include "utilities/images.h"
#include "utilities/memory.h"
#include "utilities/timing.h"

namespace marlo::bench {
namespace {

constexpr const char* kUsage =
    "usage: sift_memory_bench ROWS COLS [--threads N] [--density N]\n"
    "  --threads N  (default 1)\n"
    "  --density N  blobs per megapixel of the image that is made up (default 3500)\n";

struct Options {
    Eigen::Index rows = 0;
    Eigen::Index cols = 0;
    int threads = 1;
    double density = 3500.0;
};

bool parse(int argc, char** argv, Options& options) {
    if (argc < 3) return false;
    options.rows = std::atoll(argv[1]);
    options.cols = std::atoll(argv[2]);
    for (int i = 3; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (i + 1 == argc) return false;
        if (argument == "--threads") {
            options.threads = std::atoi(argv[++i]);
        } else if (argument == "--density") {
            options.density = std::atof(argv[++i]);
        } else {
            return false;
        }
    }
    return options.rows > 0 && options.cols > 0 && options.threads > 0 && options.density >= 0.0;
}

int run(const Options& options) {
    omp_set_num_threads(options.threads);
    FloatImage image(options.rows, options.cols);
    fillLikePhotograph(image, options.density, 1);
    const double pixels = static_cast<double>(image.size());
    const double imageBytes = 4.0 * pixels;

    const auto detector = Features2dSiftLdah::createDetectorSIFT();
    dynamic_cast<SiftLdahBaseParams&>(*detector).setParams(1.0F);
    std::vector<Keypoint> keypoints;
    DescMat descriptors;

    resetPeak();
    const double before = residentBytes();
    const double detectSeconds = secondsOf([&] { detector->detect(image, keypoints); });
    const double detectPeak = peakBytes();
    const double detectLeft = residentBytes();
    const double computeSeconds = secondsOf([&] {
        dynamic_cast<IDescriptorExtractor&>(*detector).compute(image, keypoints, descriptors);
    });
    const double peak = peakBytes();
    const double results =
        static_cast<double>(keypoints.capacity() * sizeof(Keypoint)) +
        static_cast<double>(descriptors.rows) * static_cast<double>(descriptors.step);

    const auto line = [&](const char* what, double bytes) {
        std::printf("%-44s%10.1f MiB%8.1f bytes per pixel\n", what, bytes / 1048576.0,
                    bytes / pixels);
    };
    std::printf("%lld x %lld, %.2f Mpixel, %zu keypoints, %d threads\n",
                static_cast<long long>(options.rows), static_cast<long long>(options.cols),
                pixels * 1e-6, keypoints.size(), options.threads);
    std::printf("detect %.1f ms, describe %.1f ms\n", detectSeconds * 1e3, computeSeconds * 1e3);
    line("image", imageBytes);
    line("peak of detect, above the image", detectPeak - before);
    line("left after detect, above the image", detectLeft - before);
    line("peak of detect and describe, above the image", peak - before);
    line("  of these keypoints and descriptors", results);
    line("peak of the process", peak);
    return 0;
}

}  // namespace
}  // namespace marlo::bench

int main(int argc, char** argv) {
    marlo::bench::Options options;
    if (!marlo::bench::parse(argc, argv, options)) {
        std::fputs(marlo::bench::kUsage, stderr);
        return 2;
    }
    return marlo::bench::run(options);
}
