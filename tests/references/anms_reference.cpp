// SPDX-License-Identifier: BSD-3-Clause
#include "references/anms_reference.h"

#include <algorithm>
#include <cmath>

namespace marlo::test {
namespace {

bool isStronger(const Keypoint& a, const Keypoint& b) {
    for (const auto field : {&Keypoint::response, &Keypoint::angle, &Keypoint::x, &Keypoint::y}) {
        if (a.*field > b.*field) return true;
        if (a.*field < b.*field) return false;
    }
    return false;
}

std::uint32_t squaredDistance(const Keypoint& p, const Keypoint& q) {
    volatile float dx = p.x - q.x;  // each product and the sum are rounded on their own
    volatile float dy = p.y - q.y;
    volatile float xx = dx * dx;
    volatile float yy = dy * dy;
    volatile float sum = xx + yy;
    std::int64_t whole = INT64_MIN;
    if (sum < 9.0e18F) whole = static_cast<std::int64_t>(sum);
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(whole) & 0xFFFFFFFFU);
}

}  // namespace

const std::vector<SlowAnms::Record>& SlowAnms::call(const std::vector<Keypoint>& in) {
    std::vector<Keypoint> sorted = in;
    std::stable_sort(sorted.begin(), sorted.end(), isStronger);
    const float r = 1.0F / robustness_;
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        const Keypoint& p = sorted[i];
        std::size_t k = 0;
        if (variant_ == "ANMS") {
            while (k < records_.size() &&
                   p.response < records_[k].keypoint.response * robustness_) {
                ++k;
            }
        } else if (variant_ == "ANMSOrig") {
            volatile float quotient = p.response / r;
            const float up = std::ceil(quotient);
            std::int32_t whole = INT32_MIN;
            if (up >= -2147483648.0F && up < 2147483648.0F) whole = static_cast<std::int32_t>(up);
            const auto t = static_cast<float>(whole);
            while (k < records_.size() && records_[k].keypoint.response >= t) ++k;
        } else {
            std::size_t low = 0;
            std::size_t high = records_.size();
            while (low < high) {
                const std::size_t middle = low + (high - low) / 2;
                if (records_[middle].keypoint.response >= p.response * r) {
                    low = middle + 1;
                } else {
                    high = middle;
                }
            }
            k = low;
        }
        std::uint32_t radius = 4294967295U;
        for (std::size_t j = 0; j < k; ++j) {
            radius = std::min(radius, squaredDistance(p, records_[j].keypoint));
        }
        Record record{0, radius, p};
        if (variant_ == "ANMSOri") {
            record.position = i;
            if (k > 0 && radius == 0) record.squaredRadius = records_[k - 1].squaredRadius;
        }
        records_.push_back(record);
    }
    std::stable_sort(records_.begin(), records_.end(), [](const Record& a, const Record& b) {
        if (a.squaredRadius != b.squaredRadius) return a.squaredRadius > b.squaredRadius;
        return a.keypoint.response > b.keypoint.response;
    });
    return records_;
}

}  // namespace marlo::test
