// SPDX-License-Identifier: BSD-3-Clause
#include "references/histogram_reference.h"

#include <cstddef>

#include "references/matching_reference.h"

namespace marlo::reference {
namespace {

// `distanceTo(row, word)` is the distance of the two, `most` what a distance must be below.
template <typename Distance, typename DistanceTo>
std::vector<std::uint32_t> countNearest(int rows, int words, Distance most, DistanceTo distanceTo) {
    std::vector<std::uint32_t> counts(static_cast<std::size_t>(words), 0);
    for (int row = 0; row < rows; ++row) {
        Distance smallest = most;
        std::size_t index = 0;
        for (int word = 0; word < words; ++word) {
            const Distance distance = distanceTo(row, word);
            if (distance < smallest) {
                smallest = distance;
                index = static_cast<std::size_t>(word);
            }
        }
        ++counts[index];
    }
    return counts;
}

}  // namespace

std::vector<std::uint32_t> countNearestByBits(const DescMat& descriptors, const DescMat& words) {
    constexpr std::uint64_t kMost = 4294967295;
    return countNearest(descriptors.rows, words.rows, kMost, [&](int row, int word) {
        return hammingDistance(descriptors, row, words, word);
    });
}

std::vector<std::uint32_t> countNearestByFloats(const DescMat& descriptors, const DescMat& words) {
    constexpr float kMost = 3.4028235e38F;
    return countNearest(descriptors.rows, words.rows, kMost, [&](int row, int word) {
        return siftDistance(descriptors, row, words, word);
    });
}

}  // namespace marlo::reference
