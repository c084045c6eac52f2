// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/detail/detection.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace marlo::gpu {

Detection::Detection(MemoryPlan& plan, int rows, int cols, long long capacity)
    : capacity_(capacity),
      rows_(rows),
      cols_(cols),
      pyramid_(plan, rows, cols, kLevels),
      search_(plan, rows, cols, capacity_),
      orientations_(plan, capacity_),
      keypoints_(plan.take<KeypointRecord>(capacity_)),
      counts_(plan.take<Counts>(1)) {}

void Detection::run(Stream& stream) {
    stream.fill(counts_, 0, sizeof *counts_);
    for (int o = 0; o < kOctaves; ++o) {
        Octave octave;
        octave.rows = sideOf(rows_, o);
        octave.cols = sideOf(cols_, o);
        // Nothing of it lies within its borders, nor of those that follow.
        if (octave.rows <= 2 * kBorder || octave.cols <= 2 * kBorder) return;
        pyramid_.makeOctave(stream, o);
        for (int i = 0; i < kLevels; ++i) octave.levels[i] = pyramid_.level(i).data;
        search_.run(stream, octave, &counts_->extrema[o]);
        orientations_.run(stream, octave, o, search_.extrema(), &counts_->extrema[o], keypoints_,
                          &counts_->ends[o], &counts_->ends[o + 1]);
    }
}

std::size_t Detection::count(Stream& stream) const {
    Counts counts{};
    stream.download(&counts, counts_, sizeof counts);
    // Octaves without pixels have left a 0.
    const unsigned keypoints = *std::max_element(std::begin(counts.ends), std::end(counts.ends));
    const unsigned extrema =
        *std::max_element(std::begin(counts.extrema), std::end(counts.extrema));
    const unsigned most = std::max(keypoints, extrema);
    if (most > capacity_) {
        throw Failure(NotEnoughResources, "the image has " + std::to_string(most) +
                                              " extrema or keypoints, there is room for " +
                                              std::to_string(capacity_));
    }
    return keypoints;
}

}  // namespace marlo::gpu
