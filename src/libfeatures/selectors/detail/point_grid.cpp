// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/detail/point_grid.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace marlo::detail {
namespace {

// Of a cell's side: rounding can have put a point so far beyond a side into the cell beside it.
constexpr double kRounding = 1e-6;
// Rounding takes less than that off a squared distance.
constexpr double kAllButRounding = 1.0 - 1e-6;

}  // namespace

struct PointGrid::Search {
    float x;
    float y;
    std::size_t count;
    float best = std::numeric_limits<float>::infinity();  // squared, not yet cut off
};

Bounds boundsOf(const std::vector<Keypoint>& points) {
    float left = std::numeric_limits<float>::infinity();
    float top = left;
    float right = -left;
    float bottom = -left;
    bool finite = true;
    for (const Keypoint& point : points) {
        left = std::min(left, point.x);
        right = std::max(right, point.x);
        top = std::min(top, point.y);
        bottom = std::max(bottom, point.y);
        finite = finite && std::isfinite(point.x) && std::isfinite(point.y);
    }
    Bounds bounds{static_cast<double>(left), static_cast<double>(top),
                  static_cast<double>(right) - static_cast<double>(left),
                  static_cast<double>(bottom) - static_cast<double>(top)};
    if (!finite) bounds.width = std::numeric_limits<double>::infinity();
    return bounds;
}

bool PointGrid::canHold(const Bounds& bounds) {
    constexpr double kLargestSquare = 4294967296.0 * kAllButRounding;
    return bounds.width * bounds.width + bounds.height * bounds.height < kLargestSquare;
}

PointGrid::PointGrid(const std::vector<Keypoint>& points, const Bounds& bounds, std::size_t held)
    : bounds_(bounds) {
    // Square cells; as many as wanted, too, where the points lie in a line or in one place.
    constexpr double kPointsPerCell = 1.0;
    constexpr double kSmallestCell = 1e-3;
    const double cells = static_cast<double>(held) / kPointsPerCell;
    cellSize_ = std::max({std::sqrt(bounds_.width * bounds_.height / cells),
                          std::max(bounds_.width, bounds_.height) / cells, kSmallestCell});
    cellsPerPixel_ = 1.0 / cellSize_;
    columns_ = static_cast<std::ptrdiff_t>(bounds_.width * cellsPerPixel_) + 1;
    rows_ = static_cast<std::ptrdiff_t>(bounds_.height * cellsPerPixel_) + 1;

    // Sorted by counting: how many there are in each cell, where each ends, and there they go.
    std::vector<std::uint32_t> cellOfPoint(held);
    starts_.assign(static_cast<std::size_t>(columns_) * static_cast<std::size_t>(rows_) + 1, 0);
    for (std::size_t i = 0; i < held; ++i) {
        cellOfPoint[i] = static_cast<std::uint32_t>(cellOf(points[i]));
        ++starts_[cellOfPoint[i]];
    }
    std::inclusive_scan(starts_.begin(), starts_.end(), starts_.begin());
    points_.resize(held);
    for (std::size_t i = held; i-- > 0;) {
        points_[--starts_[cellOfPoint[i]]] = {points[i].x, points[i].y,
                                              static_cast<std::uint32_t>(i)};
    }
}

std::ptrdiff_t PointGrid::column(float x) const {
    const double at = (static_cast<double>(x) - bounds_.left) * cellsPerPixel_;
    return std::min(static_cast<std::ptrdiff_t>(at), columns_ - 1);
}

std::ptrdiff_t PointGrid::row(float y) const {
    const double at = (static_cast<double>(y) - bounds_.top) * cellsPerPixel_;
    return std::min(static_cast<std::ptrdiff_t>(at), rows_ - 1);
}

std::size_t PointGrid::cellOf(const Keypoint& point) const {
    return static_cast<std::size_t>(row(point.y) * columns_ + column(point.x));
}

void PointGrid::searchRow(std::ptrdiff_t row, std::ptrdiff_t firstColumn, std::ptrdiff_t lastColumn,
                          Search& search) const {
    firstColumn = std::max<std::ptrdiff_t>(firstColumn, 0);
    lastColumn = std::min(lastColumn, columns_ - 1);
    if (row < 0 || row >= rows_ || firstColumn > lastColumn) return;
    const Point* const begin =
        points_.data() + starts_[static_cast<std::size_t>(row * columns_ + firstColumn)];
    const Point* const end =
        points_.data() + starts_[static_cast<std::size_t>(row * columns_ + lastColumn) + 1];
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    // A cell in which many points crowd is left as soon as one is nearer than a pixel.
    constexpr std::ptrdiff_t kAtOnce = 32;
    for (const Point* point = begin; point != end && search.best >= 1.0F;) {
        const Point* const stop = point + std::min(kAtOnce, end - point);
        for (; point != stop; ++point) {
            const float dx = search.x - point->x;
            const float dy = search.y - point->y;
            const float square = dx * dx + dy * dy;
            search.best = std::min(search.best, point->index < search.count ? square : kInfinity);
        }
    }
}

std::uint32_t PointGrid::nearest(const Keypoint& point, std::size_t count) const {
    const float x = point.x;
    const float y = point.y;
    Search search{x, y, count};
    const std::ptrdiff_t queryColumn = column(x);
    const std::ptrdiff_t queryRow = row(y);
    const double offsetX =
        (static_cast<double>(x) - bounds_.left) * cellsPerPixel_ - static_cast<double>(queryColumn);
    const double offsetY =
        (static_cast<double>(y) - bounds_.top) * cellsPerPixel_ - static_cast<double>(queryRow);
    const double toSide =
        std::min(std::min(offsetX, 1.0 - offsetX), std::min(offsetY, 1.0 - offsetY)) - kRounding;
    // The nine cells around the place, then rings of cells, until no point beyond can be nearer.
    for (std::ptrdiff_t r = -1; r <= 1; ++r) {
        searchRow(queryRow + r, queryColumn - 1, queryColumn + 1, search);
    }
    for (std::ptrdiff_t ring = 1;; ++ring) {
        const bool all = queryColumn <= ring && queryRow <= ring &&
                         queryColumn + ring >= columns_ - 1 && queryRow + ring >= rows_ - 1;
        const double searched = (toSide + static_cast<double>(ring)) * cellSize_;
        if (all || search.best < 1.0F ||
            searched * searched * kAllButRounding >= static_cast<double>(search.best)) {
            return static_cast<std::uint32_t>(search.best);
        }
        const std::ptrdiff_t next = ring + 1;
        searchRow(queryRow - next, queryColumn - next, queryColumn + next, search);
        for (std::ptrdiff_t r = queryRow - ring; r <= queryRow + ring; ++r) {
            searchRow(r, queryColumn - next, queryColumn - next, search);
            searchRow(r, queryColumn + next, queryColumn + next, search);
        }
        searchRow(queryRow + next, queryColumn - next, queryColumn + next, search);
    }
}

}  // namespace marlo::detail
