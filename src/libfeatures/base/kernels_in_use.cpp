// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/kernels_in_use.h"

#include "libfeatures/base/detail/hamming_instance.h"
#include "libfeatures/base/detail/hamming_kernels.h"
#include "libfeatures/base/detail/screen_kernels.h"
#include "libfeatures/descriptors/detail/descriptor_kernels.h"
#include "libfeatures/descriptors/detail/ldah_kernels.h"
#include "libfeatures/detectors/detail/extremum_kernels.h"
#include "libfeatures/detectors/detail/orientation_kernels.h"
#include "support/detail/gauss_kernels.h"
#include "support/detail/gradient_kernels.h"
#include "support/detail/sift_distance_kernels.h"
#include "support/system.h"

namespace marlo {
namespace {

template <typename Function>
std::string nameOfFastest(detail::KernelList<Function> kernels) {
    return detail::fastestEntry(kernels).name;
}

std::string nameOfHammingKernel() {
    constexpr int kBytes = 16;
    std::string name;
    detail::withHammingInstance(system::hasPOPCNT(), kBytes, [&]<system::popcnt_t P, int N>() {
        name = nameOfFastest(detail::hammingKernels<P, N>());
    });
    return name;
}

}  // namespace

std::vector<KernelInUse> kernelsInUse() {
    return {{"blur", nameOfFastest(detail::blurKernels())},
            {"gradients", nameOfFastest(detail::gradientKernels())},
            {"differences", nameOfFastest(detail::differenceKernels())},
            {"extrema", nameOfFastest(detail::extremumKernels())},
            {"orientations", nameOfFastest(detail::orientationKernels())},
            {"descriptors", nameOfFastest(detail::descriptorKernels())},
            {"LDAH codes", nameOfFastest(detail::ldahKernels())},
            {"distances of 128 bits", nameOfHammingKernel()},
            {"distances of SIFT rows", nameOfFastest(detail::siftDistanceKernels())},
            {"bounds of such distances", nameOfFastest(detail::screenKernels())}};
}

}  // namespace marlo
