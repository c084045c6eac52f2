// SPDX-License-Identifier: BSD-3-Clause
#include "stand_in/marlocuda_stand_in.h"

#include <algorithm>
#include <mutex>

#include "libmarlocuda/marlocuda.h"

namespace marlo::test {
namespace {

// Entries of the pointer lists of mlcGradientPyramid(): 3 octaves of 4 levels.
constexpr std::size_t kPyramidImages = 12;

// Several controllers may ask at once.
std::mutex recording;

template <typename CallRecord>
StandIn& record(const CallRecord& call) {
    const std::lock_guard<std::mutex> alone(recording);
    StandIn::instance().allCalls.emplace_back(call);
    return StandIn::instance();
}

template <typename CallRecord>
int nextStatus(Script<CallRecord>& script) {
    const std::lock_guard<std::mutex> alone(recording);
    return script.nextStatus();
}

template <typename CallRecord>
int play(Script<CallRecord>& script, CallRecord call) {
    record(call);
    const int status = nextStatus(script);
    if (status == 0 && script.onSuccess) {
        script.onSuccess(call);
    }
    return status;
}

}  // namespace

StandIn& StandIn::instance() {
    static StandIn standIn;
    return standIn;
}

void StandIn::reset() {
    *this = StandIn();
}

}  // namespace marlo::test

using marlo::test::play;
using marlo::test::record;
using marlo::test::StandIn;

bool marlo::cuda::isFeatureAvailable() {
    return record(marlo::test::IsFeatureAvailableCall{}).featureAvailable;
}

bool marlo::cuda::gpusAvailableForProcessing() {
    return record(marlo::test::GpusAvailableCall{}).gpusAvailable;
}

void marlo::cuda::getDeviceStrings(std::vector<std::string>& descriptions) {
    descriptions = record(marlo::test::DeviceStringsCall{}).devices;
}

void marlo::cuda::setProcessingEnabled(bool enabled) {
    record(marlo::test::SetProcessingEnabledCall{enabled});
}

void marlo::cuda::getActiveDeviceString(std::string& description) {
    description = record(marlo::test::ActiveDeviceCall{}).activeDevice;
}

std::uint64_t mlcMaximumKeypointsLDAH(std::uint64_t rows, std::uint64_t cols) {
    return record(marlo::test::MaximumKeypointsCall{rows, cols}).maximumKeypoints;
}

int mlcDetectLdah(const float* data, std::uint64_t rows, std::uint64_t cols,
                  marlo::Keypoint* keypoints, std::uint64_t* count) {
    StandIn& gpu = StandIn::instance();
    const int status = play(gpu.detectLdah, {data, rows, cols, keypoints, *count});
    if (status == 0) {
        std::copy(gpu.keypoints.begin(), gpu.keypoints.end(), keypoints);
        *count = gpu.keypoints.size();
    }
    return status;
}

int mlcGradient(const float* src, std::uint64_t rows, std::uint64_t cols, float* magnitude,
                float* orientation) {
    return play(StandIn::instance().gradient, {src, rows, cols, magnitude, orientation});
}

int mlcGaussianFilter(float* data, std::uint64_t rows, std::uint64_t cols, double sigma) {
    return play(StandIn::instance().gaussianFilter, {data, rows, cols, sigma});
}

int mlcGradientPyramid(const float* image, std::uint64_t rows, std::uint64_t cols,
                       float** magnitudes, float** orientations, int lastOctave,
                       double initialSigma, int levelsPerOctave) {
    return play(StandIn::instance().gradientPyramid,
                {image,
                 rows,
                 cols,
                 {magnitudes, magnitudes + marlo::test::kPyramidImages},
                 {orientations, orientations + marlo::test::kPyramidImages},
                 lastOctave,
                 initialSigma,
                 levelsPerOctave});
}

int mlcHammingDistance(const void* queryData, int queryRows, const void* trainData, int trainRows,
                       unsigned int* bestIndex, unsigned int* bestDistance,
                       unsigned int* secondDistance, std::size_t rowBytes) {
    return play(StandIn::instance().hammingDistance,
                {queryData, queryRows, trainData, trainRows, bestIndex, bestDistance,
                 secondDistance, rowBytes});
}
