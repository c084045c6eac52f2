// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/detail/extremum_kernels.h"

#include <cstddef>
#include <cstring>

#include "support/detail/simd.h"

namespace marlo::detail {
namespace {

template <int W>
MARLO_KERNEL_INLINE IntV<W> subtract(const float* const (&levels)[kLevels],
                                     float* const (&differences)[kDifferences], std::ptrdiff_t c) {
    IntV<W> isNan{};
    auto lower = load<FloatV<W>>(levels[0] + c);
    for (int i = 0; i < kDifferences; ++i) {
        const auto upper = load<FloatV<W>>(levels[i + 1] + c);
        const auto difference = lower - upper;
        isNan |= difference != difference;
        store(differences[i] + c, difference);
        lower = upper;
    }
    return isNan;
}

template <int W>
MARLO_KERNEL_INLINE bool differenceBody(const float* const (&levels)[kLevels],
                                        float* const (&differences)[kDifferences],
                                        std::ptrdiff_t cols) {
    IntV<W> isNan{};
    std::ptrdiff_t c = 0;
    for (; c + W <= cols; c += W) isNan |= subtract<W>(levels, differences, c);
    std::int32_t any = 0;
    for (; c < cols; ++c) any |= subtract<1>(levels, differences, c);
    for (int i = 0; i < W; ++i) any |= isNan[i];
    return any != 0;
}

// Columns that are searched in one go; what their neighbourhoods share lies in between.
constexpr std::ptrdiff_t kPiece = 64;

// The largest and smallest of three values of a column, one above the other.
struct ColumnExtremes {
    alignas(32) float largest[kDifferences][kPiece + 16];
    alignas(32) float smallest[kDifferences][kPiece + 16];
};

// For columns c + first to c + last - 1.
template <int W>
MARLO_KERNEL_INLINE void findColumnExtremes(const DifferenceRows& rows, std::ptrdiff_t c,
                                            std::ptrdiff_t first, std::ptrdiff_t last,
                                            ColumnExtremes& extremes) {
    using F = FloatV<W>;
    for (int i = 0; i < kDifferences; ++i) {
        for (std::ptrdiff_t k = first; k < last; k += W) {
            const F above = load<F>(rows[i][0] + c + k);
            const F middle = load<F>(rows[i][1] + c + k);
            const F below = load<F>(rows[i][2] + c + k);
            store(extremes.largest[i] + k, larger<W>(larger<W>(above, middle), below));
            store(extremes.smallest[i] + k, smaller<W>(smaller<W>(above, middle), below));
        }
    }
}

// Marks W columns from c on; `k` is their place among the column extremes, which begin one column
// before those that are searched.
template <int W>
MARLO_KERNEL_INLINE void mark(const DifferenceRows& rows, std::ptrdiff_t c,
                              const ColumnExtremes& extremes, std::ptrdiff_t k,
                              std::uint8_t* marks) {
    using F = FloatV<W>;
    using I = IntV<W>;
    F largest[kDifferences];
    F smallest[kDifferences];
    I flat[kDifferences];
    for (int i = 0; i < kDifferences; ++i) {
        const float* const high = extremes.largest[i] + k;
        const float* const low = extremes.smallest[i] + k;
        largest[i] = larger<W>(larger<W>(load<F>(high), load<F>(high + 1)), load<F>(high + 2));
        smallest[i] = smaller<W>(smaller<W>(load<F>(low), load<F>(low + 1)), load<F>(low + 2));
        flat[i] = largest[i] == smallest[i];
    }
    const F zero{};
    I code{};
    for (int s = kLastSearched; s >= kFirstSearched; --s) {
        const F value = load<F>(rows[s][1] + c);
        const F highest = larger<W>(largest[s], larger<W>(largest[s - 1], largest[s + 1]));
        const F lowest = smaller<W>(smallest[s], smaller<W>(smallest[s - 1], smallest[s + 1]));
        const I found =
            ((value > zero) & (value >= highest)) | ((value <= zero) & (value <= lowest));
        const I isFlat = flat[s] & flat[s - 1] & flat[s + 1];
        code = code + code - (found & ~isFlat);  // a true lane is -1
    }
    store(marks + c, __builtin_convertvector(code, typename Simd<W>::Byte));
}

template <int W>
MARLO_KERNEL_INLINE void extremumBody(const DifferenceRows& rows, std::ptrdiff_t cols,
                                      std::uint8_t* marks) {
    const std::ptrdiff_t end = cols - kBorder;
    if (end - kBorder < kPiece) {
        markExtrema(rows, static_cast<int>(cols), marks);
        return;
    }
    __builtin_memset(marks, 0, kBorder);
    __builtin_memset(marks + end, 0, kBorder);
    ColumnExtremes extremes;
    for (std::ptrdiff_t c = kBorder; c < end; c += kPiece) {
        // The last piece overlaps the one before it.
        const std::ptrdiff_t begin = c + kPiece <= end ? c : end - kPiece;
        findColumnExtremes<W>(rows, begin - 1, 0, kPiece, extremes);
        findColumnExtremes<1>(rows, begin - 1, kPiece, kPiece + 2, extremes);
        for (std::ptrdiff_t k = 0; k < kPiece; k += W) {
            mark<W>(rows, begin + k, extremes, k, marks);
        }
    }
}

bool differencesPortable(const float* const (&levels)[kLevels],
                         float* const (&differences)[kDifferences], int cols) {
    return differenceBody<4>(levels, differences, cols);
}
void extremaPortable(const DifferenceRows& rows, int cols, std::uint8_t* marks) {
    extremumBody<4>(rows, cols, marks);
}

#if defined(__x86_64__)
MARLO_KERNEL_TARGET("avx2")
bool differencesAvx2(const float* const (&levels)[kLevels],
                     float* const (&differences)[kDifferences], int cols) {
    return differenceBody<8>(levels, differences, cols);
}
MARLO_KERNEL_TARGET("avx2")
void extremaAvx2(const DifferenceRows& rows, int cols, std::uint8_t* marks) {
    extremumBody<8>(rows, cols, marks);
}
#endif

constexpr Kernel<DifferenceFunction> kDifferenceKernels[] = {
#if defined(__x86_64__)
    {"avx2", hasAvx2, differencesAvx2},
#endif
    {"portable", runsEverywhere, differencesPortable},
};
constexpr Kernel<ExtremumFunction> kExtremumKernels[] = {
#if defined(__x86_64__)
    {"avx2", hasAvx2, extremaAvx2},
#endif
    {"portable", runsEverywhere, extremaPortable},
};

// Whether `value` is at least as far from zero, on its own side, as the nine pixels around column
// c.
bool isExtremumOf(const float* const (&rows)[3], std::ptrdiff_t c, float value) {
    for (const float* row : rows) {
        for (std::ptrdiff_t i = c - 1; i <= c + 1; ++i) {
            if (value > 0.0F ? row[i] > value : row[i] < value) return false;
        }
    }
    return true;
}

bool isFlat(const float* const (&rows)[3], std::ptrdiff_t c) {
    for (const float* row : rows) {
        for (std::ptrdiff_t i = c - 1; i <= c + 1; ++i) {
            if (!(row[i] == rows[0][c])) return false;
        }
    }
    return true;
}

}  // namespace

void markExtrema(const DifferenceRows& rows, int cols, std::uint8_t* marks) {
    std::memset(marks, 0, static_cast<std::size_t>(cols));
    for (std::ptrdiff_t c = kBorder; c < cols - kBorder; ++c) {
        for (int s = kFirstSearched; s <= kLastSearched; ++s) {
            const float value = rows[s][1][c];
            if (!isExtremumOf(rows[s], c, value) || !isExtremumOf(rows[s - 1], c, value) ||
                !isExtremumOf(rows[s + 1], c, value)) {
                continue;
            }
            if (isFlat(rows[s], c) && isFlat(rows[s - 1], c) && isFlat(rows[s + 1], c)) continue;
            marks[c] = static_cast<std::uint8_t>(marks[c] | 1 << (s - 1));
        }
    }
}

KernelList<DifferenceFunction> differenceKernels() {
    return kDifferenceKernels;
}
KernelList<ExtremumFunction> extremumKernels() {
    return kExtremumKernels;
}

}  // namespace marlo::detail
