// SPDX-License-Identifier: BSD-3-Clause
#include "support/detail/sift_distance_kernels.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "utilities/kernel_parameters.h"

namespace marlo::detail {
namespace {

class SiftDistanceKernelTest : public test::KernelTest<SiftDistanceFunction> {};

TEST_P(SiftDistanceKernelTest, AgreesWithThePortableKernelToTheBit) {
    std::mt19937 random(3);
    std::normal_distribution<float> value(0.0F, 1.0F);
    for (std::size_t count = 0; count < 200; ++count) {
        std::vector<float> a(count);
        std::vector<float> b(count);
        for (float& x : a) x = value(random);
        for (float& x : b) x = value(random);
        const auto columns = static_cast<std::ptrdiff_t>(count);
        const float expected = siftDistanceKernels().back().run(a.data(), b.data(), columns);
        const float distance = GetParam().run(a.data(), b.data(), columns);
        EXPECT_EQ(std::bit_cast<std::uint32_t>(distance), std::bit_cast<std::uint32_t>(expected))
            << count;
    }
}

TEST_P(SiftDistanceKernelTest, ReadsFloatsAtAnyAddress) {
    constexpr std::ptrdiff_t kCount = 19;
    std::vector<float> a(kCount, 1.5F);
    a[18] = -2.5F;
    std::vector<unsigned char> bytes(sizeof(float) * kCount + 1);
    std::memcpy(bytes.data() + 1, a.data(), sizeof(float) * kCount);
    const auto* const odd = reinterpret_cast<const float*>(bytes.data() + 1);
    const std::vector<float> zeros(kCount, 0.0F);
    EXPECT_EQ(GetParam().run(odd, zeros.data(), kCount),
              GetParam().run(a.data(), zeros.data(), kCount));
    EXPECT_EQ(GetParam().run(odd, a.data(), kCount), 0.0F);
}

INSTANTIATE_TEST_SUITE_P(EveryKernelOfThisBuild, SiftDistanceKernelTest,
                         test::everyKernel(siftDistanceKernels()), test::KernelName());

}  // namespace
}  // namespace marlo::detail
