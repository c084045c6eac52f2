// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libmarlocuda/detail/stream.h"

/// Gives each of many items its place in a list, in order, where item i wants `counts(i)` places:
/// totals of blocks of items, their running sums, and then places within the blocks.
/// G. Blelloch, Prefix Sums and Their Applications, 1990; within a block by doubling reaches
/// (W. D. Hillis and G. Steele, Data Parallel Algorithms, CACM 29(12), 1986).
namespace marlo::gpu {

constexpr int kScanThreads = 256;
constexpr int kItemsOfThread = 8;
constexpr int kItemsOfBlock = kScanThreads * kItemsOfThread;

struct ScanShared {
    unsigned sums[2][kScanThreads];
};

/// Calls use(thread, sum of the values of the threads before it, sum of all threads' values), with
/// values(thread) for each thread of a block.
template <typename Values, typename Use>
MARLO_GPU_FUNCTION void withSumsBefore(const Block<kScanThreads>& block, ScanShared& shared,
                                       Values&& values, Use&& use) {
    block.forEachThread([&](int t) { shared.sums[0][t] = values(t); });
    int from = 0;
    for (int reach = 1; reach < kScanThreads; reach *= 2) {
        block.forEachThread([&](int t) {
            const unsigned before = t >= reach ? shared.sums[from][t - reach] : 0U;
            shared.sums[1 - from][t] = shared.sums[from][t] + before;
        });
        from = 1 - from;
    }
    block.forEachThread([&](int t) {
        use(t, t == 0 ? 0U : shared.sums[from][t - 1], shared.sums[from][kScanThreads - 1]);
    });
}

/// The sum of the items of thread `t` in a piece of kItemsOfBlock items.
template <typename Counts>
MARLO_GPU_FUNCTION unsigned sumOfThread(const Counts& counts, long long piece, int t) {
    const long long size = counts.size();
    const long long first = piece * kItemsOfBlock + t * kItemsOfThread;
    unsigned sum = 0;
    for (long long i = first; i < first + kItemsOfThread && i < size; ++i) sum += counts(i);
    return sum;
}

/// Pieces of kItemsOfBlock items.
MARLO_GPU_FUNCTION constexpr long long scanPieces(long long items) {
    return (items + kItemsOfBlock - 1) / kItemsOfBlock;
}

/// The total of each piece. `Counts` is a function object: counts(i) for 0 <= i < counts.size().
template <typename Counts>
struct TotalsKernel {
    static constexpr int kThreads = kScanThreads;
    using Shared = ScanShared;

    MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& shared) const {
        const long long pieces = scanPieces(counts.size());
        for (long long piece = block.index; piece < pieces; piece += block.count) {
            withSumsBefore(
                block, shared, [&](int t) { return sumOfThread(counts, piece, t); },
                [&](int t, unsigned, unsigned total) {
                    if (t == 0) totals[piece] = total;
                });
        }
    }

    Counts counts;
    unsigned* totals;
};

/// One block. Replaces the totals by their running sums, which begin with `*start` (0 if null), and
/// gives `*end` the last.
template <typename Counts>
struct RunningSumsKernel {
    static constexpr int kThreads = kScanThreads;
    using Shared = ScanShared;

    MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& shared) const {
        const long long pieces = scanPieces(counts.size());
        PerThread<unsigned, kThreads> sums;  // what comes before this round: the same for all
        block.forEachThread([&](int t) { sums[t] = start == nullptr ? 0U : *start; });
        for (long long first = 0; first < pieces; first += kThreads) {
            withSumsBefore(
                block, shared, [&](int t) { return first + t < pieces ? totals[first + t] : 0U; },
                [&](int t, unsigned before, unsigned total) {
                    if (first + t < pieces) totals[first + t] = sums[t] + before;
                    sums[t] += total;
                });
        }
        block.forEachThread([&](int t) {
            if (t == 0) *end = sums[t];
        });
    }

    Counts counts;
    unsigned* totals;
    const unsigned* start;
    unsigned* end;
};

/// Calls emit(i, place) for each item.
template <typename Counts, typename Emit>
struct EmitKernel {
    static constexpr int kThreads = kScanThreads;
    using Shared = ScanShared;

    MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& shared) const {
        const long long size = counts.size();
        const long long pieces = scanPieces(size);
        for (long long piece = block.index; piece < pieces; piece += block.count) {
            withSumsBefore(
                block, shared, [&](int t) { return sumOfThread(counts, piece, t); },
                [&](int t, unsigned before, unsigned) {
                    unsigned place = sums[piece] + before;
                    const long long first = piece * kItemsOfBlock + t * kItemsOfThread;
                    for (long long i = first; i < first + kItemsOfThread && i < size; ++i) {
                        emit(i, place);
                        place += counts(i);
                    }
                });
        }
    }

    Counts counts;
    Emit emit;
    const unsigned* sums;
};

/// Emits every item at its place, the first at `*start` (0 if null); `*end` gets the place behind
/// the last. Both are the GPU's memory. `mostItems` bounds counts.size(), which only the GPU may
/// know, and `totals` has scanPieces(mostItems) entries.
template <typename Counts, typename Emit>
void emitInOrder(Stream& stream, const Counts& counts, const Emit& emit, long long mostItems,
                 unsigned* totals, const unsigned* start, unsigned* end) {
    const long long blocks = blocksOfLoop(scanPieces(mostItems));
    stream.launch(blocks, TotalsKernel<Counts>{counts, totals});
    stream.launch(1, RunningSumsKernel<Counts>{counts, totals, start, end});
    stream.launch(blocks, EmitKernel<Counts, Emit>{counts, emit, totals});
}

}  // namespace marlo::gpu
