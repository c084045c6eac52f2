// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libmarlocuda/detail/function.h"

#if !defined(__CUDA_ARCH__)
#include "libmarlocuda/detail/cpu_order.h"
#endif

/// How kernels are written, so that the same source runs on a GPU and, for tests, on the CPU.
///
/// A kernel is an object: its members are its parameters, `kThreads` is the number of threads of a
/// block, `Shared` the memory that they share, and its call operator what one block does:
///
///     struct Reverse {
///         static constexpr int kThreads = 128;
///         struct Shared { float values[kThreads]; };
///         MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& shared) const {
///             float* const mine = data + block.index * kThreads;
///             block.forEachThread([&](int t) { shared.values[t] = mine[t]; });
///             block.forEachThread([&](int t) { mine[t] = shared.values[kThreads - 1 - t]; });
///         }
///         float* data;
///     };
///
/// Every thread of a GPU's block runs the call operator; forEachThread() gives each its number and
/// ends with a barrier. On the CPU one thread does everything, and forEachThread() is a loop. So
/// outside of forEachThread() all threads must take the same way, and within one forEachThread()
/// no thread may read what another writes. Tests find breaches of the latter: they let the loop run
/// in several orders.
namespace marlo::gpu {

template <int Threads>
struct Block {
    int index = 0;  ///< of this block
    int count = 1;  ///< of all blocks

    template <typename Work>
    MARLO_GPU_FUNCTION void forEachThread(Work&& work) const {
#if defined(__CUDA_ARCH__)
        work(static_cast<int>(threadIdx.x));
        __syncthreads();
#else
        for (int i = 0; i < Threads; ++i) work(CpuOrder::place(i, Threads));
#endif
    }
};

/// A variable of each thread that lasts from one forEachThread() to the next.
template <typename Value, int Threads>
class PerThread {
public:
#if defined(__CUDA_ARCH__)
    MARLO_GPU_FUNCTION Value& operator[](int /*thread*/) {
        return value_;
    }

private:
    Value value_;
#else
    MARLO_GPU_FUNCTION Value& operator[](int thread) {
        return values_[thread];
    }

private:
    Value values_[Threads];
#endif
};

/// Blocks of a kernel that loops over its items, where `wanted` would leave nothing to loop over:
/// as many as keep any GPU busy, and on the CPU as few as a test wants.
inline long long blocksOfLoop(long long wanted) {
#if defined(__CUDACC__)
    constexpr long long most = 4096;
#else
    const long long most = CpuOrder::mostBlocks;
#endif
    return wanted < most ? wanted : most;
}

/// The same for a kernel that has a thread for each item.
template <typename Kernel>
long long blocksFor(long long items) {
    return blocksOfLoop((items + Kernel::kThreads - 1) / Kernel::kThreads);
}

/// For kernels whose threads share nothing.
struct NothingShared {};

/// Lowers, or sets bits of, what other threads, of any block, may change at the same time.
MARLO_GPU_FUNCTION inline void atomicLower(unsigned* at, unsigned value) {
#if defined(__CUDA_ARCH__)
    atomicMin(at, value);
#else
    if (value < *at) *at = value;
#endif
}
MARLO_GPU_FUNCTION inline void atomicSetBits(unsigned* at, unsigned bits) {
#if defined(__CUDA_ARCH__)
    atomicOr(at, bits);
#else
    *at |= bits;
#endif
}

}  // namespace marlo::gpu
