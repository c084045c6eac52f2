// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "libfeatures/base/keypoint.h"

namespace marlo::detail {

/// The squared distance in single precision, cut off to an integer, of which the low 32 bits are
/// taken. What has no 64-bit value gives 0, as the x86 conversion does.
[[nodiscard]] inline std::uint32_t squaredDistance(float ax, float ay, float bx, float by) {
    constexpr float kLimit = 9223372036854775808.0F;
    const float dx = ax - bx;
    const float dy = ay - by;
    const float square = dx * dx + dy * dy;
    return square < kLimit ? static_cast<std::uint32_t>(static_cast<std::int64_t>(square)) : 0;
}

/// A rectangle.
struct Bounds {
    double left = 0.0;
    double top = 0.0;
    double width = 0.0;
    double height = 0.0;
};
/// The smallest one around the points; of infinite width if one of them is not finite.
[[nodiscard]] Bounds boundsOf(const std::vector<Keypoint>& points);

/// Finds the nearest of some of a list's first points. The points lie sorted by cells, so that a
/// search looks at a few that lie together in memory, however many there are.
class PointGrid {
public:
    /// Whether squaredDistance() grows with the distance between any two points within the bounds:
    /// these are finite and no distance is beyond 32 bits.
    [[nodiscard]] static bool canHold(const Bounds& bounds);

    /// Of the first `held` points, at least one, of a list with bounds that canHold().
    PointGrid(const std::vector<Keypoint>& points, const Bounds& bounds, std::size_t held);

    /// The least squaredDistance() from a point of the list to one of the first `count`, at least
    /// one and no more than are held.
    [[nodiscard]] std::uint32_t nearest(const Keypoint& point, std::size_t count) const;

    /// The cell that a point of the list lies in, in row order, and how many there are.
    [[nodiscard]] std::size_t cellOf(const Keypoint& point) const;
    [[nodiscard]] std::size_t numberOfCells() const { return starts_.size() - 1; }

private:
    struct Point {
        float x;
        float y;
        std::uint32_t index;
    };
    struct Search;

    [[nodiscard]] std::ptrdiff_t column(float x) const;
    [[nodiscard]] std::ptrdiff_t row(float y) const;
    void searchRow(std::ptrdiff_t row, std::ptrdiff_t firstColumn, std::ptrdiff_t lastColumn,
                   Search& search) const;

    Bounds bounds_;  // of all points of the list
    double cellSize_;
    double cellsPerPixel_;
    std::ptrdiff_t columns_;
    std::ptrdiff_t rows_;
    std::vector<std::uint32_t> starts_;  // of each cell's points; one more at the end
    std::vector<Point> points_;          // by cells
};

}  // namespace marlo::detail
