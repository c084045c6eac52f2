// SPDX-License-Identifier: BSD-3-Clause
#include "utilities/machine.h"

#include <omp.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <vector>

#include "utilities/timing.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace marlo::bench {
namespace {

constexpr int kRepeats = 3;

// Hides a value from the compiler, which can then neither foresee nor drop it.
template <typename T>
[[gnu::always_inline]] inline void hide(T& value) {
    asm volatile("" : "+m"(value) : : "memory");
}

// Runs `work(thread)` on `threads` threads at once.
template <typename Work>
double leastSecondsOnThreads(int threads, Work&& work) {
    return leastSecondsOf(kRepeats, [&] {
#pragma omp parallel num_threads(threads)
        work(omp_get_thread_num());
    });
}

// ---- memory ----------------------------------------------------------------------------------

constexpr std::size_t kCopyBytes = std::size_t{96} << 20;  // well above the last cache

void plainCopy(const char* from, char* to, std::size_t bytes) {
    std::memcpy(to, from, bytes);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void streamingCopy(const char* from, char* to, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; i += 128) {
        for (std::size_t k = 0; k < 128; k += 32) {
            const __m256i block =
                _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + i + k));
            _mm256_stream_si256(reinterpret_cast<__m256i*>(to + i + k), block);
        }
    }
    _mm_sfence();
}
#endif

double copyRate(int threads, void (*copy)(const char*, char*, std::size_t)) {
    const std::size_t part = kCopyBytes / static_cast<std::size_t>(threads) / 128 * 128;
    std::vector<char> from(kCopyBytes + 128, 1);
    std::vector<char> to(kCopyBytes + 128, 2);
    // Streaming stores need their alignment.
    char* const start = to.data() + (128 - reinterpret_cast<std::uintptr_t>(to.data()) % 128);
    const double seconds = leastSecondsOnThreads(threads, [&](int thread) {
        const std::size_t first = part * static_cast<std::size_t>(thread);
        copy(from.data() + first, start + first, part);
    });
    hide(*start);
    return 2.0 * static_cast<double>(part) * threads / seconds;
}

// ---- arithmetic ------------------------------------------------------------------------------

constexpr int kSteps = 4'000'000;
constexpr int kChains = 12;  // independent chains, enough to cover every latency in use today

// Each runs kSteps steps of kChains vector instructions on registers.
struct ArithmeticKernel {
    const char* name;
    bool (*isSupported)();
    void (*run)();
    int operationsPerStep;
};

using Vector4 [[gnu::vector_size(16)]] = float;

void pairsPortable() {
    Vector4 chains[kChains] = {};
    hide(chains);
    const Vector4 factor = Vector4{} + 0.999F;
    const Vector4 term = Vector4{} + 0.001F;
    for (int i = 0; i < kSteps; ++i) {
#pragma GCC unroll 12
        for (int k = 0; k < kChains; k += 2) {
            chains[k] = chains[k] * factor;
            chains[k + 1] = chains[k + 1] + term;
        }
    }
    hide(chains);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] void pairsAvx2() {
    __m256 chains[kChains] = {};
    hide(chains);
    const __m256 factor = _mm256_set1_ps(0.999F);
    const __m256 term = _mm256_set1_ps(0.001F);
    for (int i = 0; i < kSteps; ++i) {
#pragma GCC unroll 12
        for (int k = 0; k < kChains; k += 2) {
            chains[k] = _mm256_mul_ps(chains[k], factor);
            chains[k + 1] = _mm256_add_ps(chains[k + 1], term);
        }
    }
    hide(chains);
}

[[gnu::target("avx2,fma")]] void fusedAvx2() {
    __m256 chains[kChains] = {};
    hide(chains);
    const __m256 factor = _mm256_set1_ps(0.999F);
    const __m256 term = _mm256_set1_ps(0.001F);
    for (int i = 0; i < kSteps; ++i) {
#pragma GCC unroll 12
        for (__m256& chain : chains) chain = _mm256_fmadd_ps(chain, factor, term);
    }
    hide(chains);
}

[[gnu::target("avx512f")]] void fusedAvx512() {
    __m512 chains[kChains] = {};
    hide(chains);
    const __m512 factor = _mm512_set1_ps(0.999F);
    const __m512 term = _mm512_set1_ps(0.001F);
    for (int i = 0; i < kSteps; ++i) {
#pragma GCC unroll 12
        for (__m512& chain : chains) chain = _mm512_fmadd_ps(chain, factor, term);
    }
    hide(chains);
}
#endif

constexpr ArithmeticKernel kArithmeticKernels[] = {
#if defined(__x86_64__)
    {"AVX-512 fused", [] { return __builtin_cpu_supports("avx512f") != 0; }, fusedAvx512,
     kChains * 16 * 2},
    {"AVX2 fused",
     [] { return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0; },
     fusedAvx2, kChains * 8 * 2},
    {"AVX2 separate", [] { return __builtin_cpu_supports("avx2") != 0; }, pairsAvx2, kChains * 8},
#endif
    {"4 lanes separate", [] { return true; }, pairsPortable, kChains * 4},
};

double clockRate() {
    constexpr std::int64_t kAdditions = 50'000'000;
    const double seconds = leastSecondsOf(kRepeats, [] {
        std::int64_t sum = 0;
        for (std::int64_t i = 0; i < kAdditions; i += 20) {
#pragma GCC unroll 20
            // One tick each: every addition waits for the one before.
            for (int k = 0; k < 20; ++k) {
                sum += i;
                asm volatile("" : "+r"(sum));
            }
        }
        hide(sum);
    });
    return static_cast<double>(kAdditions) / seconds;
}

void mergeRates(std::vector<NamedRate>& rates, const std::vector<NamedRate>& others) {
    for (std::size_t i = 0; i < rates.size(); ++i) {
        rates[i].perSecond = std::max(rates[i].perSecond, others[i].perSecond);
    }
}

double largest(const std::vector<NamedRate>& rates) {
    double most = 0.0;
    for (const NamedRate& rate : rates) most = std::max(most, rate.perSecond);
    return most;
}

}  // namespace

std::string processorName() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
        const std::size_t colon = line.find(": ");
        if (line.starts_with("model name") && colon != std::string::npos) {
            return line.substr(colon + 2);
        }
    }
    return "unknown processor";
}

std::string compilerName() {
#if defined(__clang__)
    return "clang " __clang_version__;
#else
    return "gcc " __VERSION__;
#endif
}

std::string compilerFlags() {
    return FEATURES_BENCH_FLAGS;
}

void MachineLimits::merge(const MachineLimits& other) {
    mergeRates(copies, other.copies);
    mergeRates(arithmetic, other.arithmetic);
    cyclesPerSecond = std::max(cyclesPerSecond, other.cyclesPerSecond);
}

double MachineLimits::bytesPerSecond() const {
    return largest(copies);
}
double MachineLimits::flopsPerSecond() const {
    return largest(arithmetic);
}

MachineLimits measureMachineLimits(int threads) {
    MachineLimits limits;
    limits.threads = threads;
    limits.copies.push_back({"copy", copyRate(threads, plainCopy)});
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2") != 0) {
        limits.copies.push_back({"streaming copy", copyRate(threads, streamingCopy)});
    }
#endif
    for (const ArithmeticKernel& kernel : kArithmeticKernels) {
        if (!kernel.isSupported()) continue;
        const double seconds = leastSecondsOnThreads(threads, [&](int) { kernel.run(); });
        limits.arithmetic.push_back(
            {kernel.name, 1.0 * kernel.operationsPerStep * kSteps * threads / seconds});
    }
    limits.cyclesPerSecond = clockRate();
    return limits;
}

}  // namespace marlo::bench
