// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>

#include "libmarlocuda/detail/extremum.h"
#include "libmarlocuda/detail/memory.h"
#include "libmarlocuda/detail/stream.h"

namespace marlo::gpu {

/// A keypoint as the caller's memory holds it.
struct KeypointRecord {
    float x;
    float y;
    float scale;
    float angle;
    float response;
    std::uint8_t octave;
    std::uint8_t layer;
    std::uint8_t unused[2];
};
static_assert(sizeof(KeypointRecord) == 24);

constexpr int kBins = 36;
constexpr int kMostOrientations = kBins / 2;  // a peak is higher than both bins beside it

/// Gives extrema their orientations: a histogram of the gradients around each, smoothed, and an
/// angle for each of its high peaks.
/// D. Lowe, Distinctive Image Features from Scale-Invariant Keypoints, IJCV 60(2), 2004, sec. 5;
/// the fold of the last half bin and the smoothing are this library's own.
class Orientations {
public:
    /// Takes memory for `capacity` extrema of an octave.
    Orientations(MemoryPlan& plan, long long capacity);

    /// Writes the keypoints of `*extremumCount` extrema, in their order, to `keypoints` from
    /// `*begin` on, and one past the last to `*end`; those beyond `capacity` are counted, but not
    /// written. The pointers are the GPU's memory.
    void run(Stream& stream, const Octave& octave, int octaveNumber, const Extremum* extrema,
             const unsigned* extremumCount, KeypointRecord* keypoints, const unsigned* begin,
             unsigned* end);

private:
    long long capacity_;
    unsigned* counts_;       // angles of each extremum
    float* angles_;          // kMostOrientations for each extremum
    unsigned* blockTotals_;  // of the scan
};

}  // namespace marlo::gpu
