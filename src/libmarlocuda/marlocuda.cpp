// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/marlocuda.h"

#include <atomic>
#include <exception>
#include <limits>
#include <new>

#include "libmarlocuda/detail/blur.h"
#include "libmarlocuda/detail/detection.h"
#include "libmarlocuda/detail/devices.h"
#include "libmarlocuda/detail/gradient.h"
#include "libmarlocuda/detail/gradient_pyramid.h"
#include "libmarlocuda/detail/hamming.h"
#include "libmarlocuda/detail/session.h"

namespace marlo::gpu {
namespace {

// Candidates are numbered by 32 bits in three levels.
constexpr std::uint64_t kMostPixels = std::uint64_t{1} << 30;

std::atomic<bool> mayProcess{true};
std::atomic<bool> lost{false};         // since a failure from which a process cannot recover
thread_local std::string lastFailure;  // of this thread's last call, if it failed

std::string textOf(const Device& device) {
    return device.name + " (compute capability " + std::to_string(device.major) + "." +
           std::to_string(device.minor) + ", " + std::to_string(device.memory >> 20) + " MiB)";
}

// Why a GPU cannot be used; nothing if it can.
std::string objectionTo(const Device& device) {
    const bool old =
        device.major < kLeastMajor || (device.major == kLeastMajor && device.minor < kLeastMinor);
    if (old) {
        return "compute capability " + std::to_string(kLeastMajor) + "." +
               std::to_string(kLeastMinor) + " or newer is needed";
    }
    constexpr std::size_t kLeastMemory = std::size_t{512} << 20;
    if (device.memory < kLeastMemory) return "at least 512 MiB of memory are needed";
    return {};
}

// Why this thread cannot use a GPU; nothing if it can.
std::string objection() {
    if (!mayProcess) return "switched off";
    const DeviceList& all = allDevices();
    if (all.devices.empty()) return all.reason;
    if (lost) return "it failed and does not respond any more";
    const Device& device = all.devices.at(static_cast<std::size_t>(deviceOfThisThread()));
    const std::string reason = objectionTo(device);
    return reason.empty() ? reason : textOf(device) + ": " + reason;
}

int failed(Status status, const char* reason) {
    try {
        lastFailure = reason;
    } catch (const std::bad_alloc&) {
        lastFailure.clear();
    }
    if (status == ProcessingError) {
        Session::endOfThisThread();
        if (!deviceResponds()) lost = true;
    }
    return status;
}

// Runs the work of an entry point and turns its failures into a status.
template <typename Work>
int statusOf(Work&& work) {
    try {
        if (const std::string reason = objection(); !reason.empty()) {
            throw Failure(NoUsableGpu, reason);
        }
        work();
        lastFailure.clear();
        return Success;
    } catch (const Failure& failure) {
        return failed(failure.status(), failure.what());
    } catch (const std::bad_alloc&) {
        return failed(NotEnoughResources, "there is no memory left");
    } catch (const std::exception& exception) {
        return failed(ProcessingError, exception.what());
    }
}

void require(bool valid, const char* what) {
    if (!valid) throw Failure(InvalidArgument, what);
}

bool canCount(std::uint64_t rows, std::uint64_t cols) {
    return rows <= kMostPixels && cols <= kMostPixels && rows * cols <= kMostPixels;
}

struct Size {
    int rows;
    int cols;

    [[nodiscard]] bool empty() const { return rows == 0 || cols == 0; }
};

Size sizeOf(std::uint64_t rows, std::uint64_t cols) {
    if (!canCount(rows, cols)) {
        throw Failure(NotEnoughResources, "images of more than 2^30 pixels are too large");
    }
    return {static_cast<int>(rows), static_cast<int>(cols)};
}

std::size_t bytesOf(const Image& image) {
    return static_cast<std::size_t>(image.size()) * sizeof(float);
}

// A task in the GPU's memory, which is as large as the task needs. `make(plan)` makes it.
template <typename Make>
auto inMemory(Session& session, const Make& make) {
    MemoryPlan needed;
    (void)make(needed);
    MemoryPlan plan(session.memory.atLeast(needed.bytes()));
    return make(plan);
}

void detect(const float* data, Size size, Keypoint* keypoints, std::uint64_t* count) {
    Session& session = Session::ofThisThread();
    Stream& stream = session.stream;
    Detection detection = inMemory(session, [&](MemoryPlan& plan) {
        return Detection(plan, size.rows, size.cols, mostKeypoints(size.rows, size.cols));
    });
    stream.upload(detection.input().data, data, bytesOf(detection.input()));
    detection.run(stream);
    const std::size_t found = detection.count(stream);
    if (found > 0) {
        stream.download(keypoints, detection.keypoints(), found * sizeof(KeypointRecord));
    }
    *count = found;
}

struct GradientTask {
    GradientTask(MemoryPlan& plan, Size size)
        : image(plan.takeImage(size.rows, size.cols)),
          magnitude(plan.takeImage(size.rows, size.cols)),
          direction(plan.takeImage(size.rows, size.cols)) {}

    Image image;
    Image magnitude;
    Image direction;
};

void gradient(const float* src, Size size, float* magnitude, float* orientation) {
    Session& session = Session::ofThisThread();
    Stream& stream = session.stream;
    const GradientTask task =
        inMemory(session, [&](MemoryPlan& plan) { return GradientTask(plan, size); });
    stream.upload(task.image.data, src, bytesOf(task.image));
    computeGradients(stream, task.image, task.magnitude, task.direction);
    stream.finish();
    stream.download(magnitude, task.magnitude.data, bytesOf(task.magnitude));
    stream.download(orientation, task.direction.data, bytesOf(task.direction));
}

struct BlurTask {
    BlurTask(MemoryPlan& plan, Size size, long long weightsSize)
        : image(plan.takeImage(size.rows, size.cols)),
          blurred(plan.takeImage(size.rows, size.cols)),
          scratch(plan.takeImage(size.rows, size.cols)),
          weights(plan.take<float>(weightsSize)) {}

    Image image;
    Image blurred;
    Image scratch;
    float* weights;
};

void gaussianFilter(float* data, Size size, double sigma) {
    const marlo::detail::GaussWeights rowWeights(sigma, size.rows);
    const marlo::detail::GaussWeights colWeights(sigma, size.cols);
    Session& session = Session::ofThisThread();
    Stream& stream = session.stream;
    const BlurTask task = inMemory(session, [&](MemoryPlan& plan) {
        return BlurTask(plan, size, blurWeightsSize(rowWeights, colWeights));
    });
    stream.upload(task.image.data, data, bytesOf(task.image));
    blur(stream, task.image, task.blurred, task.scratch, rowWeights, colWeights, task.weights);
    stream.finish();
    stream.download(data, task.blurred.data, bytesOf(task.blurred));
}

// The callers' images of octave o are entries 4 o + 1 to 4 o + 3.
constexpr int kEntriesOfOctave = 4;

void gradientPyramid(const float* image, Size size, float** magnitudes, float** orientations) {
    for (int o = 0; o < kOctaves; ++o) {
        if (Size{sideOf(size.rows, o), sideOf(size.cols, o)}.empty()) break;
        for (int s = kFirstSearched; s <= kLastSearched; ++s) {
            const int entry = o * kEntriesOfOctave + s;
            require(magnitudes[entry] != nullptr && orientations[entry] != nullptr,
                    "a gradient image is missing");
        }
    }
    Session& session = Session::ofThisThread();
    Stream& stream = session.stream;
    GradientPyramid pyramid = inMemory(
        session, [&](MemoryPlan& plan) { return GradientPyramid(plan, size.rows, size.cols); });
    stream.upload(pyramid.input().data, image, bytesOf(pyramid.input()));
    pyramid.run(stream);
    stream.finish();
    for (int o = 0; o < kOctaves; ++o) {
        for (int s = kFirstSearched; s <= kLastSearched; ++s) {
            const GradientPyramid::Level& level = pyramid.level(o, s);
            if (level.magnitude.size() == 0) continue;
            const int entry = o * kEntriesOfOctave + s;
            stream.download(magnitudes[entry], level.magnitude.data, bytesOf(level.magnitude));
            stream.download(orientations[entry], level.direction.data, bytesOf(level.direction));
        }
    }
}

void hammingDistance(const void* queryData, int queryRows, const void* trainData, int trainRows,
                     unsigned* bestIndex, unsigned* bestDistance, unsigned* secondDistance,
                     std::size_t rowBytes) {
    Session& session = Session::ofThisThread();
    Stream& stream = session.stream;
    HammingSearch search = inMemory(session, [&](MemoryPlan& plan) {
        return HammingSearch(plan, queryRows, trainRows, rowBytes);
    });
    const auto queries = static_cast<std::size_t>(queryRows);
    stream.upload(search.query(), queryData, queries * rowBytes);
    stream.upload(search.train(), trainData, static_cast<std::size_t>(trainRows) * rowBytes);
    search.run(stream);
    stream.finish();
    stream.download(bestIndex, search.bestIndex(), queries * sizeof(unsigned));
    stream.download(bestDistance, search.bestDistance(), queries * sizeof(unsigned));
    stream.download(secondDistance, search.secondDistance(), queries * sizeof(unsigned));
}

}  // namespace
}  // namespace marlo::gpu

using namespace marlo::gpu;  // NOLINT(google-build-using-namespace): the entry points are ours

namespace marlo::cuda {

bool isFeatureAvailable() {
    return !allDevices().devices.empty();
}

bool gpusAvailableForProcessing() {
    try {
        return objection().empty();
    } catch (const std::exception&) {
        return false;
    }
}

void getActiveDeviceString(std::string& description) {
    try {
        if (const std::string reason = objection(); !reason.empty()) {
            description = "no GPU: " + reason;
            return;
        }
        description =
            textOf(allDevices().devices.at(static_cast<std::size_t>(deviceOfThisThread())));
        if (!lastFailure.empty()) description += "; failed: " + lastFailure;
    } catch (const Failure& failure) {
        description = std::string("no GPU: ") + failure.what();
    }
}

void getDeviceStrings(std::vector<std::string>& descriptions) {
    descriptions.clear();
    for (const Device& device : allDevices().devices) {
        const std::string reason = objectionTo(device);
        descriptions.push_back(textOf(device) + (reason.empty() ? "" : ", not usable: " + reason));
    }
    if (allDevices().driverFails) {
        descriptions.push_back("unknown GPU, not usable: " + allDevices().reason);
    }
}

void setProcessingEnabled(bool enabled) {
    mayProcess = enabled;
}

}  // namespace marlo::cuda

std::uint64_t mlcMaximumKeypointsLDAH(std::uint64_t rows, std::uint64_t cols) {
    if (!canCount(rows, cols)) return 0;
    return static_cast<std::uint64_t>(
        mostKeypoints(static_cast<long long>(rows), static_cast<long long>(cols)));
}

int mlcDetectLdah(const float* data, std::uint64_t rows, std::uint64_t cols,
                  marlo::Keypoint* keypoints, std::uint64_t* count) {
    return statusOf([&] {
        const Size size = sizeOf(rows, cols);
        if (!size.empty()) detect(data, size, keypoints, count);
    });
}

int mlcGradient(const float* src, std::uint64_t rows, std::uint64_t cols, float* magnitude,
                float* orientation) {
    return statusOf([&] {
        const Size size = sizeOf(rows, cols);
        if (!size.empty()) gradient(src, size, magnitude, orientation);
    });
}

int mlcGaussianFilter(float* data, std::uint64_t rows, std::uint64_t cols, double sigma) {
    return statusOf([&] {
        require(sigma >= 0.0 && sigma <= std::numeric_limits<double>::max(),
                "the sigma of a blur must be finite and not negative");
        const Size size = sizeOf(rows, cols);
        if (!size.empty() && sigma > 0.0) gaussianFilter(data, size, sigma);
    });
}

int mlcGradientPyramid(const float* image, std::uint64_t rows, std::uint64_t cols,
                       float** magnitudes, float** orientations, int lastOctave,
                       double initialSigma, int levelsPerOctave) {
    return statusOf([&] {
        require(lastOctave == kOctaves - 1 && initialSigma == 1.6 &&
                    levelsPerOctave == kEntriesOfOctave,
                "the gradient pyramid has three octaves of four levels from sigma 1.6 on");
        const Size size = sizeOf(rows, cols);
        if (!size.empty()) gradientPyramid(image, size, magnitudes, orientations);
    });
}

int mlcHammingDistance(const void* queryData, int queryRows, const void* trainData, int trainRows,
                       unsigned int* bestIndex, unsigned int* bestDistance,
                       unsigned int* secondDistance, std::size_t rowBytes) {
    return statusOf([&] {
        require(queryRows >= 0 && trainRows > 0, "there are no rows to compare with");
        if (queryRows == 0) return;
        hammingDistance(queryData, queryRows, trainData, trainRows, bestIndex, bestDistance,
                        secondDistance, rowBytes);
    });
}
