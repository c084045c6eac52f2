// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <memory>
#include <vector>

#include "libfeatures/base/d_match.h"
#include "libfeatures/features_export.h"
#include "libfeatures/matchers/desc_matcher_dist_frac.h"
#include "libfeatures/matchers/i_descriptor_matcher.h"
#include "support/desc_mat.h"

namespace marlo {

/// DescMatcherDistFrac whose nearest and second-nearest rows the GPU library finds: the same
/// parameters, the same matches in the same order.
///
/// The GPU is asked where it pays and can read the rows: binary rows, at least 1024 on each side,
/// of one width and stored without gaps. Everything else, and what the GPU fails at, goes to the
/// CPU without a word, and what DescMatcherDistFrac says about the number of threads holds then;
/// kernelName() tells which of the two it was.
///
/// Use an object from one thread at a time: match() records the kernel that it used.
class FEATURES_EXPORT DescMatcherDistFracCuda : public DescMatcherDistFrac {
public:
    DescMatcherDistFracCuda();
    ~DescMatcherDistFracCuda() override;

    [[nodiscard]] std::unique_ptr<IDescriptorMatcher> clone() const override;

    /// As DescMatcherDistFrac::match(). kernelName() is the description of the GPU afterwards if
    /// the GPU found the rows or if a matrix was empty.
    /// @throws std::bad_alloc if there is not enough memory.
    [[nodiscard]] std::vector<DMatch> match(const DescMat& query,
                                            const DescMat& train) const override;
};

}  // namespace marlo
