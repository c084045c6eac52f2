// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "libmarlocuda/detail/devices.h"

/// A GPU for tests that is no GPU: the kernels run in plain loops on the CPU, in ordinary memory,
/// where the sanitizers watch them. It has as much memory and fails when a test says so.
///
///     GpuOnCpu& gpu = GpuOnCpu::instance();
///     gpu.reset();               // one GPU with memory enough, nothing fails
///     gpu.failingOperation = 5;  // the sixth copy, fill or kernel from now on
///
/// Not for use from several threads.
namespace marlo::test {

class GpuOnCpu {
public:
    static GpuOnCpu& instance();

    /// Back to the state at program start. Memory that sessions hold stays counted.
    void reset();

    gpu::DeviceList list;
    int deviceOfThread = 0;
    std::size_t memory = 0;  ///< bytes that all allocations together may take
    /// The number of operations that succeed before one fails, and all after it; none fails if
    /// negative. A GPU that responds after the failure works again then.
    long long failingOperation = -1;
    bool respondsAfterFailure = true;
    /// Allocations fail although there is memory, as they do where it is in pieces.
    bool failsToAllocate = false;

    // What has been done since reset().
    long long operations = 0;  ///< copies, fills, kernels and waits
    int allocations = 0;
    int streams = 0;
    std::size_t used = 0;      ///< bytes allocated at this moment
    std::size_t mostUsed = 0;  ///< at any moment since reset()
    bool failed = false;

private:
    GpuOnCpu();
};

}  // namespace marlo::test
