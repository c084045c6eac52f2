// SPDX-License-Identifier: BSD-3-Clause
// How long the selectors take, beside sorting their input and beside the plain quadratic rule:
// selection_bench [KEYPOINTS ...], 10000, 100000 and 1000000 if none are given.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "libfeatures/base/extensible_factory.h"
#include "libfeatures/base/parameter_setters.h"
#include "libfeatures/base/registration.h"
#include "libfeatures/selectors/detail/point_grid.h"
#include "libfeatures/selectors/detail/sort_strongest_first.h"
#include "libfeatures/selectors/i_keypoint_selector.h"
#include "support/log.h"
#include "utilities/machine.h"
#include "utilities/random.h"
#include "utilities/timing.h"

namespace marlo::bench {
namespace {

constexpr int kWidth = 6000;
constexpr int kHeight = 4000;
constexpr int kRepeats = 5;
constexpr std::size_t kMostOfPlainRule = 100000;  // beyond it takes minutes

// Spread over the image, every tenth in the place of the one before; most of them are weak. With
// responses beyond 1 every rule has something to suppress.
std::vector<Keypoint> someKeypoints(std::size_t count) {
    Random random(7);
    std::vector<Keypoint> keypoints;
    keypoints.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        Keypoint keypoint(kWidth * random.next(), kHeight * random.next());
        if (i % 10 == 9) keypoint = keypoints.back();
        keypoint.angle = 6.0F * random.next() - 3.0F;
        keypoint.response = -20.0F * std::log(1.0F - random.next());
        keypoints.push_back(keypoint);
    }
    return keypoints;
}

// The radii of the rule of "ANMS" by comparing each with all that suppress it.
std::vector<std::uint32_t> plainRadii(std::vector<Keypoint> keypoints) {
    constexpr float kRobustness = 0.8F;
    detail::sortStrongestFirst(keypoints);
    std::vector<std::uint32_t> radii;
    for (const Keypoint& p : keypoints) {
        std::uint32_t radius = std::numeric_limits<std::uint32_t>::max();
        for (const Keypoint& q : keypoints) {
            if (!(p.response < q.response * kRobustness)) break;
            radius = std::min(radius, detail::squaredDistance(p.x, p.y, q.x, q.y));
        }
        radii.push_back(radius);
    }
    return radii;
}

double secondsOfSelector(const std::string& key, const std::vector<Keypoint>& keypoints) {
    double least = std::numeric_limits<double>::infinity();
    for (int i = 0; i < kRepeats; ++i) {
        // A new one each time: some keep records of what they have done.
        const auto selector = extensibleFactoryInstance<IKeypointSelector>().create(key);
        selector->setNumberOfKeypoints(keypoints.size() / 10);
        if (key.rfind("SDC", 0) == 0) {
            setSdcParams(selector.get(), kWidth, kHeight, 0.25F, 0.1F);
        }
        if (key == "Default") setSelectorDefaultParams(selector.get(), kHeight, kWidth);
        std::vector<Keypoint> out;
        least = std::min(least, secondsOf([&] { selector->select(keypoints, out); }));
    }
    return least;
}

void measure(std::size_t count) {
    const std::vector<Keypoint> keypoints = someKeypoints(count);
    const double sorting = leastSecondsOf(kRepeats, [&] {
        std::vector<Keypoint> sorted = keypoints;
        detail::sortStrongestFirst(sorted);
    });
    std::printf("\n%zu keypoints to %zu, %d x %d\n%-10s %9.2f ms\n", count, count / 10, kWidth,
                kHeight, "sort", 1e3 * sorting);
    double plain = 0.0;
    if (count <= kMostOfPlainRule) {
        std::size_t radii = 0;
        plain = secondsOf([&] { radii = plainRadii(keypoints).size(); });
        std::printf("%-10s %9.2f ms  (%zu radii)\n", "plain rule", 1e3 * plain, radii);
    }
    for (const char* const key :
         {"TOP", "Default", "ANMS", "ANMSBound", "ANMSOri", "ANMSOrig", "SDC", "SDCOri"}) {
        const double seconds = secondsOfSelector(key, keypoints);
        std::printf("%-10s %9.2f ms  %5.2f of sort", key, 1e3 * seconds, seconds / sorting);
        if (plain > 0.0) std::printf("  plain rule / this %7.1f", plain / seconds);
        std::printf("\n");
    }
}

}  // namespace
}  // namespace marlo::bench

int main(int argc, char** argv) {
    marlo::registerMainKeypointSelectors();
    marlo::log::defaultLogSource().setSink([](const marlo::log::Line&) {});
    std::printf("%s, %s %s\n", marlo::bench::processorName().c_str(),
                marlo::bench::compilerName().c_str(), marlo::bench::compilerFlags().c_str());
    std::vector<std::size_t> counts;
    for (int i = 1; i < argc; ++i) counts.push_back(std::strtoull(argv[i], nullptr, 10));
    if (counts.empty()) counts = {10000, 100000, 1000000};
    for (const std::size_t count : counts) marlo::bench::measure(count);
    return 0;
}
