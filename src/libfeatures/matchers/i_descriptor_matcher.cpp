// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/i_descriptor_matcher.h"

#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

namespace marlo {
namespace {

DescMat copyOfRows(const DescMat& from, const std::vector<unsigned int>& rows, int type) {
    constexpr auto kMostRows = static_cast<std::size_t>(std::numeric_limits<int>::max());
    if (rows.size() > kMostRows) {
        throw std::length_error("A descriptor matrix cannot have that many rows.");
    }
    DescMat copy(static_cast<int>(rows.size()), from.cols, type);
    // Rows of another type are not written through into the copy; it must not hold old memory.
    if (from.type() != type && !copy.empty()) {
        std::memset(copy.data, 0, copy.step * static_cast<std::size_t>(copy.rows));
    }
    for (int i = 0; i < copy.rows; ++i) {
        const unsigned int row = rows[static_cast<std::size_t>(i)];
        if (row > kMostRows) {
            throw std::out_of_range("DescMat: row " + std::to_string(row) + " of a matrix of " +
                                    std::to_string(from.rows) + " rows");
        }
        DescMat target = copy.row(i);
        from.row(static_cast<int>(row)).copyTo(target);
    }
    return copy;
}

}  // namespace

IDescriptorMatcher::~IDescriptorMatcher() = default;

std::vector<DMatch> IDescriptorMatcher::matchSubset(const DescMat& desc1, const DescMat& desc2,
                                                    const std::vector<unsigned int>& idx1,
                                                    const std::vector<unsigned int>& idx2) const {
    const DescMat sub1 = copyOfRows(desc1, idx1, desc1.type());
    // Of the type of the first: the second matrix is required to be of that type.
    const DescMat sub2 = copyOfRows(desc2, idx2, desc1.type());
    return match(sub1, sub2);
}

}  // namespace marlo
