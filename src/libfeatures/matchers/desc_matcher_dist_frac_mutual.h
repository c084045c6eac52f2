// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QString>
#include <memory>
#include <vector>

#include "libfeatures/base/d_match.h"
#include "libfeatures/features_export.h"
#include "libfeatures/matchers/desc_matcher_dist_frac_base.h"
#include "libfeatures/matchers/i_descriptor_matcher.h"
#include "support/desc_mat.h"

namespace marlo {

/// Mutual nearest neighbours that pass the ratio test: the matches of DescMatcherDistFrac whose
/// query row is also the nearest of their train row. So no row appears in two matches. Both
/// directions come from one comparison of all rows with all rows.
///
/// The ratio test and the score are those of the query row, so swapping the matrices gives other
/// matches. Of query rows at the same distance from a train row the first is its nearest. Accepts
/// what DescMatcherDistFrac accepts, and has the same parameters. Runs on OpenMP threads, as many
/// as the caller's setting allows, which it leaves alone; the results are the same for any number
/// of them and on any processor. Memory as for DescMatcherDistFrac, and 8 bytes (floats: 12) a
/// train row and thread.
///
/// Use an object from one thread at a time: match() records the kernel that it used.
class FEATURES_EXPORT DescMatcherDistFracMutual : public IDescriptorMatcher,
                                                  public DescMatcherDistFracBase {
public:
    DescMatcherDistFracMutual();
    ~DescMatcherDistFracMutual() override;

    [[nodiscard]] std::unique_ptr<IDescriptorMatcher> clone() const override;

    /// As DescMatcherDistFrac::match(): the same scores in the same order.
    /// @throws std::bad_alloc if there is not enough memory.
    [[nodiscard]] std::vector<DMatch> match(const DescMat& query,
                                            const DescMat& train) const override;

    /// As DescMatcherDistFrac::kernelName().
    [[nodiscard]] QString kernelName() const override;
};

}  // namespace marlo
