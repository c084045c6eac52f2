// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "support/image.h"

/// Descriptors of pairs of boxes, said as plainly as possible: an integral image with a row and a
/// column less than usual, one box after the other.
namespace marlo::reference {

using BriefPoints = std::array<int, 4>;  // dx1, dy1, dx2, dy2
using BriefPattern = std::vector<BriefPoints>;
using BriefRow = std::array<unsigned char, 64>;

struct DrawnBriefPattern {
    BriefPattern entries;
    /// How near the drawing has come to other decisions: the least distance of an offset from a
    /// whole number other than 0 before it was truncated, and of u^2 + v^2 from 1.
    double nearestToAWholeNumber = 1.0;
    double nearestToTheCircle = 1.0;
};

/// Drawn in double precision, but for the even numbers.
DrawnBriefPattern drawnBriefPattern();

/// The pattern turned by `steps` times 5 degrees.
BriefPattern turnedBriefPattern(const BriefPattern& pattern, int steps);

/// The boxes of an image. Where they reach beyond it, pixels count as the nearest in the image.
class BriefBoxes {
public:
    explicit BriefBoxes(const ByteImage& image);

    [[nodiscard]] std::uint32_t mean(long long row, long long col) const;
    /// The descriptor of a keypoint at (x, y), `pattern` being that of its angle.
    [[nodiscard]] BriefRow row(const Keypoint& keypoint, const BriefPattern& pattern) const;

private:
    [[nodiscard]] std::uint32_t pixel(long long row, long long col) const;
    [[nodiscard]] std::uint32_t integral(long long row, long long col) const;

    long long rows_;
    long long cols_;
    std::vector<unsigned char> pixels_;
    std::vector<std::uint32_t> integral_;
};

}  // namespace marlo::reference
