// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <span>

/// Kernels come in tables: the same body compiled for several instruction sets, fastest first. The
/// last entry runs everywhere. The entries of a table give the same bits.
namespace marlo::detail {

template <typename Function>
struct Kernel {
    const char* name;
    bool (*isSupported)();
    Function* run;
};

template <typename Function>
using KernelList = std::span<const Kernel<Function>>;

/// The fastest entry that this processor can run.
template <typename Function>
const Kernel<Function>& fastestEntry(KernelList<Function> kernels) {
    for (const Kernel<Function>& kernel : kernels) {
        if (kernel.isSupported()) return kernel;
    }
    return kernels.back();
}

/// The kernel of that entry.
template <typename Function>
Function* fastest(KernelList<Function> kernels) {
    return fastestEntry(kernels).run;
}

inline bool runsEverywhere() {
    return true;
}

#if defined(__x86_64__)
inline bool hasAvx2() {
    return __builtin_cpu_supports("avx2") != 0;
}
inline bool hasAvx512() {
    return __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0;
}
#endif

}  // namespace marlo::detail
