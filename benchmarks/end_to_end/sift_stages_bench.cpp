// SPDX-License-Identifier: BSD-3-Clause
// How long detection and description of a photograph take, stage by stage, beside other systems and
// beside what the machine could do. Everything runs in one process, in turns, and the least time of
// each counts: on a shared machine only ratios from one run can be compared.
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <string_view>

#include "end_to_end/sift_systems.h"
#include "utilities/machine.h"

namespace marlo::bench {
namespace {

constexpr const char* kUsage =
    "usage: sift_stages_bench PHOTOGRAPH [--threads N] [--repeats N] [--alone]\n"
    "  --threads N  threads of every system that has any (default 1)\n"
    "  --repeats N  turns after one that warms up (default 5)\n"
    "  --alone      this library only\n";

struct Options {
    std::string photograph;
    int threads = 1;
    int repeats = 5;
    bool alone = false;
};

bool parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        const bool hasValue = i + 1 < argc;
        if (argument == "--threads" && hasValue) {
            options.threads = std::atoi(argv[++i]);
        } else if (argument == "--repeats" && hasValue) {
            options.repeats = std::atoi(argv[++i]);
        } else if (argument == "--alone") {
            options.alone = true;
        } else if (!argument.starts_with("-") && options.photograph.empty()) {
            options.photograph = argument;
        } else {
            return false;
        }
    }
    return !options.photograph.empty() && options.threads > 0 && options.repeats > 0;
}

// What the machine allows: the larger of the time for the memory that must move and the time for
// the arithmetic, with each stage fused as far as it can be. Levels of an octave that are made in
// one sweep leave only the image and the kept levels 1 to 3 to move; differences cost nothing where
// the extremum test reads them.
StageTimes floorTimes(const FloatImage& image, const std::vector<Keypoint>& keypoints,
                      const MachineLimits& machine) {
    constexpr double kMultiplyAddsPerPixel = 269.0;  // 15 | 11 15 17 21 27 taps, two passes
    constexpr double kInstructionsPerTest = 16.0;    // difference, separable minimum and maximum
    constexpr double kInstructionsPerGradient = 25.0;
    constexpr double kCyclesPerOrientationSample = 4.5;
    constexpr double kCyclesPerDescriptorSample = 6.0;

    const double pixels = static_cast<double>(image.size());
    const double levelPixels = pixels * 3.0 * (1.0 + 1.0 / 4.0 + 1.0 / 16.0);
    const auto bytes = [&](double floats) { return 4.0 * floats / machine.bytesPerSecond(); };

    double orientationSamples = 0.0;
    double descriptorSamples = 0.0;
    for (std::size_t i = 0; i < keypoints.size(); ++i) {
        const Keypoint& k = keypoints[i];
        const double sigma = std::ldexp(k.scale, -k.octave);
        descriptorSamples += std::pow(15.0 * sigma, 2);  // a square of 5 cells of 3 sigma
        const bool anotherDirection =
            i > 0 && k.x == keypoints[i - 1].x && k.y == keypoints[i - 1].y;
        if (!anotherDirection) orientationSamples += M_PI * std::pow(4.5 * sigma, 2);
    }
    const double cyclesPerSecond = machine.cyclesPerSecond * machine.threads;

    StageTimes floor;
    floor.record(Stage::Pyramid,
                 std::max(bytes(pixels + levelPixels),
                          pixels * kMultiplyAddsPerPixel * 2.0 / machine.flopsPerSecond()));
    floor.record(Stage::Differences, 0.0);
    floor.record(Stage::Extrema, levelPixels * kInstructionsPerTest / machine.elementsPerSecond());
    floor.record(Stage::Gradients,
                 std::max(bytes(levelPixels),
                          levelPixels * kInstructionsPerGradient / machine.elementsPerSecond()));
    floor.record(Stage::Orientation,
                 orientationSamples * kCyclesPerOrientationSample / cyclesPerSecond);
    floor.record(Stage::Describe, descriptorSamples * kCyclesPerDescriptorSample / cyclesPerSecond);
    floor.record(Stage::Search, floor[Stage::Pyramid] + floor[Stage::Extrema]);
    floor.record(Stage::Detect,
                 floor[Stage::Search] + floor[Stage::Gradients] + floor[Stage::Orientation]);
    floor.record(Stage::Whole, floor[Stage::Detect] + floor[Stage::Describe]);
    return floor;
}

void printRates(const char* what, const std::vector<NamedRate>& rates, const char* unit) {
    std::printf("%-12s", what);
    for (std::size_t i = 0; i < rates.size(); ++i) {
        std::printf("%s%s %.1f %s", i == 0 ? "" : ", ", rates[i].name.c_str(),
                    rates[i].perSecond * 1e-9, unit);
    }
    std::printf("\n");
}

void printConditions(const Options& options, const FloatImage& image,
                     const MachineLimits& machine) {
    std::printf("processor   %s, %.2f GHz\n", processorName().c_str(),
                machine.cyclesPerSecond * 1e-9);
    std::printf("compiler    %s %s\n", compilerName().c_str(), compilerFlags().c_str());
    std::printf("threads     %d (VLFeat has one)\n", options.threads);
    std::printf("image       %d x %d, %.2f Mpixel\n", static_cast<int>(image.cols()),
                static_cast<int>(image.rows()), static_cast<double>(image.size()) * 1e-6);
    std::printf("OpenCV      %s\n", CV_VERSION);
    std::printf("repeats     %d\n", options.repeats);
    printRates("memory", machine.copies, "GB/s");
    printRates("arithmetic", machine.arithmetic, "GFLOP/s");
}

void printNumber(double value, int width, int decimals) {
    if (std::isfinite(value)) {
        std::printf("%*.*f", width, decimals, value);
    } else {
        std::printf("%*s", width, "-");
    }
}

// `other` / `own`: how many times faster `own` is. Nothing where either was not measured.
double ratio(double other, double own) {
    return std::isfinite(other) && std::isfinite(own) && own > 0.0 ? other / own : INFINITY;
}

struct Systems {
    const SiftSystem* own = nullptr;
    const SiftSystem* openCv = nullptr;
    const SiftSystem* openCvStages = nullptr;
    const SiftSystem* openCvDefault = nullptr;
    const SiftSystem* vlFeat = nullptr;
};

double timeOf(const SiftSystem* system, Stage stage) {
    return system != nullptr ? system->times[stage] : INFINITY;
}

void printTable(const Systems& systems, const StageTimes& floor) {
    std::printf("\nmilliseconds; the ratios say how many times faster this library is\n");
    std::printf("%-22s%12s%10s%10s%10s%12s%12s%12s\n", "stage", "libfeatures", "OpenCV", "VLFeat",
                "floor", "OpenCV/own", "VLFeat/own", "own/floor");
    for (std::size_t i = 0; i < kStages; ++i) {
        const auto stage = static_cast<Stage>(i);
        const double own = systems.own->times[stage];
        const double openCv =
            std::min(timeOf(systems.openCv, stage), timeOf(systems.openCvStages, stage));
        const double vlFeat = timeOf(systems.vlFeat, stage);
        std::printf("%-22s", kStageNames[i]);
        printNumber(own * 1e3, 12, 1);
        printNumber(openCv * 1e3, 10, 1);
        printNumber(vlFeat * 1e3, 10, 1);
        printNumber(floor[stage] * 1e3, 10, 1);
        printNumber(ratio(openCv, own), 12, 2);
        printNumber(ratio(vlFeat, own), 12, 2);
        printNumber(ratio(own, floor[stage]), 12, 2);
        std::printf("\n");
    }
}

void printSystems(const Systems& systems) {
    std::printf("\n%-22s%10s%12s%12s%14s\n", "system", "keypoints", "detect ms", "whole ms",
                "us/descriptor");
    for (const SiftSystem* system :
         {systems.own, systems.openCv, systems.openCvDefault, systems.vlFeat}) {
        if (system == nullptr) continue;
        const StageTimes& times = system->times;
        std::printf("%-22s%10zu", system->name.c_str(), system->keypoints);
        printNumber(times[Stage::Detect] * 1e3, 12, 1);
        printNumber(times[Stage::Whole] * 1e3, 12, 1);
        printNumber(times[Stage::Describe] * 1e6 / static_cast<double>(system->keypoints), 14, 1);
        std::printf("\n");
    }
    std::printf("\n");
    for (const SiftSystem* system : {systems.own, systems.openCv, systems.openCvStages,
                                     systems.openCvDefault, systems.vlFeat}) {
        if (system == nullptr || system->remark.empty()) continue;
        std::printf("%s: %s\n", system->name.c_str(), system->remark.c_str());
    }
}

int run(const Options& options) {
    omp_set_num_threads(options.threads);
    cv::setNumThreads(options.threads);

    const cv::Mat photograph = cv::imread(options.photograph, cv::IMREAD_GRAYSCALE);
    if (photograph.empty()) {
        std::fprintf(stderr, "cannot read %s\n", options.photograph.c_str());
        return 1;
    }
    const ByteImage bytes =
        Eigen::Map<const ByteImage>(photograph.data, photograph.rows, photograph.cols);
    const FloatImage image = bytes.cast<float>() / 255.0F;

    LibfeaturesSift own(image);
    std::unique_ptr<SiftSystem> others[4];
    if (!options.alone) {
        others[0] = makeOpenCvAtEqualWork(bytes);
        others[1] = makeOpenCvStages(image);
        others[2] = makeOpenCvDefault(bytes);
        others[3] = makeVlFeat(image);
    }
    const Systems systems{&own, others[0].get(), others[1].get(), others[2].get(), others[3].get()};

    MachineLimits machine = measureMachineLimits(options.threads);
    for (int i = 0; i <= options.repeats; ++i) {
        own.run();
        for (const auto& other : others) {
            if (other != nullptr) other->run();
        }
        machine.merge(measureMachineLimits(options.threads));
        if (i > 0) continue;
        // The first turn has warmed up.
        own.times = {};
        for (const auto& other : others) {
            if (other != nullptr) other->times = {};
        }
    }

    printConditions(options, image, machine);
    printTable(systems, floorTimes(image, own.found(), machine));
    printSystems(systems);
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
