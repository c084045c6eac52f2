// SPDX-License-Identifier: BSD-3-Clause
// Included once for each instruction set that counts the bits of bytes, inside a namespace of its
// own that offers:
//   Bytes              a vector of bytes
//   bitCounts(b)       how many bits are set in every byte

constexpr int kVectors = 4;  // of a group: with two queries they fill the registers
constexpr int kGroupRows = kVectors * static_cast<int>(sizeof(Bytes));

/// Plane p holds byte p of the rows.
template <int N>
void arrange(const unsigned char* row, std::size_t step, int rows, unsigned char* group) {
    std::memset(group, 0, std::size_t{8} * N * kGroupRows);
    for (int r = 0; r < rows; ++r, row += step) {
        for (int byte = 0; byte < 8 * N; ++byte) group[byte * kGroupRows + r] = row[byte];
    }
}

template <int N>
void distances(const unsigned char* const (&queries)[kHammingQueries], const unsigned char* groups,
               int groupCount, HammingDistance<N>* const (&out)[kHammingQueries]) {
    static_assert(kHammingQueries == 2);
    // 128 bits count to 128, which a byte holds.
    constexpr int kPlanes = 8 * N;
    constexpr int kPartPlanes = kPlanes < 16 ? kPlanes : 16;
    // Four times each byte: processors repeat words from memory for nothing, but not bytes.
    std::uint32_t words[kHammingQueries][kPlanes];
    for (int byte = 0; byte < kPlanes; ++byte) {
        for (int q = 0; q < kHammingQueries; ++q) words[q][byte] = queries[q][byte] * 0x01010101U;
    }
    typedef std::uint32_t Words __attribute__((vector_size(sizeof(Bytes))));
    for (int group = 0; group < groupCount; ++group) {
        for (int part = 0; part < kPlanes; part += kPartPlanes) {
            Bytes sums0[kVectors] = {};
            Bytes sums1[kVectors] = {};
            for (int p = part; p < part + kPartPlanes; ++p) {
                const auto query0 = reinterpret_cast<Bytes>(Words{} + words[0][p]);
                const auto query1 = reinterpret_cast<Bytes>(Words{} + words[1][p]);
                for (int v = 0; v < kVectors; ++v) {
                    const auto bytes =
                        vectorAt<Bytes>(groups + static_cast<std::size_t>(v) * sizeof(Bytes)).value;
                    sums0[v] += bitCounts(query0 ^ bytes);
                    sums1[v] += bitCounts(query1 ^ bytes);
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
