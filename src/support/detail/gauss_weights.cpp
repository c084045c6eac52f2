// SPDX-License-Identifier: BSD-3-Clause
#include "support/detail/gauss_weights.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace marlo::detail {

GaussWeights::GaussWeights(double sigma, int length) {
    const double period = 2.0 * length;
    if (sigma > 2.0 * period) {
        // So wide a filter takes the mean: its weights differ by less than one part in 10^30. Both
        // ends of the period are the same pixel, which the last weight therefore counts half.
        weights_.assign(static_cast<std::size_t>(length) + 1, static_cast<float>(1.0 / period));
        weights_.back() *= 0.5F;
        return;
    }
    const auto radius = static_cast<std::size_t>(std::ceil(4.0 * sigma));
    std::vector<double> weights(radius + 1);
    double sum = -1.0;
    for (std::size_t k = 0; k <= radius; ++k) {
        const double x = static_cast<double>(k);
        weights[k] = k == 0 ? 1.0 : std::exp(-0.5 * x * x / (sigma * sigma));
        sum += 2.0 * weights[k];
    }
    if (const auto half = static_cast<std::size_t>(length); radius > half) {
        std::vector<double> folded(half + 1, 0.0);
        for (std::size_t k = 0; k <= radius; ++k) {
            const std::size_t place = k % (2 * half);
            folded[std::min(place, 2 * half - place)] += weights[k];
        }
        // Weights at distances 0 and `half` have met their mirror images: both sides of the filter
        // fold onto the same two pixels.
        folded[0] = 2.0 * folded[0] - 1.0;
        weights = std::move(folded);
    }
    weights_.reserve(weights.size());
    for (const double weight : weights) weights_.push_back(static_cast<float>(weight / sum));
}

int mirrored(int i, int length) {
    if (i >= 0 && i < length) return i;
    const std::ptrdiff_t period = 2 * static_cast<std::ptrdiff_t>(length);
    std::ptrdiff_t place = i % period;
    if (place < 0) place += period;
    return static_cast<int>(std::min(place, period - 1 - place));
}

}  // namespace marlo::detail
