// SPDX-License-Identifier: BSD-3-Clause
#include <cstdint>
#include <cstring>
#include <limits>

#include "end_to_end/matching_systems.h"

#if defined(__x86_64__)
#define FEATURES_BENCH_TARGET_POPCNT [[gnu::target("popcnt")]]
#else
#define FEATURES_BENCH_TARGET_POPCNT
#endif

namespace marlo::bench {
namespace {

using Word = std::uint64_t;

struct TwoNearest {
    unsigned distance;
    unsigned secondDistance;
    int row;
};

// `queries` and `train` are rows of kWords words. Equal distances: the first row is the nearest.
template <int kWords, int kQueries>
FEATURES_BENCH_TARGET_POPCNT void twoNearest(const unsigned char* queries,
                                             const unsigned char* train, int trainRows,
                                             TwoNearest* results) {
    constexpr unsigned kNone = std::numeric_limits<unsigned>::max();
    Word query[kQueries][kWords];
    std::memcpy(query, queries, sizeof query);
    unsigned best[kQueries];
    unsigned second[kQueries];
    int row[kQueries];
    for (int q = 0; q < kQueries; ++q) {
        best[q] = kNone;
        second[q] = kNone;
        row[q] = -1;
    }
    for (int t = 0; t < trainRows; ++t, train += sizeof(Word) * kWords) {
        Word words[kWords];
        std::memcpy(words, train, sizeof words);
#pragma GCC unroll 4
        for (int q = 0; q < kQueries; ++q) {
            unsigned distance = 0;
            for (int w = 0; w < kWords; ++w) {
                distance += static_cast<unsigned>(__builtin_popcountll(query[q][w] ^ words[w]));
            }
            // Few rows get here: as a branch it costs nothing, as conditional moves a third.
            if (distance < second[q]) [[unlikely]] {
                if (distance < best[q]) {
                    second[q] = best[q];
                    best[q] = distance;
                    row[q] = t;
                } else {
                    second[q] = distance;
                }
            }
        }
    }
    for (int q = 0; q < kQueries; ++q) results[q] = {best[q], second[q], row[q]};
}

template <int kWords, int kQueries>
class BitCountLoop : public MatchingSystem {
public:
    BitCountLoop(const DescMat& query, const DescMat& train)
        : query_(query), train_(train), results_(static_cast<std::size_t>(query.rows)) {
        name = kQueries == 1 ? "bit-count loop" : "bit-count loop, 4 rows";
    }

    void run() override {
        const int whole = query_.rows / kQueries * kQueries;
#pragma omp parallel for schedule(dynamic, 16)
        for (int q = 0; q < whole; q += kQueries) search<kQueries>(q);
        for (int q = whole; q < query_.rows; ++q) search<1>(q);
    }

    [[nodiscard]] Neighbours neighbours() const override {
        constexpr float kInfinity = std::numeric_limits<float>::infinity();
        Neighbours found;
        for (const TwoNearest& result : results_) {
            found.nearest.push_back(result.row);
            found.distance.push_back(static_cast<float>(result.distance));
            found.secondDistance.push_back(
                train_.rows > 1 ? static_cast<float>(result.secondDistance) : kInfinity);
        }
        return found;
    }

private:
    template <int kCount>
    void search(int query) {
        const auto q = static_cast<std::size_t>(query);
        twoNearest<kWords, kCount>(query_.data + q * query_.step, train_.data, train_.rows,
                                   results_.data() + q);
    }

    const DescMat& query_;
    const DescMat& train_;
    std::vector<TwoNearest> results_;
};

template <int kWords>
std::unique_ptr<MatchingSystem> makeLoop(const DescMat& query, const DescMat& train,
                                         int queriesAtOnce) {
    if (queriesAtOnce == 1) return std::make_unique<BitCountLoop<kWords, 1>>(query, train);
    return std::make_unique<BitCountLoop<kWords, 4>>(query, train);
}

}  // namespace

std::unique_ptr<MatchingSystem> makeBitCountLoop(const DescMat& query, const DescMat& train,
                                                 int queriesAtOnce) {
    if (query.type() != DescMat::Byte) return nullptr;
    switch (query.cols) {
        case 8:
            return makeLoop<1>(query, train, queriesAtOnce);
        case 16:
            return makeLoop<2>(query, train, queriesAtOnce);
        case 32:
            return makeLoop<4>(query, train, queriesAtOnce);
        case 64:
            return makeLoop<8>(query, train, queriesAtOnce);
        case 128:
            return makeLoop<16>(query, train, queriesAtOnce);
        default:
            return nullptr;
    }
}

}  // namespace marlo::bench
