// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/image.h"

namespace marlo::detail {

/// First to last position of boxes in one direction.
struct BoxRange {
    Eigen::Index first = 0;
    Eigen::Index last = 0;
};

/// The positions at which the boxes of an image with `length` rows (or columns) differ: those
/// before have the mean of the first, those behind the mean of the last.
inline BoxRange differentBoxes(Eigen::Index length) {
    return {-4, length + 2};
}

/// Means, rounded down, of boxes of 8 x 8 pixels in a part of an image: that at (row, col) has rows
/// row - 3 to row + 4 and columns col - 3 to col + 4. The image goes on beyond its borders with the
/// pixels at them.
///
/// They are what differences of an integral image give, divided by 64 and truncated: whatever the
/// integral image counts before the box cancels, also modulo 2^32. But a mean is a byte instead of
/// four words, it is read by one load instead of four, and the part stays in cache.
class BoxMeans {
public:
    /// For parts of at most `side` rows and columns.
    BoxMeans(const ByteImage& image, std::ptrdiff_t side);

    /// Computes the means at `rows` x `cols`, of which at least one is in differentBoxes() of each
    /// direction. Those of an earlier part are gone.
    void compute(BoxRange rows, BoxRange cols);

    /// Where the mean at (row, col) is; the next column is the next byte.
    [[nodiscard]] const unsigned char* at(Eigen::Index row, Eigen::Index col) const {
        return means_.data() + ((row - firstRow_) * stride_ + (col - firstCol_));
    }
    /// Bytes from one row to the next, for all parts the same.
    [[nodiscard]] std::ptrdiff_t stride() const { return stride_; }

private:
    const ByteImage& image_;
    std::ptrdiff_t stride_;
    Eigen::Index firstRow_ = 0;
    Eigen::Index firstCol_ = 0;
    std::vector<unsigned char> means_;
    std::vector<std::uint16_t> sums_;
};

}  // namespace marlo::detail
