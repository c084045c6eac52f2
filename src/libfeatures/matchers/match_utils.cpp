// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/match_utils.h"

#include <algorithm>
#include <cassert>
#include <iterator>

namespace marlo {
namespace {

bool isUsable(const Eigen::Vector3d& point) {
    return point.allFinite() && (point.array() != 0.0).any();
}

}  // namespace

void updateWrappedIndices(std::vector<DMatch>& matches, const std::vector<unsigned int>& idx1,
                          const std::vector<unsigned int>& idx2) {
    for (DMatch& match : matches) {
        assert(match.queryIndex < idx1.size() && match.trainIndex < idx2.size());
        match.queryIndex = idx1[match.queryIndex];
        match.trainIndex = idx2[match.trainIndex];
    }
}

void removeInfiniteMatches(std::vector<DMatch>& matches,
                           const std::vector<Eigen::Vector3d>& points1,
                           const std::vector<Eigen::Vector3d>& points2) {
    const auto last = std::remove_if(matches.begin(), matches.end(), [&](const DMatch& match) {
        assert(match.queryIndex < points1.size() && match.trainIndex < points2.size());
        return !isUsable(points1[match.queryIndex]) || !isUsable(points2[match.trainIndex]);
    });
    matches.erase(last, matches.end());
}

std::vector<DMatch> copyBestMatches(const std::vector<DMatch>& matches, float threshold) {
    std::vector<DMatch> best;
    std::copy_if(matches.begin(), matches.end(), std::back_inserter(best),
                 [threshold](const DMatch& match) { return match.distance > threshold; });
    return best;
}

}  // namespace marlo
