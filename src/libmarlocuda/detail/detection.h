// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

#include "libmarlocuda/detail/extrema.h"
#include "libmarlocuda/detail/memory.h"
#include "libmarlocuda/detail/orientations.h"
#include "libmarlocuda/detail/pyramid.h"
#include "libmarlocuda/detail/stream.h"

namespace marlo::gpu {

/// Keypoints that there is room for: one for every 32 pixels, and some more. Photographs have one
/// for 134 to 330, the densest random dots one for 42. Smooth images of huge values, whose rounding
/// alone makes extrema, may have more; they are refused.
constexpr long long mostKeypoints(long long rows, long long cols) {
    constexpr long long kPixelsOfKeypoint = 32;
    constexpr long long kAnyImage = 1024;
    return rows * cols / kPixelsOfKeypoint + kAnyImage;
}

/// The whole way from an image to its keypoints.
class Detection {
public:
    /// Takes memory for at most `capacity` keypoints, and as many extrema of an octave.
    Detection(MemoryPlan& plan, int rows, int cols, long long capacity);

    /// Where the image goes.
    [[nodiscard]] const Image& input() const { return pyramid_.input(); }

    /// Detects on the image that has been put there; the stream does it when it comes to it.
    void run(Stream& stream);

    /// Waits for the number of keypoints.
    /// @throws Failure (NotEnoughResources) if there is no room for all of them.
    [[nodiscard]] std::size_t count(Stream& stream) const;
    /// In the GPU's memory: by octave, level, row and column of where the search found them.
    [[nodiscard]] const KeypointRecord* keypoints() const { return keypoints_; }

private:
    // What the GPU has counted.
    struct Counts {
        unsigned extrema[kOctaves];
        unsigned ends[kOctaves + 1];  // of the keypoints of the octaves before
    };

    long long capacity_;
    int rows_;
    int cols_;
    Pyramid pyramid_;
    ExtremumSearch search_;
    Orientations orientations_;
    KeypointRecord* keypoints_;
    Counts* counts_;
};

}  // namespace marlo::gpu
