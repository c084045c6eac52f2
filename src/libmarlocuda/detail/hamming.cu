// SPDX-License-Identifier: BSD-3-Clause
#include <string>

#include "libmarlocuda/detail/hamming.h"

namespace marlo::gpu {

// Keys of a query row's nearest train rows in one chunk.
struct TwoNearest {
    unsigned best;
    unsigned second;

    // Without branches, which threads would take at different times.
    MARLO_GPU_FUNCTION void add(unsigned key) {
        const unsigned worse = key < best ? best : key;
        best = key < best ? key : best;
        second = worse < second ? worse : second;
    }
};

namespace {

// A key: a distance and the train row that has it, counted from the beginning of its chunk, in one
// number. The smaller is the nearer and, of the equally near, the first. Distances are at most
// 1024.
constexpr int kIndexBits = 21;
constexpr int kMostRowsOfChunk = 1 << 20;
constexpr unsigned kNone = 0xffffffffU;

// Chunks of the train rows are searched by blocks of their own, so that there are blocks enough.
constexpr int kLeastRowsOfChunk = 1024;
constexpr int kWantedBlocks = 8192;

// Aligned to be read in as few pieces as a GPU can.
template <int Words>
struct alignas(Words >= 4 ? 16 : 8) Row {
    unsigned words[Words];
};

// Counting bits is the slowest instruction of all: three words are first added bit by bit, to sums
// and carries, which are two.
MARLO_GPU_FUNCTION inline unsigned bitCount(unsigned a, unsigned b, unsigned c) {
    return gpu::bitCount(a ^ b ^ c) + 2 * gpu::bitCount((a & b) | (a & c) | (b & c));
}

template <int Words>
MARLO_GPU_FUNCTION unsigned hammingDistance(const Row<Words>& a, const Row<Words>& b) {
    unsigned distance = 0;
    int i = 0;
    for (; i + 3 <= Words; i += 3) {
        distance += bitCount(a.words[i] ^ b.words[i], a.words[i + 1] ^ b.words[i + 1],
                             a.words[i + 2] ^ b.words[i + 2]);
    }
    for (; i < Words; ++i) distance += gpu::bitCount(a.words[i] ^ b.words[i]);
    return distance;
}

// A block: some query rows against one chunk of the train rows.
template <int Words>
struct SearchKernel {
    static constexpr int kThreads = 128;
    // Query rows of a thread: each train row is read once for all of them.
    static constexpr int kQueries = Words <= 4 ? 4 : Words <= 8 ? 2 : 1;
    static constexpr int kQueriesOfBlock = kThreads * kQueries;
    static constexpr int kTileRows = 2048 / Words;
    struct Shared {
        Row<Words> train[kTileRows];
    };
    struct Queries {
        Row<Words> rows[kQueries];
        TwoNearest nearest[kQueries];
    };

    MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& shared) const {
        const int chunk = block.index / queryBlocks;
        const int firstQuery = block.index % queryBlocks * kQueriesOfBlock;
        const int begin = chunk * rowsOfChunk;
        // Counted from `begin`: train rows may be as many as an int can count.
        const int chunkRows = trainRows - begin < rowsOfChunk ? trainRows - begin : rowsOfChunk;
        PerThread<Queries, kThreads> perThread;
        block.forEachThread([&](int t) {
            Queries& queries = perThread[t];
            for (int k = 0; k < kQueries; ++k) {
                const int row = firstQuery + k * kThreads + t;
                queries.rows[k] = query[row < queryRows ? row : queryRows - 1];
                queries.nearest[k] = {kNone, kNone};
            }
        });
        for (int first = 0; first < chunkRows; first += kTileRows) {
            const int rows = chunkRows - first < kTileRows ? chunkRows - first : kTileRows;
            block.forEachThread([&](int t) {
                for (int i = t; i < rows; i += kThreads) shared.train[i] = train[begin + first + i];
            });
            block.forEachThread([&](int t) {
                Queries& queries = perThread[t];
                for (int i = 0; i < rows; ++i) {
                    const Row<Words> row = shared.train[i];
                    const auto place = static_cast<unsigned>(first + i);
                    for (int k = 0; k < kQueries; ++k) {
                        const unsigned distance = hammingDistance(queries.rows[k], row);
                        queries.nearest[k].add((distance << kIndexBits) + place);
                    }
                }
            });
        }
        block.forEachThread([&](int t) {
            for (int k = 0; k < kQueries; ++k) {
                const int row = firstQuery + k * kThreads + t;
                if (row >= queryRows) continue;
                found[static_cast<long long>(chunk) * queryRows + row] = perThread[t].nearest[k];
            }
        });
    }

    const Row<Words>* query;
    const Row<Words>* train;
    int queryRows;
    int trainRows;
    int queryBlocks;
    int rowsOfChunk;
    TwoNearest* found;
};

// The two nearest of all chunks from those of each.
struct MergeKernel {
    static constexpr int kThreads = 128;
    using Shared = NothingShared;

    MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& /*shared*/) const {
        block.forEachThread([&](int t) {
            const long long row = static_cast<long long>(block.index) * kThreads + t;
            if (row >= queryRows) return;
            unsigned index = 0;
            unsigned best = kNone;
            unsigned second = kNone;
            for (int chunk = 0; chunk < chunks; ++chunk) {
                const TwoNearest nearest = found[static_cast<long long>(chunk) * queryRows + row];
                const unsigned distance = nearest.best >> kIndexBits;
                const unsigned next =
                    nearest.second == kNone ? kNone : nearest.second >> kIndexBits;
                if (distance < best) {
                    second = best < next ? best : next;
                    best = distance;
                    index = static_cast<unsigned>(chunk) * static_cast<unsigned>(rowsOfChunk) +
                            (nearest.best & ((1U << kIndexBits) - 1U));
                } else {
                    second = distance < second ? distance : second;
                }
            }
            bestIndex[row] = index;
            bestDistance[row] = best;
            secondDistance[row] = second;
        });
    }

    const TwoNearest* found;
    int queryRows;
    int chunks;
    int rowsOfChunk;
    unsigned* bestIndex;
    unsigned* bestDistance;
    unsigned* secondDistance;
};

constexpr int dividedUp(int a, int b) {
    return (a - 1) / b + 1;
}

// Calls use.operator()<Words>() for the width of a row.
template <typename Use>
void withWords(int words, Use&& use) {
    switch (words) {
        case 2:
            return use.template operator()<2>();
        case 4:
            return use.template operator()<4>();
        case 8:
            return use.template operator()<8>();
        case 16:
            return use.template operator()<16>();
        case 32:
            return use.template operator()<32>();
    }
}

}  // namespace

HammingSearch::HammingSearch(MemoryPlan& plan, int queryRows, int trainRows, std::size_t rowBytes)
    : queryRows_(queryRows),
      trainRows_(trainRows),
      words_(static_cast<int>(rowBytes / sizeof(unsigned))) {
    if (rowBytes < 8 || rowBytes > 128 || (rowBytes & (rowBytes - 1)) != 0) {
        throw Failure(InvalidArgument,
                      "the GPU compares binary rows of 8, 16, 32, 64 or 128 bytes, not of " +
                          std::to_string(rowBytes));
    }
    int queriesOfBlock = 0;
    withWords(words_, [&]<int Words>() { queriesOfBlock = SearchKernel<Words>::kQueriesOfBlock; });
    const int queryBlocks = dividedUp(queryRows, queriesOfBlock);
    rowsOfChunk_ = dividedUp(trainRows, dividedUp(kWantedBlocks, queryBlocks));
    if (rowsOfChunk_ < kLeastRowsOfChunk) rowsOfChunk_ = kLeastRowsOfChunk;
    if (rowsOfChunk_ > kMostRowsOfChunk) rowsOfChunk_ = kMostRowsOfChunk;
    chunks_ = dividedUp(trainRows, rowsOfChunk_);
    query_ = plan.take<unsigned>(static_cast<long long>(queryRows) * words_);
    train_ = plan.take<unsigned>(static_cast<long long>(trainRows) * words_);
    found_ = plan.take<TwoNearest>(static_cast<long long>(chunks_) * queryRows);
    bestIndex_ = plan.take<unsigned>(queryRows);
    bestDistance_ = plan.take<unsigned>(queryRows);
    secondDistance_ = plan.take<unsigned>(queryRows);
}

void HammingSearch::run(Stream& stream) {
    withWords(words_, [&]<int Words>() {
        using Kernel = SearchKernel<Words>;
        const int queryBlocks = dividedUp(queryRows_, Kernel::kQueriesOfBlock);
        stream.launch(static_cast<long long>(queryBlocks) * chunks_,
                      Kernel{reinterpret_cast<const Row<Words>*>(query_),
                             reinterpret_cast<const Row<Words>*>(train_), queryRows_, trainRows_,
                             queryBlocks, rowsOfChunk_, found_});
    });
    stream.launch(dividedUp(queryRows_, MergeKernel::kThreads),
                  MergeKernel{found_, queryRows_, chunks_, rowsOfChunk_, bestIndex_, bestDistance_,
                              secondDistance_});
}

}  // namespace marlo::gpu
