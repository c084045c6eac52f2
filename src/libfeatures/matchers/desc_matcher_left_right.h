// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QString>
#include <memory>
#include <vector>

#include "libfeatures/base/d_match.h"
#include "libfeatures/features_export.h"
#include "libfeatures/matchers/i_descriptor_matcher.h"
#include "support/desc_mat.h"

namespace marlo {

/// Mutual nearest neighbours of binary rows by Hamming distance: a query row and a train row match
/// when each is the nearest of the other. No ratio test, no limit, no parameters. Of rows at the
/// same distance the first is the nearest, on either side.
///
/// Both directions come from one comparison of all rows with all rows, on the calling thread.
/// Concurrent calls on one object are safe. Memory beyond the result: twice the train rows and a
/// few bytes a row.
class FEATURES_EXPORT DescMatcherLeftRight : public IDescriptorMatcher {
public:
    DescMatcherLeftRight();
    ~DescMatcherLeftRight() override;

    [[nodiscard]] std::unique_ptr<IDescriptorMatcher> clone() const override;

    /// In the order of the query rows; the `distance` of every match is 1.
    ///
    /// The rows are read as 64-bit words whatever their type: 1, 2, 4, 8 or 16 words for 8, 16, 32,
    /// 64 or 128 columns (of float rows the first bytes). No matches and no error for an empty
    /// matrix, other widths, and matrices of different widths.
    /// @throws std::bad_alloc if there is not enough memory.
    [[nodiscard]] std::vector<DMatch> match(const DescMat& query,
                                            const DescMat& train) const override;

    /// "CPU SSE", "CPU ARM" or empty, by the processor's bit count, before and after any match().
    [[nodiscard]] QString kernelName() const override;
};

}  // namespace marlo
