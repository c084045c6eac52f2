// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/similar_photographs.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "libfeatures/histogram/feature_histogram.h"
#include "marlo/interruption.h"

namespace marlo::app {
namespace {

// What the counts are scaled to add up to: so many that rounding does not tell, and so few that
// distances are nowhere near 2^31.
constexpr std::uint64_t kSum = 1U << 24;

struct Described {
    std::int64_t id;
    std::string kind;
    FeatureHistogram histogram;
};

FeatureHistogram scaledHistogram(const DescMat& rows) {
    FeatureHistogram histogram(rows.type() == DescMat::Float ? DescriptorType::SIFT
                                                             : DescriptorType::LDAH);
    histogram.classify(rows);
    const auto count = static_cast<std::uint64_t>(rows.rows);
    for (std::uint32_t& bin : histogram.bins) {
        bin = static_cast<std::uint32_t>((bin * kSum + count / 2) / count);
    }
    return histogram;
}

// The ids of the `most` that are most like `one`.
std::vector<std::int64_t> mostSimilar(const Described& one, const std::vector<Described>& all,
                                      std::size_t most) {
    std::vector<std::pair<long, std::size_t>> others;  // by distance, then by place in the list
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (all[i].id == one.id || all[i].kind != one.kind) continue;
        others.emplace_back(one.histogram.distance(all[i].histogram), i);
    }
    const std::size_t count = std::min(most, others.size());
    std::partial_sort(others.begin(), others.begin() + static_cast<std::ptrdiff_t>(count),
                      others.end());
    std::vector<std::int64_t> ids;
    for (std::size_t i = 0; i < count; ++i) ids.push_back(all[others[i].second].id);
    return ids;
}

}  // namespace

std::set<PairOfIds> pairsOfSimilar(const Project& project,
                                   const std::vector<Photograph>& photographs, std::size_t most,
                                   const std::function<std::string(const Photograph&)>& kindOfRows,
                                   Progress& progress) {
    std::vector<Described> all;
    progress.begin("compare", "photographs", photographs.size());
    for (const Photograph& photograph : photographs) {
        if (interruption() != 0) break;
        const Features features = project.features(photograph.id);
        if (!features.rows.empty()) {
            all.push_back({photograph.id, kindOfRows(photograph), scaledHistogram(features.rows)});
        }
        progress.advance();
    }
    progress.end();

    std::set<PairOfIds> pairs;
    for (const Described& one : all) {
        if (interruption() != 0) return {};
        for (const std::int64_t other : mostSimilar(one, all, most)) {
            pairs.insert({std::min(one.id, other), std::max(one.id, other)});
        }
    }
    return pairs;
}

}  // namespace marlo::app
