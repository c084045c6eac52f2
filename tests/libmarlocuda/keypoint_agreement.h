// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "support/image.h"

namespace marlo::test {

/// A disc in the middle of an image. With values in the ten thousands rounding alone makes
/// keypoints of its even areas: they are many, and several candidates end at one pixel.
FloatImage discImage(int rows, int cols, float dark, float bright);

/// The keypoints of the CPU's detector, in pixels of the image and in its order.
std::vector<Keypoint> cpuKeypoints(const FloatImage& image);

/// The keypoints that the GPU library finds; a failure is reported to the running test.
std::vector<Keypoint> gpuKeypoints(const FloatImage& image);

/// How two lists of keypoints agree, compared place by place.
struct Agreement {
    std::size_t cpu = 0;      ///< keypoints of the CPU
    std::size_t gpu = 0;      ///< keypoints of the GPU
    std::size_t close = 0;    ///< within 0.01 pixels and 0.001 radians, octave and layer the same
    std::size_t exact = 0;    ///< the same bits
    double largestScale = 0;  ///< relative difference of scales, of the close ones
};
Agreement agreement(const std::vector<Keypoint>& cpu, const std::vector<Keypoint>& gpu);

}  // namespace marlo::test
