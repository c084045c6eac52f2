// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <vector>

namespace marlo::tools {

/// Matches, and how many of them geometry confirms.
struct Counts {
    std::size_t matches = 0;
    std::size_t correct = 0;

    void operator+=(const Counts& other);
    /// In percent; 0 without matches.
    [[nodiscard]] double precision() const;
};

/// Distances of keypoints that show the same, and of keypoints that do not.
struct Distances {
    std::vector<float> mates;
    std::vector<float> strangers;

    /// The share of strangers within the distance that holds 95 % of mates. Between two distances
    /// that occur, as between whole numbers of bits, it is interpolated. Neither list is empty.
    [[nodiscard]] double falsePositives() const;
    /// The distance that so many of a hundred mates do not exceed.
    [[nodiscard]] float mateQuantile(std::size_t percent) const;
    [[nodiscard]] double meanOfStrangers() const;
};

}  // namespace marlo::tools
