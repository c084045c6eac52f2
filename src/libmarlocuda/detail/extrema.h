// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libmarlocuda/detail/extremum.h"
#include "libmarlocuda/detail/memory.h"
#include "libmarlocuda/detail/stream.h"

namespace marlo::gpu {

/// Finds and refines the extrema of an octave.
///
/// One bit a pixel and searched difference says where candidates are. Counting the bits of the
/// words before gives every candidate its place in the order of levels, rows and columns, whichever
/// thread comes first; and of candidates that are refined to the same pixel the first one has it.
class ExtremumSearch {
public:
    /// Takes memory for an octave of rows x cols and `capacity` extrema.
    ExtremumSearch(MemoryPlan& plan, int rows, int cols, long long capacity);

    /// Fills extrema() and writes their number to `*count`, in the GPU's memory. If there are more
    /// than `capacity` they are counted, but not all there.
    void run(Stream& stream, const Octave& octave, unsigned* count);

    /// In order. Those whose pixel an earlier one has are of level 0.
    [[nodiscard]] const Extremum* extrema() const { return extrema_; }

private:
    long long capacity_;
    unsigned* words_;        // the candidates' bits: level, row, 32 columns
    unsigned* owners_;       // by pixel: the least key of the candidates that were refined to it
    unsigned* blockTotals_;  // of scans
    unsigned* keys_;         // of the candidates that could be refined, in order
    Extremum* extrema_;
};

}  // namespace marlo::gpu
