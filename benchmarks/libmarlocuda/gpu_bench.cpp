// SPDX-License-Identifier: BSD-3-Clause
// What the GPU library does in how long, beside the CPU's code in the same process: the work on the
// GPU alone, by its own clock, and whole calls with their copies, by the wall clock. Medians.
#include <cuda_runtime_api.h>
#include <omp.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/base/parameter_setters.h"
#include "libfeatures/detectors/features_2d_sift_ldah.h"
#include "libfeatures/matchers/desc_matcher_dist_frac.h"
#include "libmarlocuda/detail/detection.h"
#include "libmarlocuda/detail/gradient_pyramid.h"
#include "libmarlocuda/detail/hamming.h"
#include "libmarlocuda/detail/memory.h"
#include "libmarlocuda/detail/stream.h"
#include "libmarlocuda/marlocuda.h"
#include "utilities/images.h"
#include "utilities/machine.h"
#include "utilities/random.h"
#include "utilities/timing.h"

namespace marlo::bench {
namespace {

constexpr int kRepeats = 31;
constexpr int kSkipped = 77;

template <typename Measure>
double median(int repeats, Measure&& measure) {
    measure();  // the first time pays for memory and for loading kernels
    std::vector<double> times;
    for (int i = 0; i < repeats; ++i) times.push_back(measure());
    std::nth_element(times.begin(), times.begin() + repeats / 2, times.end());
    return times[static_cast<std::size_t>(repeats / 2)];
}

void check(cudaError_t error) {
    if (error == cudaSuccess) return;
    std::fprintf(stderr, "gpu_bench: %s\n", cudaGetErrorString(error));
    std::exit(1);
}

// Seconds that the GPU spends on what `work()` gives it.
class GpuClock {
public:
    explicit GpuClock(gpu::Stream& stream) : stream_(static_cast<cudaStream_t>(stream.handle())) {
        check(cudaEventCreate(&begin_));
        check(cudaEventCreate(&end_));
    }
    ~GpuClock() {
        (void)cudaEventDestroy(begin_);
        (void)cudaEventDestroy(end_);
    }
    GpuClock(const GpuClock&) = delete;
    GpuClock& operator=(const GpuClock&) = delete;

    template <typename Work>
    double seconds(Work&& work) {
        return median(kRepeats, [&] {
            check(cudaEventRecord(begin_, stream_));
            work();
            check(cudaEventRecord(end_, stream_));
            check(cudaEventSynchronize(end_));
            float milliseconds = 0.0F;
            check(cudaEventElapsedTime(&milliseconds, begin_, end_));
            return 1e-3 * static_cast<double>(milliseconds);
        });
    }

private:
    cudaStream_t stream_;
    cudaEvent_t begin_ = nullptr;
    cudaEvent_t end_ = nullptr;
};

template <typename Work>
double wallSeconds(Work&& work) {
    return median(kRepeats, [&] { return secondsOf(work); });
}

// Whether a call of the library succeeded.
void require(int status) {
    if (status == 0) return;
    std::string reason;
    cuda::getActiveDeviceString(reason);
    std::fprintf(stderr, "gpu_bench: status %d: %s\n", status, reason.c_str());
    std::exit(1);
}

// A task in memory of its own; `make(plan)` makes it.
template <typename Make>
auto inMemory(gpu::WorkingMemory& memory, const Make& make) {
    gpu::MemoryPlan needed;
    (void)make(needed);
    gpu::MemoryPlan plan(memory.atLeast(needed.bytes()));
    return make(plan);
}

std::size_t bytesOf(const FloatImage& image) {
    return static_cast<std::size_t>(image.size()) * sizeof(float);
}

// Bytes a second that the GPU copies within its memory, read and written both counted.
double copyBandwidth(gpu::Stream& stream, GpuClock& clock) {
    constexpr std::size_t kBytes = std::size_t{1} << 30;
    void* const from = stream.allocate(kBytes);
    void* const to = stream.allocate(kBytes);
    const double seconds = clock.seconds([&] {
        check(cudaMemcpyAsync(to, from, kBytes, cudaMemcpyDeviceToDevice,
                              static_cast<cudaStream_t>(stream.handle())));
    });
    stream.release(from);
    stream.release(to);
    return 2.0 * static_cast<double>(kBytes) / seconds;
}

// Bytes that the levels of a scale space have to be read and written: each is made from another one
// and stored, and every second pixel of one begins the next octave.
double pyramidTraffic(int rows, int cols, int levels) {
    double pixels = 0.0;
    for (int octave = 0; octave < gpu::kOctaves; ++octave) {
        const double side = static_cast<double>(gpu::sideOf(rows, octave)) *
                            static_cast<double>(gpu::sideOf(cols, octave));
        pixels += 2.0 * side * (octave == 0 ? levels : levels - 1);
        if (octave + 1 < gpu::kOctaves) pixels += 2.0 * side / 4.0;
    }
    return pixels * sizeof(float);
}

bool sameBits(const Keypoint& a, const Keypoint& b) {
    return a.x == b.x && a.y == b.y && a.scale == b.scale && a.angle == b.angle &&
           a.response == b.response && a.octave == b.octave && a.layer == b.layer;
}

void detect(int rows, int cols, double bandwidth) {
    gpu::Stream stream;
    GpuClock clock(stream);
    gpu::WorkingMemory memory(stream);
    FloatImage image(rows, cols);
    fillLikePhotograph(image, 6000.0, 1);

    const auto restorePyramid = [&] {
        return inMemory(memory, [&](gpu::MemoryPlan& plan) {
            return gpu::Pyramid(plan, rows, cols, gpu::kLevels);
        });
    };
    gpu::Pyramid warm = restorePyramid();
    stream.upload(warm.input().data, image.data(), bytesOf(image));
    const double pyramid = clock.seconds([&] {
        gpu::Pyramid levels = restorePyramid();
        for (int octave = 0; octave < gpu::kOctaves; ++octave) levels.makeOctave(stream, octave);
    });
    const double traffic = pyramidTraffic(rows, cols, gpu::kLevels) / bandwidth;

    const auto task = [&] {
        return inMemory(memory, [&](gpu::MemoryPlan& plan) {
            return gpu::Detection(plan, rows, cols, gpu::mostKeypoints(rows, cols));
        });
    };
    const double upload = wallSeconds([&] {
        stream.upload(task().input().data, image.data(), bytesOf(image));
        stream.finish();
    });
    // The input is the memory of later levels: it is put there again before each run, outside of
    // what is timed.
    const double kernels = median(kRepeats, [&] {
        gpu::Detection detection = task();
        stream.upload(detection.input().data, image.data(), bytesOf(image));
        stream.finish();
        cudaEvent_t begin = nullptr;
        cudaEvent_t end = nullptr;
        check(cudaEventCreate(&begin));
        check(cudaEventCreate(&end));
        check(cudaEventRecord(begin, static_cast<cudaStream_t>(stream.handle())));
        detection.run(stream);
        check(cudaEventRecord(end, static_cast<cudaStream_t>(stream.handle())));
        check(cudaEventSynchronize(end));
        float milliseconds = 0.0F;
        check(cudaEventElapsedTime(&milliseconds, begin, end));
        check(cudaEventDestroy(begin));
        check(cudaEventDestroy(end));
        return 1e-3 * static_cast<double>(milliseconds);
    });

    const auto pixels =
        std::array{static_cast<std::uint64_t>(rows), static_cast<std::uint64_t>(cols)};
    std::vector<Keypoint> keypoints(mlcMaximumKeypointsLDAH(pixels[0], pixels[1]));
    std::uint64_t count = 0;
    const double call = wallSeconds([&] {
        require(mlcDetectLdah(image.data(), pixels[0], pixels[1], keypoints.data(), &count));
    });

    const auto detector = Features2dSiftLdah::createDetectorLDAH();
    setFeaDetSiftLdahParams(detector.get(), 1.0F);
    std::vector<Keypoint> expected;
    const double cpu = leastSecondsOf(3, [&] { detector->detect(image, expected); });
    std::size_t same = 0;
    for (std::size_t i = 0; i < std::min<std::size_t>(count, expected.size()); ++i) {
        if (sameBits(keypoints[i], expected[i])) ++same;
    }
    std::printf("| %d x %d | %llu | %.3f | %.3f | %.2f | %.3f | %.3f | %.1f | %.1f | %.3f |\n",
                cols, rows, static_cast<unsigned long long>(count), 1e3 * kernels, 1e3 * pyramid,
                pyramid / traffic, 1e3 * upload, 1e3 * call, 1e3 * cpu, cpu / call,
                100.0 * static_cast<double>(same) / static_cast<double>(expected.size()));
    std::fflush(stdout);
}

void describe(int rows, int cols) {
    gpu::Stream stream;
    gpu::WorkingMemory memory(stream);
    GpuClock clock(stream);
    FloatImage image(rows, cols);
    fillLikePhotograph(image, 6000.0, 2);
    const auto task = [&] {
        return inMemory(
            memory, [&](gpu::MemoryPlan& plan) { return gpu::GradientPyramid(plan, rows, cols); });
    };
    gpu::GradientPyramid warm = task();
    stream.upload(warm.input().data, image.data(), bytesOf(image));
    const double kernels = clock.seconds([&] {
        gpu::GradientPyramid pyramid = task();
        pyramid.run(stream);
    });

    std::array<FloatImage, 24> levels;
    std::array<float*, 12> magnitudes{};
    std::array<float*, 12> orientations{};
    for (std::size_t i = 0; i < levels.size(); ++i) {
        if (i % 4 == 0) continue;
        levels[i].resize(rows >> (i % 12 / 4), cols >> (i % 12 / 4));
        (i < 12 ? magnitudes[i] : orientations[i - 12]) = levels[i].data();
    }
    const double call = median(5, [&] {
        return secondsOf([&] {
            require(mlcGradientPyramid(image.data(), static_cast<std::uint64_t>(rows),
                                       static_cast<std::uint64_t>(cols), magnitudes.data(),
                                       orientations.data(), 2, 1.6, 4));
        });
    });
    std::printf("| %d x %d | %.3f | %.1f |\n", cols, rows, 1e3 * kernels, 1e3 * call);
    std::fflush(stdout);
}

void match(int rows, int rowBytes) {
    gpu::Stream stream;
    gpu::WorkingMemory memory(stream);
    GpuClock clock(stream);
    Random random(3);
    DescMat query(rows, rowBytes, DescMat::Byte);
    DescMat train(rows, rowBytes, DescMat::Byte);
    const std::size_t bytes = static_cast<std::size_t>(rows) * static_cast<std::size_t>(rowBytes);
    for (std::size_t i = 0; i < bytes; ++i) {
        query.data[i] = static_cast<unsigned char>(random.nextBits());
        train.data[i] = static_cast<unsigned char>(random.nextBits());
    }
    gpu::HammingSearch search = inMemory(memory, [&](gpu::MemoryPlan& plan) {
        return gpu::HammingSearch(plan, rows, rows, static_cast<std::size_t>(rowBytes));
    });
    stream.upload(search.query(), query.data, bytes);
    stream.upload(search.train(), train.data, bytes);
    const double kernels = clock.seconds([&] { search.run(stream); });
    std::vector<unsigned> index(static_cast<std::size_t>(rows));
    std::vector<unsigned> best = index;
    std::vector<unsigned> second = index;
    const double call = wallSeconds([&] {
        require(mlcHammingDistance(query.data, rows, train.data, rows, index.data(), best.data(),
                                   second.data(), static_cast<std::size_t>(rowBytes)));
    });
    const double pairs = static_cast<double>(rows) * rows;
    const DescMatcherDistFrac matcher;
    const double cpu = secondsOf([&] { (void)matcher.match(query, train); });
    std::printf("| %d x %d rows of %d bits | %.3f | %.2e | %.3f | %.1f | %.1f |\n", rows, rows,
                8 * rowBytes, 1e3 * kernels, pairs / kernels, 1e3 * call, 1e3 * cpu, cpu / call);
    std::fflush(stdout);
}

int run() {
    std::string device;
    cuda::getActiveDeviceString(device);
    if (!cuda::gpusAvailableForProcessing()) {
        std::fprintf(stderr, "%s\n", device.c_str());
        return kSkipped;
    }
    gpu::Stream stream;
    GpuClock clock(stream);
    const double bandwidth = copyBandwidth(stream, clock);
    std::printf("%s, copies %.0f GB/s within its memory; %s, %d threads; %s\n\n", device.c_str(),
                1e-9 * bandwidth, processorName().c_str(), omp_get_max_threads(),
                compilerName().c_str());
    std::printf(
        "| detect | keypoints | kernels ms | of it pyramid ms | / its copies | upload ms | call ms "
        "| CPU ms | CPU / call | the same %% |\n|---|---|---|---|---|---|---|---|---|---|\n");
    for (const auto& [rows, cols] :
         {std::array{1080, 1920}, {2160, 3840}, {4000, 6000}, {10000, 10000}}) {
        detect(rows, cols, bandwidth);
    }
    std::printf("\n| gradient pyramid | kernels ms | call ms |\n|---|---|---|\n");
    describe(4000, 6000);
    std::printf(
        "\n| two nearest rows | kernels ms | pairs/s | call ms | CPU ms | CPU / call |\n"
        "|---|---|---|---|---|---|\n");
    match(10000, 16);
    match(100000, 16);
    match(100000, 64);
    return 0;
}

}  // namespace
}  // namespace marlo::bench

int main() {
    return marlo::bench::run();
}
