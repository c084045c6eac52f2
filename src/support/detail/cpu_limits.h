// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>
#include <limits>

namespace marlo::system::detail {

constexpr int kNoCpuLimit = std::numeric_limits<int>::max();

/// The number of processors in the calling thread's affinity mask, at least 1.
int affinityCpuCount();

/// The tightest processor-time limit of the control groups that a process belongs to, in whole
/// processors, rounded up; kNoCpuLimit where there is none or nothing can be read.
/// `membership` is the process's /proc/self/cgroup, `mountPoint` the directory where the
/// control-group file systems are mounted (/sys/fs/cgroup). Version 1, version 2 and their hybrid
/// are understood; a container that shows only its own part of the tree is too.
int cgroupCpuLimit(const std::filesystem::path& membership,
                   const std::filesystem::path& mountPoint);

}  // namespace marlo::system::detail
