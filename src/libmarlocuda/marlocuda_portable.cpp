// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/marlocuda.h"

namespace {

constexpr int kNoUsableGpu = 1;  // as in the variant with CUDA where there is none

}  // namespace

namespace marlo::cuda {

bool isFeatureAvailable() {
    return false;
}

bool gpusAvailableForProcessing() {
    return false;
}

void getActiveDeviceString(std::string& description) {
    description = "no GPU: libmarlocuda was built without GPU support";
}

void getDeviceStrings(std::vector<std::string>& descriptions) {
    descriptions.clear();
}

void setProcessingEnabled(bool /*enabled*/) {}

}  // namespace marlo::cuda

std::uint64_t mlcMaximumKeypointsLDAH(std::uint64_t /*rows*/, std::uint64_t /*cols*/) {
    return 0;
}

int mlcDetectLdah(const float* /*data*/, std::uint64_t /*rows*/, std::uint64_t /*cols*/,
                  marlo::Keypoint* /*keypoints*/, std::uint64_t* /*count*/) {
    return kNoUsableGpu;
}

int mlcGradient(const float* /*src*/, std::uint64_t /*rows*/, std::uint64_t /*cols*/,
                float* /*magnitude*/, float* /*orientation*/) {
    return kNoUsableGpu;
}

int mlcGaussianFilter(float* /*data*/, std::uint64_t /*rows*/, std::uint64_t /*cols*/,
                      double /*sigma*/) {
    return kNoUsableGpu;
}

int mlcGradientPyramid(const float* /*image*/, std::uint64_t /*rows*/, std::uint64_t /*cols*/,
                       float** /*magnitudes*/, float** /*orientations*/, int /*lastOctave*/,
                       double /*initialSigma*/, int /*levelsPerOctave*/) {
    return kNoUsableGpu;
}

int mlcHammingDistance(const void* /*queryData*/, int /*queryRows*/, const void* /*trainData*/,
                       int /*trainRows*/, unsigned int* /*bestIndex*/,
                       unsigned int* /*bestDistance*/, unsigned int* /*secondDistance*/,
                       std::size_t /*rowBytes*/) {
    return kNoUsableGpu;
}
