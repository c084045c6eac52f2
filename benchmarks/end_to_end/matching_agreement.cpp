// SPDX-License-Identifier: BSD-3-Clause
#include "end_to_end/matching_agreement.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <tuple>

#include "libfeatures/matchers/desc_matcher_dist_frac.h"
#include "libfeatures/matchers/desc_matcher_dist_frac_mutual.h"
#include "libfeatures/matchers/desc_matcher_left_right.h"
#include "support/sift_distance.h"
#include "support/thread_count_guard.h"

namespace marlo::bench {
namespace {

struct Limits {
    const char* name;
    float distance;
    float fraction;
};

constexpr Limits kOwnLimits{"own limits", 50.0F, 0.8F};  // float rows: no limit but the ratio
constexpr Limits kNoLimits{"no limits", 1e6F, 1.0F};

template <typename Matcher>
std::vector<DMatch> matchesOf(const DescMat& query, const DescMat& train, const Limits& limits) {
    const ThreadCountGuard guard;
    Matcher matcher;
    matcher.DescMatcherDistFracBase::setParams(static_cast<unsigned>(limits.distance),
                                               limits.fraction);
    return matcher.match(query, train);
}

bool sameMatch(const DMatch& a, const DMatch& b) {
    return a == b && a.distance == b.distance;
}

bool sameMatches(const std::vector<DMatch>& a, const std::vector<DMatch>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), sameMatch);
}

// What the ratio test makes of the neighbours, best first.
std::vector<DMatch> acceptedMatches(const Neighbours& found, const Limits& limits, bool binary) {
    std::vector<DMatch> matches;
    for (std::size_t q = 0; q < found.nearest.size(); ++q) {
        if (found.nearest[q] < 0 || found.secondDistance[q] == 0.0F) continue;
        if (binary && found.distance[q] > limits.distance) continue;
        const float ratio = found.distance[q] / found.secondDistance[q];
        if (ratio < limits.fraction) {
            matches.emplace_back(static_cast<unsigned>(q), static_cast<unsigned>(found.nearest[q]),
                                 1.0F - ratio);
        }
    }
    std::sort(matches.begin(), matches.end(), [](const DMatch& a, const DMatch& b) {
        return std::tie(a.distance, a.queryIndex, a.trainIndex) >
               std::tie(b.distance, b.queryIndex, b.trainIndex);
    });
    return matches;
}

// The train row of each query row, -1 where it has no match.
std::vector<int> trainRows(const std::vector<DMatch>& matches, int queryRows) {
    std::vector<int> rows(static_cast<std::size_t>(queryRows), -1);
    for (const DMatch& match : matches) rows[match.queryIndex] = static_cast<int>(match.trainIndex);
    return rows;
}

bool report(const char* what, bool holds) {
    std::printf("  %-58s%s\n", what, holds ? "equal" : "DIFFERENT");
    return holds;
}

// ---- binary rows -----------------------------------------------------------------------------

int hammingDistance(const DescMat& a, int rowOfA, const DescMat& b, int rowOfB) {
    const unsigned char* const bytesA = a.data + static_cast<std::size_t>(rowOfA) * a.step;
    const unsigned char* const bytesB = b.data + static_cast<std::size_t>(rowOfB) * b.step;
    int distance = 0;
    for (std::size_t i = 0; i < a.step; ++i) {
        distance += std::popcount(static_cast<unsigned char>(bytesA[i] ^ bytesB[i]));
    }
    return distance;
}

bool checkBinaryPeer(const DescMat& query, const DescMat& train, const Neighbours& exact,
                     const MatchingSystem& peer) {
    const Neighbours found = peer.neighbours();
    if (found.nearest.size() != exact.nearest.size()) return report(peer.name.c_str(), false);
    int ties = 0;
    for (std::size_t q = 0; q < found.nearest.size(); ++q) {
        const int row = found.nearest[q];
        const bool sameDistances = found.distance[q] == exact.distance[q] &&
                                   found.secondDistance[q] == exact.secondDistance[q];
        if (!sameDistances || row < 0) return report(peer.name.c_str(), false);
        if (row == exact.nearest[q]) continue;
        ++ties;
        const int distance = hammingDistance(query, static_cast<int>(q), train, row);
        if (static_cast<float>(distance) != exact.distance[q]) {
            return report(peer.name.c_str(), false);
        }
    }
    std::printf("  %-58sequal, %d ties named otherwise\n", peer.name.c_str(), ties);
    return true;
}

bool checkBinaryMatchers(const DescMat& query, const DescMat& train, const Neighbours& exact) {
    const auto reverseLoop = makeBitCountLoop(train, query, 4);
    reverseLoop->run();
    const std::vector<int> reverse = reverseLoop->neighbours().nearest;
    const auto isMutual = [&](unsigned q, unsigned t) { return reverse[t] == static_cast<int>(q); };

    bool good = true;
    for (const Limits& limits : {kOwnLimits, kNoLimits}) {
        std::vector<DMatch> expected = acceptedMatches(exact, limits, true);
        char what[80];
        std::snprintf(what, sizeof what, "DistFrac, %s: %zu matches", limits.name, expected.size());
        good &= report(what,
                       sameMatches(matchesOf<DescMatcherDistFrac>(query, train, limits), expected));

        std::erase_if(expected, [&](const DMatch& match) {
            return !isMutual(match.queryIndex, match.trainIndex);
        });
        std::snprintf(what, sizeof what, "DistFracMutual, %s: %zu matches", limits.name,
                      expected.size());
        good &= report(what, sameMatches(matchesOf<DescMatcherDistFracMutual>(query, train, limits),
                                         expected));
    }

    std::vector<DMatch> expected;
    for (std::size_t i = 0; i < exact.nearest.size(); ++i) {
        const auto q = static_cast<unsigned>(i);
        const auto t = static_cast<unsigned>(exact.nearest[i]);
        if (isMutual(q, t)) expected.emplace_back(q, t, 1.0F);
    }
    char what[80];
    std::snprintf(what, sizeof what, "LeftRight: %zu matches", expected.size());
    good &= report(what, sameMatches(DescMatcherLeftRight().match(query, train), expected));
    return good;
}

// ---- float rows ------------------------------------------------------------------------------

struct Differences {
    int rows = 0;         // the peer names another row
    int peersNearer = 0;  // and it is nearer: this library would be wrong
};

Differences compareNearest(const DescMat& query, const DescMat& train,
                           const std::vector<int>& nearest, const Neighbours& peer) {
    Differences differences;
    for (int q = 0; q < query.rows; ++q) {
        const int own = nearest[static_cast<std::size_t>(q)];
        const int other = peer.nearest[static_cast<std::size_t>(q)];
        if (own == other || own < 0 || other < 0) continue;
        ++differences.rows;
        const DescMat row = query.row(q);
        const float distance = cvSiftDistance(row, train.row(other));
        if (distance < cvSiftDistance(row, train.row(own))) ++differences.peersNearer;
    }
    return differences;
}

bool checkFloatPeer(const DescMat& query, const DescMat& train, const Limits& limits,
                    const std::vector<DMatch>& own, const MatchingSystem& peer) {
    const Neighbours found = peer.neighbours();
    if (found.nearest.empty()) return true;  // a product, no search
    if (found.nearest.size() != static_cast<std::size_t>(query.rows)) {
        return report(peer.name.c_str(), false);
    }
    const auto others = acceptedMatches(found, limits, false);
    const std::vector<int> ownRows = trainRows(own, query.rows);
    const std::vector<int> otherRows = trainRows(others, query.rows);
    int changed = 0;
    for (std::size_t q = 0; q < ownRows.size(); ++q) changed += ownRows[q] != otherRows[q];
    const Differences nearest = compareNearest(query, train, ownRows, found);
    std::printf(
        "  %s, %s: %zu matches, DistFrac %zu; %d query rows matched otherwise; it names another "
        "nearest row %d times, %d times a nearer one\n",
        peer.name.c_str(), limits.name, others.size(), own.size(), changed, nearest.rows,
        nearest.peersNearer);
    return nearest.peersNearer == 0;
}

// Float rows have no other exact search to compare with: the mutual matches are those whose train
// row, searched the other way round, names the same query row (`reverse`; -1 if two are nearest).
bool checkFloatMutual(const DescMat& query, const DescMat& train, const Limits& limits,
                      std::vector<DMatch> expected, const std::vector<int>& reverse) {
    auto found = matchesOf<DescMatcherDistFracMutual>(query, train, limits);
    char what[80];
    std::snprintf(what, sizeof what, "DistFracMutual, %s: %zu matches", limits.name, found.size());
    const auto isOpen = [&](const DMatch& match) { return reverse[match.trainIndex] < 0; };
    std::erase_if(found, isOpen);
    std::erase_if(expected, [&](const DMatch& match) {
        return reverse[match.trainIndex] != static_cast<int>(match.queryIndex);
    });
    return report(what, sameMatches(found, expected));
}

bool checkFloats(const DescMat& query, const DescMat& train,
                 const std::vector<const MatchingSystem*>& peers) {
    const std::vector<int> reverse =
        trainRows(matchesOf<DescMatcherDistFrac>(train, query, kNoLimits), train.rows);
    bool good = true;
    for (const Limits& limits : {kOwnLimits, kNoLimits}) {
        const auto own = matchesOf<DescMatcherDistFrac>(query, train, limits);
        for (const MatchingSystem* peer : peers) {
            good &= checkFloatPeer(query, train, limits, own, *peer);
        }
        good &= checkFloatMutual(query, train, limits, own, reverse);
    }
    return good;
}

bool checkBits(const DescMat& query, const DescMat& train,
               const std::vector<const MatchingSystem*>& peers) {
    const auto loop = makeBitCountLoop(query, train, 1);
    loop->run();
    const Neighbours exact = loop->neighbours();
    bool good = true;
    for (const MatchingSystem* peer : peers) good &= checkBinaryPeer(query, train, exact, *peer);
    return checkBinaryMatchers(query, train, exact) && good;
}

}  // namespace

bool checkAgreement(const DescMat& query, const DescMat& train,
                    const std::vector<const MatchingSystem*>& peers) {
    const bool binary = query.type() == DescMat::Byte;
    std::printf("agreement with %s\n", binary ? "the bit-count loop" : "the searches of others");
    const bool good = binary ? checkBits(query, train, peers) : checkFloats(query, train, peers);
    std::fflush(stdout);
    return good;
}

}  // namespace marlo::bench
