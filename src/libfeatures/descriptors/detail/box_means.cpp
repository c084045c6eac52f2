// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/detail/box_means.h"

#include <algorithm>
#include <cassert>

namespace marlo::detail {
namespace {

using Eigen::Index;

constexpr Index kVector = 16;  // means of rows are made in so many, so that no loop has a remainder

constexpr Index inWholeVectors(Index count) {
    return (count + kVector - 1) / kVector * kVector;
}

// Sums of 8 pixels, one below the other, when the box moves down by a row.
void moveDown(const unsigned char* entering, const unsigned char* leaving, Index count,
              std::uint16_t* sums) {
    for (Index i = 0; i < count; ++i) {
        sums[i] = static_cast<std::uint16_t>(sums[i] + entering[i] - leaving[i]);
    }
}

// sums[i] to sums[i + 7] are those of box i. All arithmetic is that of 16 bits, which hold the sum
// of 64 pixels.
void divide(const std::uint16_t* sums, Index vectors, unsigned char* means) {
    const auto plus = [](unsigned a, unsigned b) { return static_cast<std::uint16_t>(a + b); };
    for (Index i = 0; i < vectors * kVector; ++i) {
        const std::uint16_t* const s = sums + i;
        const std::uint16_t sum = plus(plus(plus(s[0], s[1]), plus(s[2], s[3])),
                                       plus(plus(s[4], s[5]), plus(s[6], s[7])));
        means[i] = static_cast<unsigned char>(sum >> 6);
    }
}

}  // namespace

BoxMeans::BoxMeans(const ByteImage& image, std::ptrdiff_t side)
    : image_(image),
      stride_(inWholeVectors(side)),
      means_(static_cast<std::size_t>(side * stride_)),
      sums_(static_cast<std::size_t>(stride_ + 7)) {}

void BoxMeans::compute(BoxRange rows, BoxRange cols) {
    firstRow_ = rows.first;
    firstCol_ = cols.first;
    const Index count = cols.last - cols.first + 1;

    // The columns of the boxes that lie in the image.
    const Index firstInside = std::max<Index>(cols.first - 3, 0);
    const Index lastInside = std::min<Index>(cols.last + 4, image_.cols() - 1);
    const Index inside = lastInside - firstInside + 1;
    assert(count <= stride_ && inside > 0);
    assert((rows.last - rows.first + 1) * stride_ <= static_cast<Index>(means_.size()));
    const auto pixels = [&](Index row) {
        return image_.data() + std::clamp<Index>(row, 0, image_.rows() - 1) * image_.cols() +
               firstInside;
    };

    std::uint16_t* const sums = sums_.data() + (firstInside - (cols.first - 3));
    std::fill(sums_.begin(), sums_.end(), std::uint16_t{0});
    for (Index row = rows.first - 4; row <= rows.first + 3; ++row) {
        const unsigned char* const added = pixels(row);
        for (Index i = 0; i < inside; ++i) sums[i] = static_cast<std::uint16_t>(sums[i] + added[i]);
    }
    unsigned char* means = means_.data();
    for (Index row = rows.first; row <= rows.last; ++row, means += stride_) {
        moveDown(pixels(row + 4), pixels(row - 4), inside, sums);
        std::fill(sums_.data(), sums, sums[0]);
        std::fill(sums + inside, sums_.data() + count + 7, sums[inside - 1]);
        divide(sums_.data(), inWholeVectors(count) / kVector, means);
    }
}

}  // namespace marlo::detail
