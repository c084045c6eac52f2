// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <memory>
#include <vector>

#include "end_to_end/matching_systems.h"
#include "support/desc_mat.h"

namespace marlo::bench {

/// Compares what `peers` found in their last run with what the matchers of this library find, with
/// their own limits and with none, so that nearly every row has a match; prints a line for each.
///
/// Binary rows: all must be equal to the bit-count loop, rows at the same distance apart, of which
/// peers may name any. Float rows: peers round their own way. Where they name another row than this
/// library, theirs must not be nearer by cvSiftDistance().
/// False if something does not hold.
bool checkAgreement(const DescMat& query, const DescMat& train,
                    const std::vector<const MatchingSystem*>& peers);

}  // namespace marlo::bench
