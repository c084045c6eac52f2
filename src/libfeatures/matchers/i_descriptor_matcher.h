// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QString>
#include <memory>
#include <vector>

#include "libfeatures/base/d_match.h"
#include "libfeatures/features_export.h"
#include "support/desc_mat.h"

namespace marlo {

/// Pairs the rows of two descriptor matrices of the same form. The order of the virtual functions
/// is part of the interface. Unless its class says more, use an object from one thread at a time;
/// clone() gives an independent one for another thread.
class FEATURES_EXPORT IDescriptorMatcher {
public:
    virtual ~IDescriptorMatcher();

    /// A new matcher of the same class with the same parameters.
    [[nodiscard]] virtual std::unique_ptr<IDescriptorMatcher> clone() const = 0;
    /// Matches rows of `query` to rows of `train`.
    [[nodiscard]] virtual std::vector<DMatch> match(const DescMat& query,
                                                    const DescMat& train) const = 0;
    /// The processing kernel ("CPU SSE", "CPU SSE generic", "CPU ARM", "CPU Float", a device), or
    /// an empty text. Matchers with several tell the one of the last match().
    [[nodiscard]] virtual QString kernelName() const = 0;

    /// Matches copies of the rows `idx1` of `desc1` to copies of the rows `idx2` of `desc2`. The
    /// indices of the matches are positions in `idx1` and `idx2`: updateWrappedIndices() turns them
    /// into rows of the full matrices. Both matrices must be of one type; where they are not, the
    /// rows of the second are taken for zeros of the first one's type. Mind that with a single row
    /// in `idx2` a ratio test has nothing to compare with.
    /// @throws std::out_of_range if there is no such row, std::length_error if there are more than
    ///         2^31 - 1 of them, std::bad_alloc, and what match() throws.
    [[nodiscard]] std::vector<DMatch> matchSubset(const DescMat& desc1, const DescMat& desc2,
                                                  const std::vector<unsigned int>& idx1,
                                                  const std::vector<unsigned int>& idx2) const;

protected:
    IDescriptorMatcher() = default;
    IDescriptorMatcher(const IDescriptorMatcher&) = default;
    IDescriptorMatcher& operator=(const IDescriptorMatcher&) = default;
};

}  // namespace marlo
