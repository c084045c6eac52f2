// SPDX-License-Identifier: BSD-3-Clause
// Included once for each instruction set with a table lookup, inside a namespace of its own that
// offers:
//   Bytes                    a vector of W bytes
//   Bytes lookup(t, i)       t[i], byte by byte, among the 16 bytes of its own 128-bit part of t
//   Bytes repeated(p)        the 16 bytes at p in every 128-bit part
//
// The bits of a query's half byte XOR a train row's half byte are looked up in a table of 16 counts
// that the query chooses, with the train row's half byte as the index: two instructions for 4 bits
// of W train rows. So train rows lie in planes of half bytes. The method is that of product
// quantisation scans: F. Andre, A.-M. Kermarrec, N. Le Scouarnec, Cache Locality Is Not Enough:
// High-Performance Nearest Neighbor Search with Product Quantization Fast Scan, PVLDB 9(4), 2015.

constexpr int kVectors = 4;  // of a group: with two queries they fill the registers
constexpr int kGroupRows = kVectors * static_cast<int>(sizeof(Bytes));

/// Plane p holds the low (p even) or high (p odd) halves of byte p / 2 of the rows.
template <int N>
void arrange(const unsigned char* row, std::size_t step, int rows, unsigned char* group) {
    std::memset(group, 0, std::size_t{16} * N * kGroupRows);
    for (int r = 0; r < rows; ++r, row += step) {
        for (int byte = 0; byte < 8 * N; ++byte) {
            unsigned char* const at = group + 2 * byte * kGroupRows + r;
            at[0] = row[byte] & 0x0f;
            at[kGroupRows] = row[byte] >> 4;
        }
    }
}

template <int N>
void distances(const unsigned char* const (&queries)[kHammingQueries], const unsigned char* groups,
               int groupCount, HammingDistance<N>* const (&out)[kHammingQueries]) {
    static_assert(kHammingQueries == 2);
    // 128 bits count to 128, which a byte holds.
    constexpr int kPlanes = 16 * N;
    constexpr int kPartPlanes = kPlanes < 32 ? kPlanes : 32;
    std::uint8_t tables[kHammingQueries][kPlanes];
    for (int byte = 0; byte < 8 * N; ++byte) {
        for (int q = 0; q < kHammingQueries; ++q) {
            tables[q][2 * byte] = static_cast<std::uint8_t>(queries[q][byte] << 4);
            tables[q][2 * byte + 1] = queries[q][byte] & 0xf0;
        }
    }
    for (int group = 0; group < groupCount; ++group) {
        for (int part = 0; part < kPlanes; part += kPartPlanes) {
            Bytes sums0[kVectors] = {};
            Bytes sums1[kVectors] = {};
            for (int p = part; p < part + kPartPlanes; ++p) {
                const Bytes table0 = repeated(kCountsOfXor.of + tables[0][p]);
                const Bytes table1 = repeated(kCountsOfXor.of + tables[1][p]);
                for (int v = 0; v < kVectors; ++v) {
                    const Bytes index =
                        vectorAt<Bytes>(groups + static_cast<std::size_t>(v) * sizeof(Bytes)).value;
                    sums0[v] += lookup(table0, index);
                    sums1[v] += lookup(table1, index);
                }
                groups += kGroupRows;
            }
            const std::ptrdiff_t first = std::ptrdiff_t{group} * kGroupRows;
            for (int v = 0; v < kVectors; ++v) {
                const std::ptrdiff_t at = first + v * static_cast<std::ptrdiff_t>(sizeof(Bytes));
                addCounts<N>(sums0[v], part == 0, out[0] + at);
                addCounts<N>(sums1[v], part == 0, out[1] + at);
            }
        }
    }
}
