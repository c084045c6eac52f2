// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

#include "libmarlocuda/detail/memory.h"
#include "libmarlocuda/detail/stream.h"

namespace marlo::gpu {

struct TwoNearest;

/// The nearest and second-nearest train row of every query row by Hamming distance. Of train rows
/// at the same distance the first is the nearest and the next the second-nearest.
class HammingSearch {
public:
    /// For rows of 8, 16, 32, 64 or 128 bytes; at least one on either side.
    /// @throws Failure (InvalidArgument) for other rows.
    HammingSearch(MemoryPlan& plan, int queryRows, int trainRows, std::size_t rowBytes);

    /// Where the rows go.
    [[nodiscard]] void* query() const { return query_; }
    [[nodiscard]] void* train() const { return train_; }

    /// Searches the rows that have been put there; the stream does it when it comes to it.
    void run(Stream& stream);

    /// In the GPU's memory, one entry for each query row. The second distance is the largest
    /// unsigned number where there is but one train row.
    [[nodiscard]] const unsigned* bestIndex() const { return bestIndex_; }
    [[nodiscard]] const unsigned* bestDistance() const { return bestDistance_; }
    [[nodiscard]] const unsigned* secondDistance() const { return secondDistance_; }

private:
    int queryRows_;
    int trainRows_;
    int words_;  // of 32 bits, of a row
    int rowsOfChunk_;
    int chunks_;
    unsigned* query_;
    unsigned* train_;
    TwoNearest* found_;  // by chunk and query row
    unsigned* bestIndex_;
    unsigned* bestDistance_;
    unsigned* secondDistance_;
};

}  // namespace marlo::gpu
