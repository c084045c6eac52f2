// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/desc_matcher_dist_frac.h"

#include "libfeatures/base/detail/hamming_instance.h"
#include "libfeatures/matchers/detail/dist_frac_search.h"
#include "support/system.h"

namespace marlo {

DescMatcherDistFrac::DescMatcherDistFrac() = default;
DescMatcherDistFrac::~DescMatcherDistFrac() = default;

std::unique_ptr<IDescriptorMatcher> DescMatcherDistFrac::clone() const {
    return std::make_unique<DescMatcherDistFrac>(*this);
}

std::vector<DMatch> DescMatcherDistFrac::match(const DescMat& query, const DescMat& train) const {
    std::vector<DMatch> matches;
    if (query.empty() || train.empty()) return matches;
    const system::popcnt_t popcnt = system::hasPOPCNT();
    const QString name = detail::distFracKernelName(query, train, popcnt, kernelName_);
    if (query.type() != DescMat::Byte) {
        kernelName_ = name;
        if (train.type() == query.type() && train.cols == query.cols) {
            matches = detail::distFracFloats(query, train, *this);
        }
    } else if (popcnt == system::PopcntX86 && detail::isLdah(query, train)) {
        matches = detail::distFracHamming128(query, train, *this);
        kernelName_ = name;
    } else {
        kernelName_ = name;
        if (train.cols != query.cols) return matches;
        detail::withHammingInstance(popcnt, query.cols, [&]<system::popcnt_t P, int N>() {
            matches = detail::distFracHamming<P, N>(query, train, *this);
        });
    }
    return matches;
}

QString DescMatcherDistFrac::kernelName() const {
    return kernelName_;
}

}  // namespace marlo
