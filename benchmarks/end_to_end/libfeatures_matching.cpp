// SPDX-License-Identifier: BSD-3-Clause
#include <utility>

#include "end_to_end/matching_systems.h"
#include "support/thread_count_guard.h"

namespace marlo::bench {

LibfeaturesMatching::LibfeaturesMatching(std::string systemName,
                                         std::unique_ptr<IDescriptorMatcher> matcher,
                                         const DescMat& query, const DescMat& train)
    : matcher_(std::move(matcher)), query_(query), train_(train) {
    name = std::move(systemName);
}

void LibfeaturesMatching::run() {
    // DistFrac leaves a thread count of 1 behind, which the next system would inherit.
    const ThreadCountGuard guard;
    matches_ = matcher_->match(query_, train_);
}

}  // namespace marlo::bench
