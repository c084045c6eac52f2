// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "libfeatures/base/keypoint.h"

namespace marlo::test {

/// Adaptive non-maximal suppression by its definition: every keypoint is compared with every one
/// that suppresses it. Objects keep their records between calls.
class SlowAnms {
public:
    struct Record {
        std::uint64_t position;
        std::uint32_t squaredRadius;
        Keypoint keypoint;
    };

    /// `variant`: "ANMS", "ANMSBound", "ANMSOri" or "ANMSOrig".
    SlowAnms(std::string variant, float robustness)
        : variant_(std::move(variant)), robustness_(robustness) {}

    /// All records after a call, in their final order.
    const std::vector<Record>& call(const std::vector<Keypoint>& in);

private:
    std::string variant_;
    float robustness_;
    std::vector<Record> records_;
};

}  // namespace marlo::test
