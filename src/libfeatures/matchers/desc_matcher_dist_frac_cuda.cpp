// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/desc_matcher_dist_frac_cuda.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include "libfeatures/base/detail/two_nearest.h"
#include "libfeatures/matchers/detail/ratio_test.h"
#include "libmarlocuda/marlocuda.h"

namespace marlo {
namespace {

// Fewer on either side are not worth the way to the GPU and back.
constexpr int kFewestRows = 1024;

std::size_t rowBytes(const DescMat& matrix) {
    return static_cast<std::size_t>(matrix.cols) * matrix.elemSizeBytes();
}

bool isWorthwhile(const DescMat& query, const DescMat& train) {
    return query.type() == DescMat::Byte && query.rows >= kFewestRows && train.rows >= kFewestRows;
}

// The GPU library reads both matrices as rows of the size of a query row, one behind the other.
bool areRowsOfOneSize(const DescMat& query, const DescMat& train) {
    return query.type() == train.type() && query.cols == train.cols &&
           query.step == rowBytes(query) && train.step == rowBytes(train);
}

// Whether the GPU found the nearest rows; `matches` has those that the ratio test accepts then.
bool matchOnGpu(const DescMat& query, const DescMat& train,
                const DescMatcherDistFracBase& parameters, std::vector<DMatch>& matches) {
    const auto queryRows = static_cast<std::size_t>(query.rows);
    std::vector<std::uint32_t> index(queryRows);
    std::vector<std::uint32_t> best(queryRows);
    std::vector<std::uint32_t> second(queryRows);
    const int status =
        mlcHammingDistance(query.data, query.rows, train.data, train.rows, index.data(),
                           best.data(), second.data(), rowBytes(query));
    if (status != 0) return false;
    for (std::uint32_t row = 0; row < queryRows; ++row) {
        const detail::TwoNearest<std::uint32_t> nearest{best[row], second[row], index[row]};
        detail::appendIfDistinct(nearest, row, parameters.maxHammingDistance,
                                 parameters.distanceFraction, matches);
    }
    detail::sortBestFirst(matches);
    return true;
}

QString activeDevice() {
    std::string description;
    cuda::getActiveDeviceString(description);
    return QString::fromStdString(description);
}

}  // namespace

DescMatcherDistFracCuda::DescMatcherDistFracCuda() = default;
DescMatcherDistFracCuda::~DescMatcherDistFracCuda() = default;

std::unique_ptr<IDescriptorMatcher> DescMatcherDistFracCuda::clone() const {
    return std::make_unique<DescMatcherDistFracCuda>(*this);
}

std::vector<DMatch> DescMatcherDistFracCuda::match(const DescMat& query,
                                                   const DescMat& train) const {
    std::vector<DMatch> matches;
    if (query.empty() || train.empty()) {
        kernelName_ = activeDevice();
        return matches;
    }
    if (isWorthwhile(query, train) && areRowsOfOneSize(query, train) &&
        matchOnGpu(query, train, *this, matches)) {
        kernelName_ = activeDevice();
        return matches;
    }
    return DescMatcherDistFrac::match(query, train);
}

}  // namespace marlo
