// SPDX-License-Identifier: BSD-3-Clause
// The main function of the kernel benchmarks: Google Benchmark's, with what figures depend on.
#include <benchmark/benchmark.h>

#include "utilities/machine.h"

int main(int argc, char** argv) {
    benchmark::AddCustomContext("processor", marlo::bench::processorName());
    benchmark::AddCustomContext("compiler", marlo::bench::compilerName());
    benchmark::AddCustomContext("flags", marlo::bench::compilerFlags());
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
