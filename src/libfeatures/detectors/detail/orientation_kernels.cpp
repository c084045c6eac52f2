// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/detail/orientation_kernels.h"

#include <cstdint>
#include <cstdio>

#include "support/detail/simd.h"

namespace marlo::detail {
namespace {

constexpr std::ptrdiff_t kBatch = 256;        // samples between adding and adding
constexpr std::ptrdiff_t kRoom = kBatch + 8;  // the last vector of a row may reach beyond the end
// Sums that take samples in turn: neighbouring pixels often have the same direction, and would wait
// for each other at one sum.
constexpr int kSums = 4;

struct Samples {
    std::ptrdiff_t count = 0;
    alignas(32) float value[kRoom];
    alignas(32) std::int32_t bin[kRoom];
    float sums[kSums][kOrientationBins] = {};
};

// Weights of the pixels by their distance from the point: that of a pixel is the product of one for
// its row and one for its column. Writes those of positions [begin, end) along a side.
template <int W>
MARLO_KERNEL_INLINE void computeWeights(float centre, float factor, std::ptrdiff_t begin,
                                        std::ptrdiff_t end, float* weights) {
    for (; begin < end; begin += W, weights += W) {
        const FloatV<W> distance = ramp<W>(begin) - centre;
        store(weights, exponential<W>(distance * distance * factor));
    }
}

int binBeyondPi(int bin) {
    if (bin == kOrientationBins) return kOrientationBins - 1;
    std::fprintf(stderr, "bin %d\n", bin);
    return 0;
}

MARLO_KERNEL_INLINE void addSamples(Samples& samples) {
    for (std::ptrdiff_t i = 0; i < samples.count; ++i) {
        std::int32_t bin = samples.bin[i];
        if (bin >= kOrientationBins) [[unlikely]]
            bin = binBeyondPi(bin);
        samples.sums[i % kSums][bin] += samples.value[i];
    }
    samples.count = 0;
}

// Appends the pixels of row `r` at columns [begin, end). Those that do not count add 0 to bin 0.
template <int W>
MARLO_KERNEL_INLINE void appendSamples(const GradientSource& gradients,
                                       const OrientationWindow& window, float squaredRow,
                                       float rowWeight, const float* colWeights, std::ptrdiff_t r,
                                       std::ptrdiff_t begin, std::ptrdiff_t end, Samples& samples) {
    using F = FloatV<W>;
    using I = IntV<W>;
    const F zero{};
    const float* magnitudes = gradients.magnitude + r * gradients.cols;
    const float* directions = gradients.orientation + r * gradients.cols;
    std::ptrdiff_t at = samples.count;
    samples.count += end - begin;
    for (; begin < end; begin += W, at += W, colWeights += W) {
        const F dc = ramp<W>(begin) - window.col;
        const F magnitude = loadSome<W>(magnitudes + begin, gradients.cols - begin);
        const F direction = loadSome<W>(directions + begin, gradients.cols - begin);
        const I counts = (dc * dc + squaredRow < window.squaredRadius) & (direction == direction) &
                         ~(magnitude <= zero);
        const F value = load<F>(colWeights) * rowWeight * magnitude;
        store(samples.value + at, counts ? value : zero);
        // Bounded before it becomes an integer, which has to be able to hold it.
        F place = direction * 5.729578F + 18.00573F;
        place = counts ? place : zero;
        place = larger<W>(smaller<W>(place, broadcast<W>(1.0e9F)), zero);
        store(samples.bin + at, truncate<W>(place));
    }
}

template <int W>
MARLO_KERNEL_INLINE void orientationBody(const GradientSource& gradients,
                                         const OrientationWindow& window, float* bins) {
    Samples samples;
    // Column weights of a window of usual size are computed once, of a wide one piece by piece.
    alignas(32) float colWeights[kRoom];
    const bool fits = window.endCol - window.beginCol <= kBatch;
    if (fits) {
        computeWeights<W>(window.col, window.weightFactor, window.beginCol, window.endCol,
                          colWeights);
    }
    alignas(32) float rowWeights[8];
    for (std::ptrdiff_t r = window.beginRow; r < window.endRow; ++r) {
        const std::ptrdiff_t lane = (r - window.beginRow) % W;
        if (lane == 0) computeWeights<W>(window.row, window.weightFactor, r, r + W, rowWeights);
        const float dr = static_cast<float>(r) - window.row;
        const float squaredRow = dr * dr;
        const float squaredRest = window.squaredRadius - squaredRow;
        if (!(squaredRest > 0.0F)) continue;
        // The columns of the disc and up to one more at each end: every sample is tested.
        const float reach = __builtin_sqrtf(squaredRest);
        const auto low = static_cast<std::ptrdiff_t>(window.col - reach);
        const auto high = static_cast<std::ptrdiff_t>(window.col + reach) + 2;
        const std::ptrdiff_t end = high < window.endCol ? high : window.endCol;
        for (std::ptrdiff_t begin = low > window.beginCol ? low : window.beginCol; begin < end;) {
            if (samples.count == kBatch) addSamples(samples);
            const std::ptrdiff_t room = kBatch - samples.count;
            const std::ptrdiff_t pieceEnd = end - begin < room ? end : begin + room;
            if (!fits) {
                computeWeights<W>(window.col, window.weightFactor, begin, pieceEnd, colWeights);
            }
            appendSamples<W>(gradients, window, squaredRow, rowWeights[lane],
                             fits ? colWeights + (begin - window.beginCol) : colWeights, r, begin,
                             pieceEnd, samples);
            begin = pieceEnd;
        }
    }
    addSamples(samples);
    for (int bin = 0; bin < kOrientationBins; ++bin) {
        bins[bin] = (samples.sums[0][bin] + samples.sums[1][bin]) +
                    (samples.sums[2][bin] + samples.sums[3][bin]);
    }
}

void portable(const GradientSource& gradients, const OrientationWindow& window, float* bins) {
    orientationBody<4>(gradients, window, bins);
}

#if defined(__x86_64__)
MARLO_KERNEL_TARGET("avx2")
void avx2(const GradientSource& gradients, const OrientationWindow& window, float* bins) {
    orientationBody<8>(gradients, window, bins);
}
#endif

constexpr Kernel<OrientationFunction> kKernels[] = {
#if defined(__x86_64__)
    {"avx2", hasAvx2, avx2},
#endif
    {"portable", runsEverywhere, portable},
};

}  // namespace

KernelList<OrientationFunction> orientationKernels() {
    return kKernels;
}

}  // namespace marlo::detail
