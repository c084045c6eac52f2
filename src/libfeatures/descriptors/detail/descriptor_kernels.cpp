// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/detail/descriptor_kernels.h"

#include <cstdint>

#include "support/detail/simd.h"

namespace marlo::detail {
namespace {

// Samples are gathered from several rows and then worked on in steps, each a loop over all of them:
// short steps over many samples leave the processor more to do at once than one long step over the
// few of a row. In between they lie here.
constexpr std::ptrdiff_t kBatch = 128;
constexpr std::ptrdiff_t kRoom = kBatch + 8;  // the last vector of a row may reach beyond the end

// The middle of the descriptor lies between its second and third cell.
constexpr float kMiddle = 1.5F;
constexpr float kLowest = -0.9999F;
constexpr float kHighest = 3.9999F;

// A sample adds to four cells, the one at or above and left of it and its neighbours, and in each
// of them to two directions. Sums are kept by the first cell and the first direction, eight to a
// place: the eight that one sample adds to. So a sample is one addition of a vector; the places
// are folded into the descriptor at its end. Samples with even and odd numbers in their row have
// sums of their own, since they often follow each other to the same place and would wait for one
// another.
constexpr int kParts = 8;  // [cell: two rows of two][first direction, second direction]
constexpr int kFirstCells = kCells + 1;  // along each side: from one before the first cell on
constexpr int kFirstDirections = kDirections + 1;  // a whole turn is a direction of its own
constexpr int kPlaces = kFirstCells * kFirstCells * kFirstDirections;

struct Samples {
    std::ptrdiff_t count = 0;
    alignas(32) float down[kRoom];  // from the middle of the first cell, in cells
    alignas(32) float right[kRoom];
    alignas(32) float firstCell[kRoom];  // where its sums begin, for direction 0
    alignas(32) float magnitude[kRoom];  // weighted by the distance from the middle
    alignas(32) float direction[kRoom];
    alignas(32) std::uint32_t place[kRoom];  // where the sums of its place begin
    alignas(32) float part[kRoom * kParts];
};

struct Sums {
    alignas(32) float even[kPlaces * kParts];
    alignas(32) float odd[kPlaces * kParts];
};

// Columns of one row: a range that is narrowed down.
struct Columns {
    double first;
    double last;
};

// Narrows columns down to those that lie in the descriptor by one of its coordinates, which grows
// by `step` cells a column. Some may lie just outside, none that lie inside is lost: every sample
// is tested again, exactly.
class ColumnLimits {
public:
    MARLO_KERNEL_INLINE explicit ColumnLimits(float step)
        : level_(__builtin_fabsf(step) < 1e-12F),  // too little to matter across any image
          columnsPerCell_(1.0 / static_cast<double>(step)) {}

    // `start` is the coordinate in column 0.
    MARLO_KERNEL_INLINE void narrow(float start, Columns& columns) const {
        constexpr double kSlack = 1e-3;
        const double toLowest = static_cast<double>(kLowest) - kSlack - static_cast<double>(start);
        const double toHighest =
            static_cast<double>(kHighest) + kSlack - static_cast<double>(start);
        if (level_) {
            if (toLowest > 0.0 || toHighest < 0.0) columns.last = columns.first - 1.0;
            return;
        }
        const double a = toLowest * columnsPerCell_;
        const double b = toHighest * columnsPerCell_;
        const double low = a < b ? a : b;
        const double high = a < b ? b : a;
        if (low > columns.first) columns.first = low;
        if (high < columns.last) columns.last = high;
    }

private:
    bool level_;
    double columnsPerCell_;
};

MARLO_KERNEL_INLINE std::ptrdiff_t firstNotBelow(double x) {
    const auto truncated = static_cast<std::ptrdiff_t>(x);
    return static_cast<double>(truncated) < x ? truncated + 1 : truncated;
}
MARLO_KERNEL_INLINE std::ptrdiff_t lastNotAbove(double x) {
    const auto truncated = static_cast<std::ptrdiff_t>(x);
    return static_cast<double>(truncated) > x ? truncated - 1 : truncated;
}

// Weights of the pixels by their distance from the middle, a Gaussian of 2 cells: that of a pixel
// is the product of one for its row and one for its column.
//   (s j + c i + a)^2 + (c j - s i + b)^2
//     = (s^2 + c^2) (i^2 + j^2) + 2 (a s + b c) j + 2 (a c - b s) i + a^2 + b^2
class GaussWindow {
public:
    MARLO_KERNEL_INLINE explicit GaussWindow(const DescriptorWindow& w)
        : square_((w.sinScaled * w.sinScaled + w.cosScaled * w.cosScaled) * -0.125F),
          row_((w.rowShift * w.cosScaled - w.colShift * w.sinScaled) * -0.25F),
          col_((w.rowShift * w.sinScaled + w.colShift * w.cosScaled) * -0.25F),
          constant_((w.rowShift * w.rowShift + w.colShift * w.colShift) * -0.125F),
          firstCol_(w.firstCol),
          fits_(w.lastCol - w.firstCol < kColumns) {}

    // Prepares the columns of a window of usual size once and for all ...
    template <int W>
    MARLO_KERNEL_INLINE void prepare(std::ptrdiff_t endCol) {
        if (fits_) fill<W>(firstCol_, endCol);
    }
    // ... and those of a wide one piece by piece. The weights of columns [j, end).
    template <int W>
    MARLO_KERNEL_INLINE const float* ofColumns(std::ptrdiff_t j, std::ptrdiff_t end) {
        if (fits_) return columns_ + (j - firstCol_);
        fill<W>(j, end);
        return columns_;
    }
    // Called for one row after the other, from `firstRow` on.
    template <int W>
    MARLO_KERNEL_INLINE float ofRow(std::ptrdiff_t i, std::ptrdiff_t firstRow) {
        const std::ptrdiff_t lane = (i - firstRow) % W;
        if (lane == 0) {
            const FloatV<W> x = ramp<W>(i);
            store(rows_, exponential<W>((x * square_ + row_) * x + constant_));
        }
        return rows_[lane];
    }

private:
    static constexpr std::ptrdiff_t kColumns = 256;
    static_assert(kColumns >= kBatch);

    template <int W>
    MARLO_KERNEL_INLINE void fill(std::ptrdiff_t j, std::ptrdiff_t end) {
        for (float* to = columns_; j < end; j += W, to += W) {
            const FloatV<W> x = ramp<W>(j);
            store(to, exponential<W>((x * square_ + col_) * x));
        }
    }

    float square_;
    float row_;
    float col_;
    float constant_;
    std::ptrdiff_t firstCol_;
    bool fits_;
    alignas(32) float columns_[kColumns + 16];
    alignas(32) float rows_[8];
};

// Appends the pixels of row i at columns [j, end), from the centre: where they fall, and their
// gradients. Those that fall outside get no magnitude.
template <int W>
MARLO_KERNEL_INLINE void appendSamples(const GradientSource& gradients,
                                       const DescriptorWindow& window, float rowWeight,
                                       const float* colWeights, std::ptrdiff_t i, std::ptrdiff_t j,
                                       std::ptrdiff_t end, Samples& samples) {
    using F = FloatV<W>;
    using I = IntV<W>;
    const F zero{};
    const float rowPart = window.cosScaled * static_cast<float>(i);
    const float colPart = window.sinScaled * static_cast<float>(i);
    const std::ptrdiff_t pixel = (window.centreRow + i) * gradients.cols + window.centreCol + j;
    const float* magnitudes = gradients.magnitude + pixel;
    const float* directions = gradients.orientation + pixel;
    std::ptrdiff_t left = gradients.cols - (window.centreCol + j);  // pixels to the end of the row
    std::ptrdiff_t at = samples.count;
    samples.count += end - j;
    for (; j < end; j += W, at += W, left -= W) {
        const F column = ramp<W>(j);
        const F u = column * window.sinScaled + rowPart + window.rowShift;
        const F v = column * window.cosScaled - colPart + window.colShift;
        F rb = u + kMiddle;
        F cb = v + kMiddle;
        const I counts = (smaller<W>(rb, cb) > kLowest) & (larger<W>(rb, cb) < kHighest);
        rb = counts ? rb : zero;
        cb = counts ? cb : zero;
        const F r = roundedDown<W>(rb);
        const F c = roundedDown<W>(cb);
        store(samples.down + at, rb - r);
        store(samples.right + at, cb - c);
        // Whole numbers, exactly.
        store(samples.firstCell + at,
              ((r * kFirstCells + c) + (kFirstCells + 1)) * (kFirstDirections * kParts));
        const F weight = load<F>(colWeights) * rowWeight;
        const F magnitude = weight * loadSome<W>(magnitudes, left);
        store(samples.magnitude + at, counts ? magnitude : zero);
        store(samples.direction + at, loadSome<W>(directions, left));
        colWeights += W;
        magnitudes += W;
        directions += W;
    }
}

// What the samples add, and to which place. Angles in [-pi, pi] need at most one turn, upwards.
template <int W, bool kAnyAngle>
MARLO_KERNEL_INLINE void computeParts(const DescriptorWindow& window, Samples& samples) {
    using F = FloatV<W>;
    using I = IntV<W>;
    const F zero{};
    for (std::ptrdiff_t i = 0; i < samples.count; i += W) {
        F theta = load<F>(samples.direction + i) - window.angle;
        if constexpr (kAnyAngle) {
            for (int turn = 0; turn < window.turnsDown; ++turn) {
                theta = theta > kTwoPi ? theta - kTwoPi : theta;
            }
            for (int turn = 1; turn < window.turnsUp; ++turn) {
                theta = theta < zero ? theta + kTwoPi : theta;
            }
        }
        theta = theta < zero ? theta + kTwoPi : theta;
        const I counts = (theta >= zero) & (theta <= kTwoPi);
        const F ob = (counts ? theta : zero) * 1.2732395F;
        const F o = wholePart<W>(ob);
        const F second = ob - o;
        const F first = 1.0F - second;
        store(samples.place + i, truncate<W>(load<F>(samples.firstCell + i) + o * kParts));
        const F m = counts ? load<F>(samples.magnitude + i) : zero;
        const F down = load<F>(samples.down + i);
        const F right = load<F>(samples.right + i);
        const F up = 1.0F - down;
        const F left = 1.0F - right;
        const F weight[4] = {up * left * m, up * right * m, down * left * m, down * right * m};
        const F parts[kParts] = {weight[0] * first,  weight[0] * second, weight[1] * first,
                                 weight[1] * second, weight[2] * first,  weight[2] * second,
                                 weight[3] * first,  weight[3] * second};
        storeTransposed(parts, samples.part + i * kParts);
    }
}

template <int W>
MARLO_KERNEL_INLINE void addPart(const float* part, float* sum) {
    for (int p = 0; p < kParts; p += W) {
        store(sum + p, load<FloatV<W>>(sum + p) + load<FloatV<W>>(part + p));
    }
}

template <int W>
MARLO_KERNEL_INLINE void addSamples(const DescriptorWindow& window, Samples& samples, Sums& sums) {
    if (window.turnsDown == 0 && window.turnsUp <= 1) {
        computeParts<W, false>(window, samples);
    } else {
        computeParts<W, true>(window, samples);
    }
    std::ptrdiff_t i = 0;
    for (; i + 2 <= samples.count; i += 2) {
        const float* const part = samples.part + i * kParts;
        addPart<W>(part, sums.even + samples.place[i]);
        addPart<W>(part + kParts, sums.odd + samples.place[i + 1]);
    }
    if (i < samples.count) addPart<W>(samples.part + i * kParts, sums.even + samples.place[i]);
    samples.count = 0;
}

// W of the eight sums of a place. A function, not a lambda: a lambda that is not inlined would be
// compiled for the default processor, and pass its vector otherwise than its caller expects.
template <int W>
MARLO_KERNEL_INLINE FloatV<W> sumsOfPlace(const Sums& sums, std::ptrdiff_t firstCell, int direction,
                                          int vector) {
    const std::ptrdiff_t at = firstCell + direction * kParts + vector * W;
    return load<FloatV<W>>(sums.even + at) + load<FloatV<W>>(sums.odd + at);
}

// Adds what has been summed for one first cell to its four cells.
template <int W>
MARLO_KERNEL_INLINE void foldCell(const Sums& sums, int row, int col, float* histogram) {
    using F = FloatV<W>;
    constexpr int kVectors = kParts / W;  // of the sums of a place, and of the directions of a cell
    const std::ptrdiff_t first = ((row + 1) * kFirstCells + (col + 1)) * kFirstDirections * kParts;
    // From eight sums for each direction to eight directions for each sum.
    alignas(32) float directions[kParts * kDirections];
    for (int vector = 0; vector < kVectors; ++vector) {
        F rows[kDirections];
        for (int o = 0; o < kDirections; ++o) rows[o] = sumsOfPlace<W>(sums, first, o, vector);
        // A whole turn is no turn.
        rows[0] = rows[0] + sumsOfPlace<W>(sums, first, kDirections, vector);
        storeTransposed(rows, directions + vector * W * kDirections);
    }
    for (int q = 0; q < 4; ++q) {
        const int r = row + q / 2;
        const int c = col + q % 2;
        if (r < 0 || r >= kCells || c < 0 || c >= kCells) continue;
        float* const cell = histogram + (r * kCells + c) * kDirections;
        const float* const here = directions + 2 * q * kDirections;
        F next[kVectors];
        for (int vector = 0; vector < kVectors; ++vector) {
            float* const to = cell + vector * W;
            store(to, load<F>(to) + load<F>(here + vector * W));
            next[vector] = load<F>(here + kDirections + vector * W);
        }
        addTurned(next, cell);
    }
}

// Cuts values above 0.2 times the norm and scales to length 1. The squared norm is formed in four
// interleaved sums and then followed, not computed anew.
MARLO_KERNEL_INLINE void normalise(float* values) {
    using F = FloatV<4>;
    F squares{};
    for (int i = 0; i < kDescriptorSize; i += 4) {
        const F four = load<F>(values + i);
        squares = squares + four * four;
    }
    float squaredNorm = squares[0] + squares[1] + squares[2] + squares[3];
    const float most = 0.2F * __builtin_sqrtf(squaredNorm);
    for (int i = 0; i < kDescriptorSize; ++i) {
        if (values[i] > most) {
            squaredNorm = squaredNorm + (most * most - values[i] * values[i]);
            values[i] = most;
        }
    }
    const float factor = 1.0F / __builtin_sqrtf(squaredNorm);
    for (int i = 0; i < kDescriptorSize; ++i) values[i] *= factor;
}

template <int W>
MARLO_KERNEL_INLINE void descriptorBody(const GradientSource& gradients,
                                        const DescriptorWindow& window, float* values) {
    Samples samples;
    Sums sums{};
    const ColumnLimits byRowCell(window.sinScaled);
    const ColumnLimits byColCell(window.cosScaled);
    GaussWindow gauss(window);
    gauss.prepare<W>(window.lastCol + 1);
    for (std::ptrdiff_t i = window.firstRow; i <= window.lastRow; ++i) {
        Columns columns{static_cast<double>(window.firstCol), static_cast<double>(window.lastCol)};
        byRowCell.narrow(window.cosScaled * static_cast<float>(i) + window.rowShift + kMiddle,
                         columns);
        byColCell.narrow(window.colShift - window.sinScaled * static_cast<float>(i) + kMiddle,
                         columns);
        const float rowWeight = gauss.ofRow<W>(i, window.firstRow);
        if (columns.first > columns.last) continue;
        const std::ptrdiff_t end = lastNotAbove(columns.last) + 1;
        for (std::ptrdiff_t j = firstNotBelow(columns.first); j < end;) {
            if (samples.count == kBatch) addSamples<W>(window, samples, sums);
            const std::ptrdiff_t room = kBatch - samples.count;
            const std::ptrdiff_t pieceEnd = end - j < room ? end : j + room;
            appendSamples<W>(gradients, window, rowWeight, gauss.ofColumns<W>(j, pieceEnd), i, j,
                             pieceEnd, samples);
            j = pieceEnd;
        }
    }
    addSamples<W>(window, samples, sums);
    __builtin_memset(values, 0, kDescriptorSize * sizeof(float));
    for (int r = -1; r < kCells; ++r) {
        for (int c = -1; c < kCells; ++c) foldCell<W>(sums, r, c, values);
    }
    normalise(values);
}

void portable(const GradientSource& gradients, const DescriptorWindow& window, float* values) {
    descriptorBody<4>(gradients, window, values);
}

#if defined(__x86_64__)
MARLO_KERNEL_TARGET("avx2")
void avx2(const GradientSource& gradients, const DescriptorWindow& window, float* values) {
    descriptorBody<8>(gradients, window, values);
}
#endif

constexpr Kernel<DescriptorFunction> kKernels[] = {
#if defined(__x86_64__)
    {"avx2", hasAvx2, avx2},
#endif
    {"portable", runsEverywhere, portable},
};

}  // namespace

KernelList<DescriptorFunction> descriptorKernels() {
    return kKernels;
}

}  // namespace marlo::detail
