// SPDX-License-Identifier: BSD-3-Clause
#include "support/detail/cpu_limits.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace marlo::system::detail {
namespace {

namespace fs = std::filesystem;

class CgroupCpuLimitTest : public testing::Test {
protected:
    CgroupCpuLimitTest() { fs::create_directories(mount()); }
    ~CgroupCpuLimitTest() override { fs::remove_all(root_); }

    [[nodiscard]] fs::path mount() const { return root_ / "cgroup"; }

    void write(const fs::path& file, const std::string& text) const {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << text;
    }
    void belongsTo(const std::string& lines) const { write(root_ / "self", lines); }
    void allow(const fs::path& group, const std::string& text) const {
        write(mount() / group / "cpu.max", text);
    }
    [[nodiscard]] int limit() const { return cgroupCpuLimit(root_ / "self", mount()); }

private:
    fs::path root_ =
        fs::temp_directory_path() / ("cpu_limits_test." + std::to_string(getpid()) + "." +
                                     testing::UnitTest::GetInstance()->current_test_info()->name());
};

TEST_F(CgroupCpuLimitTest, NothingToReadIsNoLimit) {
    EXPECT_EQ(limit(), kNoCpuLimit);
}

TEST_F(CgroupCpuLimitTest, MaxIsNoLimit) {
    belongsTo("0::/job\n");
    allow("job", "max 100000\n");
    EXPECT_EQ(limit(), kNoCpuLimit);
}

TEST_F(CgroupCpuLimitTest, WholeProcessorsAreTakenAsTheyAre) {
    belongsTo("0::/job\n");
    allow("job", "300000 100000\n");
    EXPECT_EQ(limit(), 3);
}

TEST_F(CgroupCpuLimitTest, PartOfAProcessorCountsAsOne) {
    belongsTo("0::/job\n");
    allow("job", "250000 100000\n");
    EXPECT_EQ(limit(), 3);
    allow("job", "1000 100000\n");
    EXPECT_EQ(limit(), 1);
}

TEST_F(CgroupCpuLimitTest, TightestAncestorDecides) {
    belongsTo("0::/machine/job/step\n");
    allow("machine", "400000 100000\n");
    allow("machine/job", "200000 100000\n");
    allow("machine/job/step", "800000 100000\n");
    EXPECT_EQ(limit(), 2);
}

TEST_F(CgroupCpuLimitTest, ContainerThatShowsOnlyItsOwnGroupIsUnderstood) {
    belongsTo("0::/outside/of/the/container\n");
    allow("", "200000 100000\n");
    EXPECT_EQ(limit(), 2);
}

TEST_F(CgroupCpuLimitTest, Version1QuotaIsRead) {
    belongsTo("7:memory:/job\n4:cpu,cpuacct:/job\n");
    write(mount() / "cpu,cpuacct/job/cpu.cfs_quota_us", "150000\n");
    write(mount() / "cpu,cpuacct/job/cpu.cfs_period_us", "100000\n");
    EXPECT_EQ(limit(), 2);
}

TEST_F(CgroupCpuLimitTest, Version1MountedUnderItsShortNameIsRead) {
    belongsTo("4:cpuacct,cpu:/job\n");
    write(mount() / "cpu/job/cpu.cfs_quota_us", "300000\n");
    write(mount() / "cpu/job/cpu.cfs_period_us", "100000\n");
    EXPECT_EQ(limit(), 3);
}

TEST_F(CgroupCpuLimitTest, Version1WithoutQuotaIsNoLimit) {
    belongsTo("4:cpuacct,cpu:/job\n");
    write(mount() / "cpu/job/cpu.cfs_quota_us", "-1\n");
    write(mount() / "cpu/job/cpu.cfs_period_us", "100000\n");
    EXPECT_EQ(limit(), kNoCpuLimit);
}

TEST_F(CgroupCpuLimitTest, HybridHierarchyIsUnderstood) {
    belongsTo("1:name=systemd:/job\n0::/job\n");
    allow("unified/job", "200000 100000\n");
    EXPECT_EQ(limit(), 2);
}

TEST_F(CgroupCpuLimitTest, CpusetIsNotTheCpuController) {
    belongsTo("9:cpuset:/job\n");
    write(mount() / "cpuset/job/cpu.cfs_quota_us", "100000\n");
    write(mount() / "cpuset/job/cpu.cfs_period_us", "100000\n");
    EXPECT_EQ(limit(), kNoCpuLimit);
}

TEST_F(CgroupCpuLimitTest, DamagedFilesAreNoLimit) {
    belongsTo("nonsense\n0:\n0::/job\n");
    allow("job", "many 100000\n");
    EXPECT_EQ(limit(), kNoCpuLimit);
    allow("job", "100000 0\n");
    EXPECT_EQ(limit(), kNoCpuLimit);
    allow("job", "");
    EXPECT_EQ(limit(), kNoCpuLimit);
}

TEST(AffinityCpuCountTest, FollowsTheMaskOfTheThread) {
    int count = 0;
    std::thread([&count] {
        cpu_set_t mask;
        ASSERT_EQ(sched_getaffinity(0, sizeof mask, &mask), 0);
        int first = 0;
        while (!CPU_ISSET(first, &mask)) ++first;
        CPU_ZERO(&mask);
        CPU_SET(first, &mask);
        ASSERT_EQ(sched_setaffinity(0, sizeof mask, &mask), 0);
        count = affinityCpuCount();
    }).join();
    EXPECT_EQ(count, 1);
}

}  // namespace
}  // namespace marlo::system::detail
