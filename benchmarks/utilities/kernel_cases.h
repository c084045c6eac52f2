// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <benchmark/benchmark.h>

#include <string>

#include "support/detail/kernel_list.h"

namespace marlo::bench {

/// Registers one case, "name/kernel", for each kernel of a table that this processor can run;
/// `run(state, kernel)` is the case. Call it from the initialiser of a constant.
template <typename Function, typename Run>
bool registerKernelCases(const std::string& name, detail::KernelList<Function> kernels, Run run) {
    for (const detail::Kernel<Function>& kernel : kernels) {
        if (!kernel.isSupported()) continue;
        const std::string caseName = name + '/' + kernel.name;
        benchmark::RegisterBenchmark(
            caseName.c_str(),
            [run, function = kernel.run](benchmark::State& state) { run(state, function); });
    }
    return true;
}

/// Reports `name`, of which every iteration has `count`, in millions a second.
inline void countMillions(benchmark::State& state, const char* name, double count) {
    state.counters[name] =
        benchmark::Counter(1e-6 * count, benchmark::Counter::kIsIterationInvariantRate);
}

}  // namespace marlo::bench
