// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libmarlocuda/detail/arithmetic.h"
#include "libmarlocuda/detail/stream.h"

namespace marlo::gpu {

struct Gradient {
    float dx;
    float dy;

    MARLO_GPU_FUNCTION float magnitude() const { return sqrtf(dx * dx + dy * dy); }
    /// In radians, [-pi, pi], counter-clockwise as the image is displayed.
    MARLO_GPU_FUNCTION float direction() const { return arcTangent(dy, dx); }
};

/// Halved central differences inside the image, one-sided differences at its borders.
MARLO_GPU_FUNCTION inline Gradient gradientAt(const Image& image, int r, int c) {
    const int above = greatest(r - 1, 0);
    const int below = least(r + 1, image.rows - 1);
    const int left = greatest(c - 1, 0);
    const int right = least(c + 1, image.cols - 1);
    const float vertical = above != r && below != r ? 0.5F : 1.0F;
    const float horizontal = left != c && right != c ? 0.5F : 1.0F;
    return {(image.at(r, right) - image.at(r, left)) * horizontal,
            (image.at(above, c) - image.at(below, c)) * vertical};
}

/// The gradients of every pixel. Three images of the same size.
void computeGradients(Stream& stream, const Image& image, const Image& magnitude,
                      const Image& direction);

}  // namespace marlo::gpu
