// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/detail/gradient_pyramid.h"

#include "libmarlocuda/detail/gradient.h"

namespace marlo::gpu {

GradientPyramid::GradientPyramid(MemoryPlan& plan, int rows, int cols)
    : pyramid_(plan, rows, cols, kLastSearched + 1) {
    for (int o = 0; o < kOctaves; ++o) {
        for (Level& level : gradients_[static_cast<std::size_t>(o)]) {
            level.magnitude = plan.takeImage(sideOf(rows, o), sideOf(cols, o));
            level.direction = plan.takeImage(sideOf(rows, o), sideOf(cols, o));
        }
    }
}

void GradientPyramid::run(Stream& stream) {
    for (int o = 0; o < kOctaves; ++o) {
        pyramid_.makeOctave(stream, o);
        for (int s = kFirstSearched; s <= kLastSearched; ++s) {
            const Level& gradients = level(o, s);
            computeGradients(stream, pyramid_.level(s), gradients.magnitude, gradients.direction);
        }
    }
}

}  // namespace marlo::gpu
