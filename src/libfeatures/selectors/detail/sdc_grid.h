// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/selectors/detail/sdc_disc.h"

namespace marlo::detail {

/// The grid of square cells over an image that one search of disc covering uses, pass after pass,
/// with cells and discs of another size in each. A cell holds the last mark that covered it.
///
/// Nothing is cleared between passes: marks must grow from pass to pass, and a cell is free while
/// its mark is below the first of the current pass. At the start all marks are 0.
template <typename Mark>
class SdcGrid {
public:
    struct Cell {
        std::int64_t column;
        std::int64_t row;
    };

    SdcGrid(int width, int height)
        : width_(static_cast<std::uint64_t>(width)), height_(static_cast<std::uint64_t>(height)) {}

    /// Divides the image into cells of `cellSize` pixels, at least 1, for discs of `discRadius`
    /// cells. @throws std::bad_alloc if there is no memory for that many cells.
    void startPass(std::uint32_t cellSize, std::uint32_t discRadius) {
        const std::uint64_t columns = width_ / cellSize + 1;
        const std::uint64_t rows = height_ / cellSize + 1;
        reserve(columns * rows);  // at most 2^62
        cellSize_ = static_cast<float>(cellSize);
        columns_ = static_cast<std::int64_t>(columns);
        rows_ = static_cast<std::int64_t>(rows);
        discHalfWidths(discRadius, rows, halfWidths_);
    }

    /// The cell of a keypoint. Where a coordinate lies outside the grid, the cell at that border;
    /// NaN counts as 0.
    [[nodiscard]] Cell cellOf(const Keypoint& keypoint) const {
        return {cellNumber(keypoint.x, columns_), cellNumber(keypoint.y, rows_)};
    }

    [[nodiscard]] Mark markOf(Cell cell) const { return marks_[index(cell.column, cell.row)]; }

    /// Marks the disc around a cell, as far as it lies inside the grid.
    void cover(Cell centre, Mark mark) {
        const auto reach = static_cast<std::int64_t>(halfWidths_.size()) - 1;
        const std::int64_t firstRow = std::max<std::int64_t>(centre.row - reach, 0);
        const std::int64_t lastRow = std::min(centre.row + reach, rows_ - 1);
        for (std::int64_t row = firstRow; row <= lastRow; ++row) {
            const std::int64_t distance = row < centre.row ? centre.row - row : row - centre.row;
            const std::int64_t halfWidth = halfWidths_[static_cast<std::size_t>(distance)];
            const std::int64_t first = std::max<std::int64_t>(centre.column - halfWidth, 0);
            const std::int64_t last = std::min(centre.column + halfWidth, columns_ - 1);
            std::fill_n(&marks_[index(first, row)], last - first + 1, mark);
        }
    }

private:
    struct Free {
        void operator()(Mark* marks) const { std::free(marks); }
    };

    void reserve(std::uint64_t cells) {
        if (cells <= capacity_) {
            return;
        }
        marks_.reset();
        capacity_ = 0;
        // Memory from calloc costs time only where a disc comes to lie; a vector would write to
        // every cell. calloc also refuses what exceeds the address space.
        marks_.reset(static_cast<Mark*>(std::calloc(cells, sizeof(Mark))));
        if (!marks_) {
            throw std::bad_alloc();
        }
        capacity_ = cells;
    }

    [[nodiscard]] std::int64_t cellNumber(float coordinate, std::int64_t cells) const {
        constexpr float kBeyondAnyGrid = 4294967296.0F;
        const float number = coordinate / cellSize_;
        if (!(number >= 1.0F)) {  // a NaN, too
            return 0;
        }
        return number < kBeyondAnyGrid ? std::min(static_cast<std::int64_t>(number), cells - 1)
                                       : cells - 1;
    }

    [[nodiscard]] std::size_t index(std::int64_t column, std::int64_t row) const {
        return static_cast<std::size_t>(row * columns_ + column);
    }

    std::uint64_t width_;
    std::uint64_t height_;
    float cellSize_ = 1.0F;
    std::int64_t columns_ = 0;
    std::int64_t rows_ = 0;
    std::vector<std::uint32_t> halfWidths_;
    std::unique_ptr<Mark[], Free> marks_;
    std::uint64_t capacity_ = 0;
};

}  // namespace marlo::detail
