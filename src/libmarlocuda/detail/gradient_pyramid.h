// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <array>

#include "libmarlocuda/detail/memory.h"
#include "libmarlocuda/detail/pyramid.h"
#include "libmarlocuda/detail/stream.h"

namespace marlo::gpu {

/// The gradients of the levels that descriptors are made from.
class GradientPyramid {
public:
    struct Level {
        Image magnitude;
        Image direction;
    };

    GradientPyramid(MemoryPlan& plan, int rows, int cols);

    /// Where the image goes.
    [[nodiscard]] const Image& input() const { return pyramid_.input(); }

    /// Of the image that has been put there; the stream does it when it comes to it.
    void run(Stream& stream);

    /// Of octave 0 to 2 and level 1 to 3.
    [[nodiscard]] const Level& level(int octave, int level) const {
        return gradients_[static_cast<std::size_t>(octave)]
                         [static_cast<std::size_t>(level - kFirstSearched)];
    }

private:
    Pyramid pyramid_;
    std::array<std::array<Level, kLastSearched - kFirstSearched + 1>, kOctaves> gradients_;
};

}  // namespace marlo::gpu
