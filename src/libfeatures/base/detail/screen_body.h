// SPDX-License-Identifier: BSD-3-Clause
// Included once for each instruction set, inside a namespace of its own that offers:
//   Ints                    a vector of 32-bit integers
//   productSums(a, b)       of 16-bit integers two by two: a[2 i] b[2 i] + a[2 i + 1] b[2 i + 1]
//   bits(condition)         a bit for every lane

constexpr int kLanes = static_cast<int>(sizeof(Ints) / sizeof(std::int32_t));
constexpr int kVectors = 2;  // of train rows: with four queries they fill the registers
constexpr int kGroupRows = kVectors * kLanes;

inline int screen(const ScreenTile& tile, int firstGroup, ScreenCandidates& candidates) {
    static_assert(kScreenQueries == 4);
    const Ints term0 = vectorAt<Ints>(tile.trainTerms).value;
    const Ints term1 = vectorAt<Ints>(tile.trainTerms + kLanes).value;
    for (int group = firstGroup; group < tile.queryGroups; ++group) {
        const std::int16_t* train = tile.train;
        const std::int16_t* queries = tile.queries + 2 * kScreenQueries * tile.pairs * group;
        Ints x[kScreenQueries][kVectors];
        for (int q = 0; q < kScreenQueries; ++q) {
            x[q][0] = -term0;
            x[q][1] = -term1;
        }
        for (std::ptrdiff_t pair = 0; pair < tile.pairs; ++pair) {
            const Ints train0 = vectorAt<Ints>(train).value;
            const Ints train1 = vectorAt<Ints>(train + 2 * kLanes).value;
            for (int q = 0; q < kScreenQueries; ++q) {
                std::int32_t both;
                __builtin_memcpy(&both, queries + 2 * q, sizeof(both));
                const Ints query = Ints{} + both;
                x[q][0] += productSums(query, train0);
                x[q][1] += productSums(query, train1);
            }
            train += 2 * kGroupRows;
            queries += 2 * kScreenQueries;
        }
        const std::int32_t* const limits = tile.queryLimits + kScreenQueries * group;
        Ints are[kScreenQueries][kVectors];
        Ints any{};
        for (int q = 0; q < kScreenQueries; ++q) {
            for (int v = 0; v < kVectors; ++v) {
                are[q][v] = x[q][v] > Ints{} + limits[q];
                if (tile.trainLimits != nullptr) {
                    const Ints trainLimits = vectorAt<Ints>(tile.trainLimits + v * kLanes).value;
                    const Ints query = Ints{} + tile.queryTerms[kScreenQueries * group + q];
                    are[q][v] |= x[q][v] > query - trainLimits;
                }
                any |= are[q][v];
            }
        }
        if (bits(any) == 0) continue;
        for (int q = 0; q < kScreenQueries; ++q) {
            candidates.masks[q] = bits(are[q][0]) | bits(are[q][1]) << kLanes;
            vectorAt<Ints>(candidates.x[q]).value = x[q][0];
            vectorAt<Ints>(candidates.x[q] + kLanes).value = x[q][1];
        }
        return group;
    }
    return tile.queryGroups;
}
