// SPDX-License-Identifier: BSD-3-Clause
#include "support/detail/cpu_limits.h"

#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <locale>
#include <sstream>
#include <string>
#include <thread>

namespace marlo::system::detail {
namespace {

namespace fs = std::filesystem;

std::ifstream openText(const fs::path& path) {
    std::ifstream file(path);
    file.imbue(std::locale::classic());
    return file;
}

int wholeCpus(std::int64_t quota, std::int64_t period) {
    if (quota <= 0 || period <= 0) {
        return kNoCpuLimit;
    }
    const std::int64_t cpus = quota / period + (quota % period != 0 ? 1 : 0);
    return static_cast<int>(std::min<std::int64_t>(cpus, kNoCpuLimit));
}

// Version 2: one file "QUOTA PERIOD" in microseconds, QUOTA being "max" where there is no limit.
int unifiedLimit(const fs::path& group) {
    std::int64_t quota = 0;
    std::int64_t period = 0;
    std::ifstream file = openText(group / "cpu.max");
    return file >> quota >> period ? wholeCpus(quota, period) : kNoCpuLimit;
}

// Version 1: two files in microseconds, the quota being -1 where there is no limit.
int legacyLimit(const fs::path& group) {
    std::int64_t quota = 0;
    std::int64_t period = 0;
    std::ifstream quotaFile = openText(group / "cpu.cfs_quota_us");
    std::ifstream periodFile = openText(group / "cpu.cfs_period_us");
    return quotaFile >> quota && periodFile >> period ? wholeCpus(quota, period) : kNoCpuLimit;
}

// A group can use no more than each of its ancestors. Groups that the mount does not show (those
// outside a container) have no files here and count as unlimited.
template <typename LimitOfGroup>
int tightestLimit(const fs::path& hierarchy, const fs::path& group, LimitOfGroup limitOfGroup) {
    int tightest = limitOfGroup(hierarchy);
    fs::path directory = hierarchy;
    for (const fs::path& name : group.relative_path()) {
        directory /= name;
        tightest = std::min(tightest, limitOfGroup(directory));
    }
    return tightest;
}

bool listsCpu(const std::string& controllers) {
    std::istringstream list(controllers);
    for (std::string controller; std::getline(list, controller, ',');) {
        if (controller == "cpu") {
            return true;
        }
    }
    return false;
}

}  // namespace

int affinityCpuCount() {
    // The kernel refuses a set smaller than its own; grow until it fits.
    for (int cpus = CPU_SETSIZE; cpus <= (1 << 20); cpus *= 2) {
        cpu_set_t* const set = CPU_ALLOC(static_cast<std::size_t>(cpus));
        if (set == nullptr) {
            break;
        }
        const std::size_t bytes = CPU_ALLOC_SIZE(static_cast<std::size_t>(cpus));
        const bool known = sched_getaffinity(0, bytes, set) == 0;
        const bool tooSmall = !known && errno == EINVAL;
        const int count = known ? CPU_COUNT_S(bytes, set) : 0;
        CPU_FREE(set);
        if (count > 0) {
            return count;
        }
        if (!tooSmall) {
            break;
        }
    }
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

int cgroupCpuLimit(const fs::path& membership, const fs::path& mountPoint) {
    int tightest = kNoCpuLimit;
    std::ifstream file = openText(membership);
    // Lines are "ID:CONTROLLERS:PATH"; version 2 has ID 0 and no controllers.
    for (std::string line; std::getline(file, line);) {
        const std::size_t first = line.find(':');
        const std::size_t second = first == std::string::npos ? first : line.find(':', first + 1);
        if (second == std::string::npos) {
            continue;
        }
        const std::string controllers = line.substr(first + 1, second - first - 1);
        const fs::path group = line.substr(second + 1);
        if (controllers.empty()) {
            for (const fs::path& hierarchy : {mountPoint, mountPoint / "unified"}) {
                tightest = std::min(tightest, tightestLimit(hierarchy, group, unifiedLimit));
            }
        } else if (listsCpu(controllers)) {
            for (const fs::path& hierarchy : {mountPoint / controllers, mountPoint / "cpu"}) {
                tightest = std::min(tightest, tightestLimit(hierarchy, group, legacyLimit));
            }
        }
    }
    return tightest;
}

}  // namespace marlo::system::detail
