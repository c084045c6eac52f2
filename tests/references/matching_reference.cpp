// SPDX-License-Identifier: BSD-3-Clause
#include "references/matching_reference.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <tuple>

namespace marlo::reference {
namespace {

const unsigned char* bytesOf(const DescMat& matrix, int row) {
    return matrix.data + static_cast<std::size_t>(row) * matrix.step;
}

// Copied out, because rows may lie at any address.
template <typename Element>
Element elementAt(const unsigned char* bytes, std::size_t i) {
    Element element;
    std::memcpy(&element, bytes + i * sizeof(Element), sizeof(Element));
    return element;
}

std::size_t numberOfColumns(const DescMat& matrix) {
    return static_cast<std::size_t>(matrix.cols);
}

bool haveWordsOfOneWidth(const DescMat& query, const DescMat& train) {
    constexpr int kWidths[] = {8, 16, 32, 64, 128};
    return query.cols == train.cols &&
           std::find(std::begin(kWidths), std::end(kWidths), query.cols) != std::end(kWidths);
}

// `distanceTo(t)` is the distance to train row t.
template <typename Distance, typename DistanceTo>
TwoNearest<Distance> twoNearest(int trainRows, DistanceTo distanceTo) {
    TwoNearest<Distance> nearest;
    for (int t = 0; t < trainRows; ++t) {
        const Distance d = distanceTo(t);
        if (d < nearest.second && d < nearest.best) {
            nearest.second = nearest.best;
            nearest.best = d;
            nearest.index = static_cast<unsigned int>(t);
        } else if (d < nearest.second) {
            nearest.second = d;
            if (d == 0) {
                break;
            }
        }
    }
    return nearest;
}

template <typename Distance, typename Limit>
void appendIfAccepted(const TwoNearest<Distance>& nearest, int queryRow, Limit limit,
                      float distanceFraction, std::vector<DMatch>& matches) {
    if (!nearest.index || nearest.best > limit || nearest.second == 0) {
        return;
    }
    const float ratio = static_cast<float>(nearest.best) / static_cast<float>(nearest.second);
    if (distanceFraction > ratio) {
        matches.emplace_back(static_cast<unsigned int>(queryRow), *nearest.index, 1.0F - ratio);
    }
}

}  // namespace

std::uint64_t hammingDistance(const DescMat& query, int queryRow, const DescMat& train,
                              int trainRow) {
    const unsigned char* const a = bytesOf(query, queryRow);
    const unsigned char* const b = bytesOf(train, trainRow);
    std::uint64_t distance = 0;
    for (std::size_t word = 0; word < numberOfColumns(query) / 8; ++word) {
        const std::uint64_t difference =
            elementAt<std::uint64_t>(a, word) ^ elementAt<std::uint64_t>(b, word);
        distance += static_cast<std::uint64_t>(std::popcount(difference));
    }
    return distance;
}

float siftDistance(const DescMat& query, int queryRow, const DescMat& train, int trainRow) {
    const unsigned char* const a = bytesOf(query, queryRow);
    const unsigned char* const b = bytesOf(train, trainRow);
    float sums[16] = {};
    for (std::size_t c = 0; c < numberOfColumns(query); ++c) {
        const float difference = elementAt<float>(a, c) - elementAt<float>(b, c);
        sums[c % 16] += difference * difference;
    }
    for (const std::size_t half : {8U, 4U, 2U, 1U}) {
        for (std::size_t i = 0; i < half; ++i) {
            sums[i] += sums[i + half];
        }
    }
    return std::sqrt(sums[0]);
}

TwoNearest<std::uint64_t> twoNearestByBits(const DescMat& query, int queryRow,
                                           const DescMat& train) {
    return twoNearest<std::uint64_t>(
        train.rows, [&](int t) { return hammingDistance(query, queryRow, train, t); });
}

TwoNearest<float> twoNearestByFloats(const DescMat& query, int queryRow, const DescMat& train) {
    return twoNearest<float>(train.rows,
                             [&](int t) { return siftDistance(query, queryRow, train, t); });
}

std::vector<DMatch> distFracMatches(const DescMat& query, const DescMat& train,
                                    unsigned int maxHammingDistance, float maxDistance,
                                    float distanceFraction) {
    std::vector<DMatch> matches;
    if (query.empty() || train.empty()) {
        return matches;
    }
    if (query.type() == DescMat::Byte && haveWordsOfOneWidth(query, train)) {
        for (int q = 0; q < query.rows; ++q) {
            appendIfAccepted(twoNearestByBits(query, q, train), q, maxHammingDistance,
                             distanceFraction, matches);
        }
    }
    if (query.type() == DescMat::Float && train.type() == DescMat::Float &&
        query.cols == train.cols) {
        for (int q = 0; q < query.rows; ++q) {
            appendIfAccepted(twoNearestByFloats(query, q, train), q, maxDistance, distanceFraction,
                             matches);
        }
    }
    std::sort(matches.begin(), matches.end(), [](const DMatch& a, const DMatch& b) {
        return std::tie(a.distance, a.queryIndex, a.trainIndex) >
               std::tie(b.distance, b.queryIndex, b.trainIndex);
    });
    return matches;
}

std::vector<DMatch> distFracMutualMatches(const DescMat& query, const DescMat& train,
                                          unsigned int maxHammingDistance, float maxDistance,
                                          float distanceFraction) {
    std::vector<DMatch> mutual;
    for (const DMatch& match :
         distFracMatches(query, train, maxHammingDistance, maxDistance, distanceFraction)) {
        // Distances are the same both ways round.
        const auto trainRow = static_cast<int>(match.trainIndex);
        const auto nearest = query.type() == DescMat::Byte
                                 ? twoNearestByBits(train, trainRow, query).index
                                 : twoNearestByFloats(train, trainRow, query).index;
        if (nearest == match.queryIndex) {
            mutual.push_back(match);
        }
    }
    return mutual;
}

std::vector<DMatch> leftRightMatches(const DescMat& query, const DescMat& train) {
    std::vector<DMatch> matches;
    if (query.empty() || train.empty() || !haveWordsOfOneWidth(query, train)) {
        return matches;
    }
    constexpr std::uint64_t kNone = 4294967295;
    std::vector<std::uint64_t> bestOfQuery(static_cast<std::size_t>(query.rows), kNone);
    std::vector<std::uint64_t> bestOfTrain(static_cast<std::size_t>(train.rows), kNone);
    std::vector<std::size_t> trainOfQuery(bestOfQuery.size(), 0);
    std::vector<std::size_t> queryOfTrain(bestOfTrain.size(), 0);
    for (std::size_t q = 0; q < bestOfQuery.size(); ++q) {
        for (std::size_t t = 0; t < bestOfTrain.size(); ++t) {
            const std::uint64_t d =
                hammingDistance(query, static_cast<int>(q), train, static_cast<int>(t));
            if (d < bestOfQuery[q]) {
                bestOfQuery[q] = d;
                trainOfQuery[q] = t;
            }
            if (d < bestOfTrain[t]) {
                bestOfTrain[t] = d;
                queryOfTrain[t] = q;
            }
        }
    }
    for (std::size_t q = 0; q < bestOfQuery.size(); ++q) {
        const std::size_t t = trainOfQuery[q];
        if (queryOfTrain[t] == q) {
            matches.emplace_back(static_cast<unsigned int>(q), static_cast<unsigned int>(t), 1.0F);
        }
    }
    return matches;
}

}  // namespace marlo::reference
