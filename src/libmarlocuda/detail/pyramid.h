// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <vector>

#include "libmarlocuda/detail/blur.h"
#include "libmarlocuda/detail/memory.h"

namespace marlo::gpu {

constexpr int kOctaves = 3;
constexpr int kLevels = 6;  // Gaussian levels of an octave
/// Levels whose neighbouring differences are searched, and whose gradients are used.
constexpr int kFirstSearched = 1;
constexpr int kLastSearched = 3;

/// The side of octave `octave` of an image of side `pixels`.
constexpr int sideOf(int pixels, int octave) {
    return pixels >> octave;
}

/// Makes the Gaussian levels of one octave after the other, each octave in the memory of the one
/// before.
class Pyramid {
public:
    /// Takes its memory from `plan`: `levels` (4 or 6) and one more image of rows x cols.
    Pyramid(MemoryPlan& plan, int rows, int cols, int levels);

    /// Where the image goes that the scale space is of.
    [[nodiscard]] const Image& input() const { return input_; }

    /// Makes the levels of an octave, 0 to 2 one after the other, and what the next begins with.
    void makeOctave(Stream& stream, int octave);
    /// Of the octave that was made last.
    [[nodiscard]] const Image& level(int i) const { return levels_[static_cast<std::size_t>(i)]; }

private:
    struct Filter {
        marlo::detail::GaussWeights rows;
        marlo::detail::GaussWeights cols;
    };
    [[nodiscard]] static std::vector<Filter> filtersOf(int rows, int cols);

    Image input_;    // then level 0 of the next octave
    Image scratch_;  // of filters that need it
    std::vector<Image> levels_;
    float* weights_ = nullptr;
};

}  // namespace marlo::gpu
