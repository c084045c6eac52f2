// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/detail/pyramid.h"

#include <algorithm>
#include <utility>

namespace marlo::gpu {
namespace {

constexpr int kLongestFilter = 13;  // pixels on each side of the middle, at the last level

Image resized(const Image& image, int rows, int cols) {
    return {image.data, rows, cols};
}

}  // namespace

// Level 0 from an image that is taken to carry a blur of 0.5, and each level from the one before
// it. Three levels double the scale.
std::vector<Pyramid::Filter> Pyramid::filtersOf(int rows, int cols) {
    std::vector<Filter> filters;
    const auto add = [&](double sigma) {
        filters.push_back(
            {marlo::detail::GaussWeights(sigma, rows), marlo::detail::GaussWeights(sigma, cols)});
    };
    add(static_cast<double>(1.5198685F));
    float sigma = 1.6F;
    for (int level = 1; level < kLevels; ++level) {
        add(static_cast<double>(0.766421F * sigma));
        sigma = sigma * 1.2599211F;
    }
    return filters;
}

Pyramid::Pyramid(MemoryPlan& plan, int rows, int cols, int levels)
    : input_(plan.takeImage(rows, cols)) {
    for (int i = 0; i < levels; ++i) levels_.push_back(plan.takeImage(rows, cols));
    long long weights = 0;
    for (const Filter& filter : filtersOf(rows, cols)) {
        weights = std::max(weights, blurWeightsSize(filter.rows, filter.cols));
    }
    weights_ = plan.take<float>(weights);
    // Only octaves that are shorter or narrower than a filter need it.
    int octave = 0;
    while (octave < kOctaves && std::min(rows, cols) >> octave >= kLongestFilter) ++octave;
    if (octave < kOctaves) scratch_ = plan.takeImage(sideOf(rows, octave), sideOf(cols, octave));
}

void Pyramid::makeOctave(Stream& stream, int octave) {
    const int rows = input_.rows;
    const int cols = input_.cols;
    for (Image& level : levels_) level = resized(level, rows, cols);
    if (rows == 0 || cols == 0) return;
    scratch_ = resized(scratch_, rows, cols);
    const std::vector<Filter> filters = filtersOf(rows, cols);
    const auto blurInto = [&](const Image& from, std::size_t level) {
        const Filter& filter = filters[level];
        blur(stream, from, levels_[level], scratch_, filter.rows, filter.cols, weights_);
    };
    if (octave == 0) {
        blurInto(input_, 0);
    } else {
        std::swap(levels_[0].data, input_.data);
    }
    for (std::size_t level = 1; level < levels_.size(); ++level) {
        blurInto(levels_[level - 1], level);
    }
    if (octave + 1 < kOctaves) {
        input_ = resized(input_, rows / 2, cols / 2);
        decimate(stream, levels_[kLastSearched], input_);
    }
}

}  // namespace marlo::gpu
