// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <vector>

#include "libfeatures/base/d_match.h"
#include "libfeatures/matchers/desc_matcher_dist_frac_base.h"
#include "support/desc_mat.h"
#include "utilities/synthetic_images.h"

/// What the matchers are tested with: above all small descriptor matrices with distances that are
/// known by hand or that often tie.
namespace marlo::test {

/// One of a list.
template <typename Values>
const auto& oneOf(const Values& values, Random& random) {
    return values[random.below(static_cast<std::uint32_t>(std::size(values)))];
}

/// A byte matrix whose row i has its first bitCounts[i] bits set, so that two rows are the
/// difference of their counts apart.
DescMat rowsOfBits(int cols, const std::vector<int>& bitCounts);

/// A byte matrix whose row i has bit i set and no other, for every bit of a row.
DescMat rowsOfSingleBits(int cols);

/// A float matrix whose row i is values[i] followed by zeros, so that two rows are the difference
/// of their values apart.
DescMat rowsOfFloats(int cols, const std::vector<float>& values);

DescMat copyOf(const DescMat& matrix);

/// Even odds for every bit.
DescMat randomBits(int rows, int cols, Random& random);
/// Rows of length 1 without negative elements.
DescMat randomUnitRows(int rows, int cols, Random& random);

struct QueryAndTrain {
    DescMat query;
    DescMat train;
};

/// Rows of length 1 of which some lie near one of the other matrix.
QueryAndTrain partlyNearRows(int queryRows, int trainRows, int cols, Random& random);
/// Rows of length 1 that all lie near one another, about as far apart as `noise`: the nearest are
/// hardly nearer than the others.
QueryAndTrain crowdedRows(int queryRows, int trainRows, int cols, float noise, Random& random);

/// All rows are drawn from at most four with a few bits of some flipped: many are equal, and many
/// distances tie.
QueryAndTrain alikeBits(int queryRows, int trainRows, int cols, Random& random);
/// The same with a few elements changed; all elements are from `palette`.
QueryAndTrain alikeFloats(int queryRows, int trainRows, int cols, const std::vector<float>& palette,
                          Random& random);

/// As above with 0 to `mostRows` rows on either side.
QueryAndTrain anyAlikeBits(int mostRows, int cols, Random& random);
/// And with one of several palettes, which make distances tie, round to the same value, overflow,
/// underflow, drown in the lengths of the rows, or differ by orders of magnitude; some hold
/// infinities and NaN.
QueryAndTrain anyAlikeFloats(int mostRows, int cols, Random& random);

/// The rows of a matrix copied into a heap buffer, the first `offset` bytes from its start, with
/// `gap` bytes between two rows. The last ends where the buffer ends, so that the address sanitizer
/// sees any read beyond it.
class RowsApart {
public:
    explicit RowsApart(const DescMat& matrix, std::size_t offset = 1, std::size_t gap = 3);

    /// Valid while this object lives.
    [[nodiscard]] const DescMat& view() const { return view_; }

private:
    std::unique_ptr<unsigned char[]> buffer_;
    DescMat view_;
};
/// With some offset and gap; either may be 0, odd, or a multiple of the size of a float.
RowsApart anywhere(const DescMat& matrix, Random& random);

/// Limits and fractions around those that decide about alike rows, and far beyond.
void setAnyParameters(DescMatcherDistFracBase& parameters, Random& random);

/// Whether the same rows are matched in the same order, with scores of the same bits.
testing::AssertionResult sameMatches(const std::vector<DMatch>& actual,
                                     const std::vector<DMatch>& expected);

}  // namespace marlo::test
