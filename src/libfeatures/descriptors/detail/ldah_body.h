// SPDX-License-Identifier: BSD-3-Clause
// Included once for each instruction set, inside a namespace of its own that offers:
//   Floats             a vector of floats
//   kRows              how many descriptors are worked on at once: their sums fill the registers
//   bitsOf(sums)       bit i is set where lane i is 0 or less

constexpr int kLanes = static_cast<int>(sizeof(Floats) / sizeof(float));
constexpr int kVectors = kLdahPanel / kLanes;

/// The 16 bits of a panel, of `Rows` descriptors.
template <int Rows>
MARLO_KERNEL_INLINE void makePanelBits(const LdahPanels& panels, int panel, const float* rows,
                                       unsigned char* codes) {
    Floats totals[Rows][kVectors] = {};
    for (int part = 0; part < kLdahSums; ++part) {
        Floats sums[Rows][kVectors] = {};
        const float* weights = panels.projection[panel][part][0];
        for (int k = part; k < kDescriptorSize; k += kLdahSums, weights += kLdahPanel) {
#pragma GCC unroll 16
            for (int r = 0; r < Rows; ++r) {
                const float value = rows[r * kDescriptorSize + k];
#pragma GCC unroll 16
                for (int v = 0; v < kVectors; ++v) {
                    sums[r][v] += vectorAt<Floats>(weights + v * kLanes).value * value;
                }
            }
        }
        for (int r = 0; r < Rows; ++r) {
            for (int v = 0; v < kVectors; ++v) totals[r][v] += sums[r][v];
        }
    }
    const float* const offsets = panels.offsets + panel * kLdahPanel;
    unsigned char* code = codes + panel * (kLdahPanel / 8);
    for (int r = 0; r < Rows; ++r, code += kLdahBytes) {
        unsigned bits = 0;
        for (int v = 0; v < kVectors; ++v) {
            const Floats sums = totals[r][v] + vectorAt<Floats>(offsets + v * kLanes).value;
            bits |= bitsOf(sums) << (v * kLanes);
        }
        for (int byte = 0; byte < kLdahPanel / 8; ++byte) {
            code[byte] = static_cast<unsigned char>(bits >> (8 * byte));
        }
    }
}

/// The bits of a panel, of all descriptors: `Rows` at a time, and the rest fewer at a time.
template <int Rows>
MARLO_KERNEL_INLINE void makeColumn(const LdahPanels& panels, int panel, const float* rows,
                                    std::ptrdiff_t count, unsigned char* codes) {
    for (; count >= Rows; count -= Rows) {
        makePanelBits<Rows>(panels, panel, rows, codes);
        rows += Rows * kDescriptorSize;
        codes += Rows * kLdahBytes;
    }
    if constexpr (Rows > 1) makeColumn<Rows / 2>(panels, panel, rows, count, codes);
}

inline void makeCodes(const LdahPanels& panels, const float* rows, std::ptrdiff_t count,
                      unsigned char* codes) {
    for (int panel = 0; panel < kLdahPanels; ++panel) {
        makeColumn<kRows>(panels, panel, rows, count, codes);
    }
}
