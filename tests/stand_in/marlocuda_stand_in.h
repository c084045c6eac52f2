// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "libfeatures/base/keypoint.h"

/// A GPU library for tests: every entry point of marlocuda.h, doing what a test has written down.
///
///     StandIn& gpu = StandIn::instance();   // one for the process, as the library is
///     gpu.reset();                          // no GPU, every status 0, no results, no calls
///     gpu.featureAvailable = gpu.gpusAvailable = true;
///     gpu.detectLdah.statuses = {2, 0};     // first call fails, second succeeds, then as status
///     gpu.keypoints = {...};                // what a successful mlcDetectLdah() writes
///     ...
///     EXPECT_EQ(gpu.calls<DetectLdahCall>().size(), 2);
///
/// As the real library does, it writes nothing when it returns a non-zero status. Not for use from
/// several threads.
namespace marlo::test {

// One record per entry point: its arguments as they came. Pointers are only good for comparing and,
// while the call lasts, for reading.
struct IsFeatureAvailableCall {};
struct GpusAvailableCall {};
struct ActiveDeviceCall {};
struct DeviceStringsCall {};
struct SetProcessingEnabledCall {
    bool enabled;
};
struct MaximumKeypointsCall {
    std::uint64_t rows, cols;
};
struct DetectLdahCall {
    const float* data;
    std::uint64_t rows, cols;
    const Keypoint* keypoints;
    std::uint64_t countBefore;
};
struct GradientCall {
    const float* src;
    std::uint64_t rows, cols;
    float *magnitude, *orientation;
};
struct GaussianFilterCall {
    float* data;
    std::uint64_t rows, cols;
    double sigma;
};
struct GradientPyramidCall {
    const float* image;
    std::uint64_t rows, cols;
    std::vector<float*> magnitudes, orientations;  // 12 each
    int lastOctave;
    double initialSigma;
    int levelsPerOctave;
};
struct HammingDistanceCall {
    const void* queryData;
    int queryRows;
    const void* trainData;
    int trainRows;
    unsigned int *bestIndex, *bestDistance, *secondDistance;
    std::size_t rowBytes;
};

using Call =
    std::variant<IsFeatureAvailableCall, GpusAvailableCall, ActiveDeviceCall, DeviceStringsCall,
                 SetProcessingEnabledCall, MaximumKeypointsCall, DetectLdahCall, GradientCall,
                 GaussianFilterCall, GradientPyramidCall, HammingDistanceCall>;

/// What an entry point that returns a status does.
template <typename CallRecord>
struct Script {
    std::deque<int> statuses;  ///< returned by the next calls, one each
    int status = 0;            ///< returned when `statuses` is used up
    /// Runs at every call that returns 0, to write results. May be empty.
    std::function<void(const CallRecord&)> onSuccess;

    int nextStatus();
};

class StandIn {
public:
    static StandIn& instance();

    /// Back to the state at program start.
    void reset();

    // Availability.
    bool featureAvailable = false;
    bool gpusAvailable = false;
    std::string activeDevice = "stand-in GPU";
    std::vector<std::string> devices;  ///< what getDeviceStrings() gives

    // Results.
    std::uint64_t maximumKeypoints = 0;
    std::vector<Keypoint> keypoints;  ///< what mlcDetectLdah() writes

    // Statuses, and results that depend on the arguments.
    Script<DetectLdahCall> detectLdah;
    Script<GradientCall> gradient;
    Script<GaussianFilterCall> gaussianFilter;
    Script<GradientPyramidCall> gradientPyramid;
    Script<HammingDistanceCall> hammingDistance;

    /// Every call since the last reset, in order.
    std::vector<Call> allCalls;

    /// The calls of one entry point, in order.
    template <typename CallRecord>
    [[nodiscard]] std::vector<CallRecord> calls() const {
        std::vector<CallRecord> found;
        for (const Call& call : allCalls) {
            if (const auto* const record = std::get_if<CallRecord>(&call)) {
                found.push_back(*record);
            }
        }
        return found;
    }

private:
    StandIn() = default;
};

template <typename CallRecord>
int Script<CallRecord>::nextStatus() {
    if (statuses.empty()) {
        return status;
    }
    const int next = statuses.front();
    statuses.pop_front();
    return next;
}

}  // namespace marlo::test
