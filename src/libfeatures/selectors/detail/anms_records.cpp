// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/detail/anms_records.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numeric>
#include <utility>

#include "libfeatures/selectors/detail/point_grid.h"

namespace marlo::detail {
namespace {

constexpr std::uint32_t kLargestRadius = std::numeric_limits<std::uint32_t>::max();

// The 32-bit integer of a float, as the x86 conversion gives it: the smallest for what has none.
float roundedUp(float value) {
    constexpr float kLimit = 2147483648.0F;
    const float whole = std::ceil(value);
    return whole >= -kLimit && whole < kLimit ? static_cast<float>(static_cast<std::int32_t>(whole))
                                              : -kLimit;
}

// Whether one record suppresses a keypoint.
class Dominance {
public:
    Dominance(AnmsRule rule, float robustness)
        : rule_(rule), factor_(robustness), inverse_(1.0F / robustness) {}

    // What the records' responses are compared with, for a keypoint of this response.
    [[nodiscard]] float threshold(float response) const {
        switch (rule_) {
            case AnmsRule::multiplied:
                return response;
            case AnmsRule::divided:
            case AnmsRule::coincident:
                return response * inverse_;
            case AnmsRule::rounded:
                break;
        }
        return roundedUp(response / inverse_);
    }
    [[nodiscard]] bool operator()(float response, float threshold) const {
        return rule_ == AnmsRule::multiplied ? threshold < response * factor_
                                             : response >= threshold;
    }

    // Whether thresholds fall with the responses, and records that suppress come first, for
    // responses in falling order.
    [[nodiscard]] bool isOrdered(const std::vector<Keypoint>& sorted) const {
        const bool usable =
            factor_ > 0.0F && std::isfinite(factor_) && inverse_ > 0.0F && std::isfinite(inverse_);
        if (!usable) return false;
        float before = std::numeric_limits<float>::infinity();
        float thresholdBefore = before;
        for (const Keypoint& keypoint : sorted) {
            const float now = threshold(keypoint.response);
            if (!(keypoint.response <= before && now <= thresholdBefore)) return false;
            before = keypoint.response;
            thresholdBefore = now;
        }
        return true;
    }

private:
    AnmsRule rule_;
    float factor_;
    float inverse_;
};

// Of the leading records, by a scan or by bisection, which differ where the order does not hold.
std::size_t dominatingRecords(AnmsRule rule, const Dominance& dominates, float threshold,
                              const std::vector<AnmsRecord>& records) {
    const auto isDominating = [&](const AnmsRecord& record) {
        return dominates(record.keypoint.response, threshold);
    };
    const bool bisected = rule == AnmsRule::divided || rule == AnmsRule::coincident;
    const auto end = bisected ? std::partition_point(records.begin(), records.end(), isDominating)
                              : std::find_if_not(records.begin(), records.end(), isDominating);
    return static_cast<std::size_t>(end - records.begin());
}

// The rule as it stands, for any records and responses.
void appendByScan(AnmsRule rule, const Dominance& dominates, const std::vector<Keypoint>& sorted,
                  std::vector<AnmsRecord>& records) {
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        const Keypoint& keypoint = sorted[i];
        const std::size_t count =
            dominatingRecords(rule, dominates, dominates.threshold(keypoint.response), records);
        std::uint32_t radius = kLargestRadius;
        for (std::size_t j = 0; j < count; ++j) {
            const Keypoint& stronger = records[j].keypoint;
            radius =
                std::min(radius, squaredDistance(keypoint.x, keypoint.y, stronger.x, stronger.y));
        }
        const bool coincident = rule == AnmsRule::coincident;
        if (coincident && count > 0 && radius == 0) radius = records[count - 1].squaredRadius;
        records.push_back({coincident ? i : 0, radius, keypoint});
    }
}

// Of the keypoints before each, how many suppress it: the strongest, and more and more of them.
std::vector<std::uint32_t> countsOfStronger(const Dominance& dominates,
                                            const std::vector<Keypoint>& sorted) {
    std::vector<std::uint32_t> counts(sorted.size());
    std::uint32_t count = 0;
    for (std::uint32_t i = 0; i < sorted.size(); ++i) {
        const float threshold = dominates.threshold(sorted[i].response);
        while (count < i && dominates(sorted[count].response, threshold)) ++count;
        counts[i] = count;
    }
    return counts;
}

// The positions begin ... end - 1 of `sorted`, by the cells that they lie in.
std::vector<std::uint32_t> byCells(const PointGrid& grid, const std::vector<Keypoint>& sorted,
                                   std::size_t begin, std::size_t end) {
    std::vector<std::uint32_t> places(grid.numberOfCells());
    std::vector<std::uint32_t> cells(end - begin);
    for (std::size_t i = begin; i < end; ++i) {
        cells[i - begin] = static_cast<std::uint32_t>(grid.cellOf(sorted[i]));
        ++places[cells[i - begin]];
    }
    std::exclusive_scan(places.begin(), places.end(), places.begin(), 0U);
    std::vector<std::uint32_t> ordered(end - begin);
    for (std::size_t i = begin; i < end; ++i) {
        ordered[places[cells[i - begin]]++] = static_cast<std::uint32_t>(i);
    }
    return ordered;
}

// By grids that hold more and more of the strongest keypoints, each for the keypoints that at least
// a quarter of it suppresses; one cell after the other, so that the next search finds in the
// processor's cache what the last has used.
std::vector<std::uint32_t> radiiByGrids(const std::vector<Keypoint>& sorted, const Bounds& bounds,
                                        const std::vector<std::uint32_t>& counts) {
    constexpr std::size_t kFirst = 32;
    constexpr std::size_t kGrowth = 4;
    std::vector<std::uint32_t> radii(sorted.size(), kLargestRadius);
    auto begin = static_cast<std::size_t>(std::upper_bound(counts.begin(), counts.end(), 0U) -
                                          counts.begin());
    for (std::size_t held = std::min(kFirst, sorted.size()); begin < sorted.size();
         held = std::min(kGrowth * held, sorted.size())) {
        const auto end = static_cast<std::size_t>(
            std::upper_bound(counts.begin(), counts.end(), static_cast<std::uint32_t>(held)) -
            counts.begin());
        if (end == begin) continue;
        const PointGrid grid(sorted, bounds, held);
        for (const std::uint32_t i : byCells(grid, sorted, begin, end)) {
            radii[i] = grid.nearest(sorted[i], counts[i]);
        }
        begin = end;
    }
    return radii;
}

// The same as appendByScan() for keypoints in order.
void appendByGrid(AnmsRule rule, const Dominance& dominates, const std::vector<Keypoint>& sorted,
                  const Bounds& bounds, std::vector<AnmsRecord>& records) {
    const std::vector<std::uint32_t> counts = countsOfStronger(dominates, sorted);
    const std::vector<std::uint32_t> radii = radiiByGrids(sorted, bounds, counts);
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        const bool coincident = rule == AnmsRule::coincident;
        std::uint32_t radius = radii[i];
        if (coincident && radius == 0) radius = records[counts[i] - 1].squaredRadius;
        records.push_back({coincident ? i : 0, radius, sorted[i]});
    }
}

// Whole numbers in the order of the floats, the larger first; zeros are equal.
std::uint32_t fallingKey(float value) {
    const auto bits = std::bit_cast<std::uint32_t>(value + 0.0F);
    const std::uint32_t rising = (bits >> 31U) != 0 ? ~bits : bits | 0x80000000U;
    return ~rising;
}

// What a record is ordered by, the smallest first; less to move about than a record.
struct Key {
    std::uint64_t falling;
    std::uint32_t index;
};

// Equal keys keep their order. Bytes that are the same in all keys, as the first of most radii,
// cost nothing.
void sortByBytes(std::vector<Key>& keys) {
    constexpr std::size_t kBytes = sizeof(Key::falling);
    const auto byteOf = [](const Key& key, std::size_t byte) {
        return static_cast<std::size_t>(key.falling >> 8 * byte & 0xFFU);
    };
    std::array<std::array<std::size_t, 256>, kBytes> counts{};
    for (const Key& key : keys) {
        for (std::size_t byte = 0; byte < kBytes; ++byte) ++counts[byte][byteOf(key, byte)];
    }
    std::vector<Key> sorted(keys.size());
    for (std::size_t byte = 0; byte < kBytes; ++byte) {
        auto& places = counts[byte];
        if (places[byteOf(keys.front(), byte)] == keys.size()) continue;
        std::exclusive_scan(places.begin(), places.end(), places.begin(), std::size_t{0});
        for (const Key& key : keys) sorted[places[byteOf(key, byte)]++] = key;
        keys.swap(sorted);
    }
}

}  // namespace

void appendAnmsRecords(AnmsRule rule, float robustness, const std::vector<Keypoint>& sorted,
                       std::vector<AnmsRecord>& records) {
    const bool isFirstCall = records.empty();
    records.reserve(records.size() + sorted.size());
    const Dominance dominates(rule, robustness);
    const Bounds bounds = boundsOf(sorted);
    // Cells, which are three times as many at most, are numbered with 32 bits.
    const bool fits = sorted.size() < std::numeric_limits<std::uint32_t>::max() / 4;
    if (isFirstCall && fits && dominates.isOrdered(sorted) && PointGrid::canHold(bounds)) {
        appendByGrid(rule, dominates, sorted, bounds, records);
    } else {
        appendByScan(rule, dominates, sorted, records);
    }
}

void sortLargestRadiusFirst(std::vector<AnmsRecord>& records) {
    const bool areNumbers =
        std::none_of(records.begin(), records.end(),
                     [](const AnmsRecord& record) { return std::isnan(record.keypoint.response); });
    if (!areNumbers || records.size() > std::numeric_limits<std::uint32_t>::max()) {
        // A merge sort compares only within the list whatever NaN answers.
        std::stable_sort(records.begin(), records.end(),
                         [](const AnmsRecord& a, const AnmsRecord& b) {
                             if (a.squaredRadius != b.squaredRadius) {
                                 return a.squaredRadius > b.squaredRadius;
                             }
                             return a.keypoint.response > b.keypoint.response;
                         });
        return;
    }
    std::vector<Key> keys(records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        const std::uint64_t radius = ~records[i].squaredRadius;
        keys[i] = {radius << 32U | fallingKey(records[i].keypoint.response),
                   static_cast<std::uint32_t>(i)};
    }
    sortByBytes(keys);
    std::vector<AnmsRecord> ordered;
    ordered.reserve(records.capacity());
    for (const Key& key : keys) ordered.push_back(records[key.index]);
    records = std::move(ordered);
}

}  // namespace marlo::detail
