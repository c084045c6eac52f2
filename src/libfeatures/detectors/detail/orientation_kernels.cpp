// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/detail/orientation_kernels.h"

#include <cstdint>
#include <cstdio>

#include "support/detail/gradient_batch.h"
#include "support/detail/simd.h"

namespace marlo::detail {
namespace {

constexpr int kBatch = 128;
// Sums that take samples in turn: neighbouring pixels often have the same direction, and would wait
// for each other at one sum.
constexpr int kSums = 4;

struct Samples {
    using Gradients = GradientBatch<kBatch>;

    Gradients gradients;
    alignas(32) float squaredDistance[Gradients::kRoom];
    alignas(32) float value[Gradients::kRoom];
    alignas(32) std::int32_t bin[Gradients::kRoom];
    float sums[kSums][kOrientationBins] = {};
};

template <int W>
MARLO_KERNEL_INLINE void appendDistances(const OrientationWindow& window, float squaredRow,
                                         std::ptrdiff_t begin, std::ptrdiff_t end,
                                         Samples& samples) {
    for (std::ptrdiff_t at = samples.gradients.count; begin < end; begin += W, at += W) {
        const FloatV<W> dc = ramp<W>(static_cast<float>(begin)) - window.col;
        store(samples.squaredDistance + at, dc * dc + squaredRow);
    }
}

int binBeyondPi(int bin) {
    if (bin == kOrientationBins) return kOrientationBins - 1;
    std::fprintf(stderr, "bin %d\n", bin);
    return 0;
}

template <int W>
MARLO_KERNEL_INLINE void addSamples(const OrientationWindow& window, Samples& samples) {
    using F = FloatV<W>;
    using I = IntV<W>;
    const F zero{};
    const std::ptrdiff_t count = samples.gradients.count;
    for (std::ptrdiff_t i = 0; i < count; i += W) {
        const F weight =
            expOfNegative<W>(load<F>(samples.squaredDistance + i) * window.weightFactor);
        store(samples.value + i, weight * load<F>(samples.gradients.magnitude + i));
    }
    for (std::ptrdiff_t i = 0; i < count; i += W) {
        const F direction = load<F>(samples.gradients.direction + i);
        const I counts = (load<F>(samples.squaredDistance + i) < window.squaredRadius) &
                         (direction == direction) &
                         ~(load<F>(samples.gradients.magnitude + i) <= zero);
        // Bounded before it becomes an integer, which has to be able to hold it.
        F place = direction * 5.729578F + 18.00573F;
        place = counts ? place : zero;
        place = smaller<W>(place, broadcast<W>(1.0e9F));
        place = larger<W>(place, zero);
        store(samples.bin + i, truncate<W>(place));
        store(samples.value + i, counts ? load<F>(samples.value + i) : zero);
    }
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        std::int32_t bin = samples.bin[i];
        if (bin >= kOrientationBins) [[unlikely]]
            bin = binBeyondPi(bin);
        samples.sums[i % kSums][bin] += samples.value[i];
    }
    samples.gradients.count = 0;
}

template <int W>
MARLO_KERNEL_INLINE void orientationBody(const GradientSource& gradients,
                                         const OrientationWindow& window, float* bins) {
    Samples samples;
    for (std::ptrdiff_t r = window.beginRow; r < window.endRow; ++r) {
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
            if (samples.gradients.count == kBatch) addSamples<W>(window, samples);
            const std::ptrdiff_t room = kBatch - samples.gradients.count;
            const std::ptrdiff_t pieceEnd = end - begin < room ? end : begin + room;
            appendDistances<W>(window, squaredRow, begin, pieceEnd, samples);
            samples.gradients.template append<W>(gradients, r, begin, pieceEnd);
            begin = pieceEnd;
        }
    }
    addSamples<W>(window, samples);
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
