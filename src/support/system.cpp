// SPDX-License-Identifier: BSD-3-Clause
#include "support/system.h"

#include <algorithm>

#include "support/detail/cpu_limits.h"

namespace marlo::system {

popcnt_t hasPOPCNT() noexcept {
#if defined(__x86_64__)
    return __builtin_cpu_supports("popcnt") != 0 ? PopcntX86 : PopcntNone;
#elif defined(__aarch64__)
    return PopcntArm;
#else
    return PopcntNone;
#endif
}

int noLogicalCPUs() {
    // Read once: a matcher asks at every call, and small calls take less time than these files.
    static const int cgroupLimit = detail::cgroupCpuLimit("/proc/self/cgroup", "/sys/fs/cgroup");
    return std::min(detail::affinityCpuCount(), cgroupLimit);
}

}  // namespace marlo::system
