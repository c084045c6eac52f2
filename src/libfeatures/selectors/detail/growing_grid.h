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

/// Finds the nearest of the first points of a list, of more and more of them. The points lie sorted
/// by cells, which are made finer as more points count, so that a search looks at a few cells and
/// points that lie together in memory, however many there are.
class GrowingGrid {
public:
    /// Whether squaredDistance() grows with the distance between any two points: they are finite
    /// and no distance is beyond 32 bits.
    [[nodiscard]] static bool canHold(const std::vector<Keypoint>& points);

    /// `points`, which canHold(), have to stay.
    explicit GrowingGrid(const std::vector<Keypoint>& points);

    /// The least squaredDistance() from a place within the bounds of all points to one of the first
    /// `count` points, at least one. `count` is no less than in the calls before.
    [[nodiscard]] std::uint32_t nearest(float x, float y, std::size_t count);

private:
    struct Point {
        float x;
        float y;
        std::uint32_t index;
    };
    struct Search;

    void refine(std::size_t count);
    [[nodiscard]] std::ptrdiff_t column(float x) const;
    [[nodiscard]] std::ptrdiff_t row(float y) const;
    void searchRow(std::ptrdiff_t row, std::ptrdiff_t firstColumn, std::ptrdiff_t lastColumn,
                   Search& search) const;

    const std::vector<Keypoint>& all_;
    Bounds bounds_;
    double cellSize_ = 1.0;
    double cellsPerPixel_ = 1.0;
    std::ptrdiff_t columns_ = 1;
    std::ptrdiff_t rows_ = 1;
    std::size_t held_ = 0;               // so many of the first points are in cells
    std::vector<std::uint32_t> starts_;  // of each cell's points; one more at the end
    std::vector<Point> points_;          // by cells in row order
};

}  // namespace marlo::detail
