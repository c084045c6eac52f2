// SPDX-License-Identifier: BSD-3-Clause
// How long the working image of a panorama takes, beside OpenCV's remap of as many pixels with its
// fastest ready map: spherical_transform_bench [WIDTH ...], 4096 and 20000 if none are given.
#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "libfeatures/transforms/spherical_layout.h"
#include "libfeatures/transforms/spherical_transform.h"
#include "support/log.h"
#include "utilities/machine.h"
#include "utilities/timing.h"

namespace marlo::bench {
namespace {

constexpr int kRepeats = 7;

// The same pixels as those of the working image: what OpenCV would have to be told.
cv::Mat mapOf(const SphericalLayout& layout) {
    cv::Mat map(layout.rows, layout.cols, CV_32FC2);
    cv::parallel_for_({0, layout.rows}, [&](const cv::Range& rows) {
        for (int y = rows.start; y < rows.end; ++y) {
            for (int x = 0; x < layout.cols; ++x) {
                const Eigen::Vector2d place = layout.inPanorama(x, y);
                map.at<cv::Point2f>(y, x) = {static_cast<float>(place.x()),
                                             static_cast<float>(place.y())};
            }
        }
    });
    return map;
}

template <typename Pixel>
void measure(int width, int threads, const cv::Mat& map, const char* kind) {
    omp_set_num_threads(threads);
    cv::setNumThreads(threads);
    Matrix<Pixel> panorama(width / 2, width);
    for (Eigen::Index i = 0; i < panorama.size(); ++i) {
        panorama.data()[i] = static_cast<Pixel>(i * 2654435761 >> 8 & 0xff);
    }
    SphericalTransform transform;
    const double first = secondsOf([&] { transform.transformImage(panorama); });
    const double later = leastSecondsOf(kRepeats, [&] { transform.transformImage(panorama); });
    const cv::Mat from(width / 2, width, cv::DataType<Pixel>::type, panorama.data());
    cv::Mat to;
    const double remap = leastSecondsOf(
        kRepeats, [&] { cv::remap(from, to, map, {}, cv::INTER_NEAREST, cv::BORDER_WRAP); });
    std::printf("| %d x %d | %s | %d | %.1f ms | %.1f ms | %.1f ms | %.2f |\n", width, width / 2,
                kind, threads, 1e3 * first, 1e3 * later, 1e3 * remap, later / remap);
}

void run(int width) {
    cv::Mat map;
    cv::Mat none;
    // 16-bit pairs: OpenCV's fastest form, for images of up to 32,767 pixels a side.
    cv::convertMaps(mapOf(SphericalLayout(width, width / 2)), none, map, none, CV_16SC2, true);
    for (const int threads : {1, omp_get_num_procs()}) {
        measure<unsigned char>(width, threads, map, "bytes");
        measure<float>(width, threads, map, "floats");
    }
}

}  // namespace
}  // namespace marlo::bench

int main(int argc, char** argv) {
    std::printf("%s, %s\n\n", marlo::bench::processorName().c_str(),
                marlo::bench::compilerName().c_str());
    marlo::log::defaultLogSource().setThreshold(marlo::log::Level::Warning);
    std::printf(
        "| panorama | pixels | threads | first call | later calls | remap | ratio |\n"
        "|---|---|---|---|---|---|---|\n");
    std::vector<int> widths;
    for (int i = 1; i < argc; ++i) widths.push_back(std::atoi(argv[i]) / 2 * 2);
    if (widths.empty()) widths = {4096, 20000};
    for (const int width : widths) marlo::bench::run(width);
}
