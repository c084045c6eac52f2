// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/kernels_in_use.h"

#include <gtest/gtest.h>

#include <set>

#include "libfeatures/descriptors/detail/ldah_kernels.h"

namespace marlo {
namespace {

TEST(KernelsInUseTest, NameEachStepOnce) {
    std::set<std::string> steps;
    for (const KernelInUse& entry : kernelsInUse()) {
        EXPECT_TRUE(steps.insert(entry.step).second) << entry.step;
        EXPECT_FALSE(entry.kernel.empty()) << entry.step;
    }
    EXPECT_EQ(steps.size(), 10U);
}

TEST(KernelsInUseTest, AreTheFastestThatThisProcessorSupports) {
    std::string expected;
    for (const auto& kernel : detail::ldahKernels()) {
        if (expected.empty() && kernel.isSupported()) expected = kernel.name;
    }
    for (const KernelInUse& entry : kernelsInUse()) {
        if (entry.step == "LDAH codes") {
            EXPECT_EQ(entry.kernel, expected);
        }
    }
}

}  // namespace
}  // namespace marlo
