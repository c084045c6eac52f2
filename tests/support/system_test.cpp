// SPDX-License-Identifier: BSD-3-Clause
#include "support/system.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include "support/detail/cpu_limits.h"

namespace marlo::system {
namespace {

TEST(PopcntTest, HasTheStatedCodes) {
    EXPECT_EQ(static_cast<int>(PopcntNone), 0);
    EXPECT_EQ(static_cast<int>(PopcntX86), 1);
    EXPECT_EQ(static_cast<int>(PopcntArm), 2);
}

#if defined(__x86_64__)
TEST(PopcntTest, AgreesWithTheProcessorFlagsOfTheKernel) {
    std::ifstream file("/proc/cpuinfo");
    const std::string info((std::istreambuf_iterator<char>(file)), {});
    ASSERT_NE(info.find("flags"), std::string::npos);
    const bool listed = info.find(" popcnt ") != std::string::npos;
    EXPECT_EQ(hasPOPCNT(), listed ? PopcntX86 : PopcntNone);
}
#elif defined(__aarch64__)
TEST(PopcntTest, IsThereOnEvery64BitArmProcessor) {
    EXPECT_EQ(hasPOPCNT(), PopcntArm);
}
#endif

TEST(LogicalCpusTest, AreTheSmallerOfAffinityMaskAndControlGroupLimit) {
    EXPECT_GE(noLogicalCPUs(), 1);
    EXPECT_EQ(noLogicalCPUs(),
              std::min(detail::affinityCpuCount(),
                       detail::cgroupCpuLimit("/proc/self/cgroup", "/sys/fs/cgroup")));
}

}  // namespace
}  // namespace marlo::system
