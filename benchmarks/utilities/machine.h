// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <vector>

namespace marlo::bench {

/// What every figure depends on and therefore comes with.
std::string processorName();
std::string compilerName();
/// The flags that the library and the benchmarks were compiled with.
std::string compilerFlags();

struct NamedRate {
    std::string name;
    double perSecond = 0.0;
};

/// What the machine can do at best, measured with `threads` threads: no program is faster.
struct MachineLimits {
    int threads = 1;
    /// Bytes a second, those read and those written both counted, from memory to memory: plain
    /// copies and copies that write past the caches.
    std::vector<NamedRate> copies;
    /// Single-precision multiplications and additions a second on registers: fused, and as pairs
    /// of separate instructions, for each instruction set that the processor has.
    std::vector<NamedRate> arithmetic;
    /// Clock ticks a second of one thread.
    double cyclesPerSecond = 0.0;

    /// Takes over what `other`, measured with as many threads, found to be faster.
    void merge(const MachineLimits& other);

    [[nodiscard]] double bytesPerSecond() const;
    [[nodiscard]] double flopsPerSecond() const;
    /// Single-precision elements that go through other vector instructions (subtract, compare,
    /// minimum) in a second: a fused multiply-add counts as two operations but is one instruction.
    [[nodiscard]] double elementsPerSecond() const { return flopsPerSecond() / 2.0; }
};

/// Takes about half a second. On a shared machine measure now and then, and merge.
MachineLimits measureMachineLimits(int threads);

}  // namespace marlo::bench
