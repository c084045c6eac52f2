// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/transforms/detail/polar_discs.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace marlo::detail {
namespace {

// Of the row that lies `row` pixels from the centre; 0 also where the first row, by rounding, lies
// outside of the disc.
int halfWidthOf(double radius, int row) {
    const double square = radius * radius - static_cast<double>(row) * static_cast<double>(row);
    return square > 0.0 ? rounded(std::sqrt(square)) : 0;
}

template <typename Pixel>
void gather(const Pixel* panorama, const std::uint32_t* sources, int count, Pixel* out) {
    for (int i = 0; i < count; ++i) out[i] = panorama[sources[i]];
}

}  // namespace

PolarDiscs::PolarDiscs(const SphericalLayout& layout)
    : layout_(layout), sphere_(layout.width, layout.height) {
    const auto pixels =
        static_cast<std::uint64_t>(layout.width) * static_cast<std::uint64_t>(layout.height);
    if (pixels > std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("A panorama of " + std::to_string(layout.width) + " x " +
                                std::to_string(layout.height) +
                                " pixels is too large: they must be fewer than 2^32");
    }
    const std::vector<DiscRow> rows = allocate();
    fill(rows);
    place(rows);
}

// The rows of a disc from the top, without sources.
std::vector<PolarDiscs::DiscRow> PolarDiscs::allocate() {
    std::vector<DiscRow> rows(2 * static_cast<std::size_t>(layout_.northCentreCol));
    std::size_t pixels = 0;
    int row = -layout_.northCentreCol;
    for (DiscRow& discRow : rows) {
        discRow = {halfWidthOf(layout_.discRadius, row), pixels};
        pixels += 2 * static_cast<std::size_t>(discRow.halfWidth);
        ++row;
    }
    north_.resize(pixels);
    south_.resize(pixels);
    return rows;
}

std::uint32_t PolarDiscs::source(const PlaceOnSphere& place) const {
    const int col = rounded(sphere_.column(place)) % layout_.width;
    const int row = std::clamp(rounded(sphere_.row(place)), 0, layout_.height - 1);
    return static_cast<std::uint32_t>(row) * static_cast<std::uint32_t>(layout_.width) +
           static_cast<std::uint32_t>(col);
}

// Trigonometry takes most of the time, and a quarter of it is enough. In the formulas, changing the
// sign of x changes that of the longitude and nothing else; and a place of the south disc is that
// of the north disc at -y with the other sign of the latitude: exactly so, since arc tangent and
// arc sine are odd functions.
void PolarDiscs::fill(const std::vector<DiscRow>& rows) {
    const int centre = layout_.northCentreCol;
    const auto put = [&](std::vector<std::uint32_t>& disc, int y, int x,
                         const PlaceOnSphere& place) {
        if (y >= centre) return;  // the disc has one row less below its centre
        const DiscRow& row = rows[static_cast<std::size_t>(centre + y)];
        std::uint32_t* const middle =
            disc.data() + row.first + static_cast<std::size_t>(row.halfWidth);
        if (x < row.halfWidth) middle[x] = source(place);
        if (x > 0) *(middle - x) = source({-place.longitude, place.latitude});
    };
#pragma omp parallel for schedule(dynamic, 8)
    for (int distance = 0; distance <= centre; ++distance) {
        const int halfWidth = halfWidthOf(layout_.discRadius, distance);
        for (int x = 0; halfWidth > 0 && x <= halfWidth; ++x) {
            for (const int y : {-distance, distance}) {
                const PlaceOnSphere place = sphere_.inNorthDisc(x, y);
                put(north_, y, x, place);
                put(south_, -y, x, {place.longitude, -place.latitude});
            }
        }
    }
}

// Rounding can leave the working image without the disc's last row. It then lies over the one
// before.
void PolarDiscs::place(const std::vector<DiscRow>& rows) {
    rows_.resize(static_cast<std::size_t>(layout_.rows - layout_.bandRows));
    int y = layout_.discCentreRow - layout_.northCentreCol;
    for (const DiscRow& row : rows) {
        const int workingRow = std::clamp(y, 0, layout_.rows - 1);
        DiscRow& there = rows_[static_cast<std::size_t>(workingRow - layout_.bandRows)];
        ++y;
        if (row.halfWidth >= there.halfWidth) {
            there = row;
            continue;
        }
        for (std::vector<std::uint32_t>* const disc : {&north_, &south_}) {
            const auto from = disc->begin() + static_cast<std::ptrdiff_t>(row.first);
            const auto to = disc->begin() + static_cast<std::ptrdiff_t>(there.first) +
                            (there.halfWidth - row.halfWidth);
            std::copy_n(from, 2 * row.halfWidth, to);
        }
    }
}

template <typename Pixel>
void PolarDiscs::resample(const Matrix<Pixel>& panorama, Matrix<Pixel>& working) const {
    const SphericalLayout& at = layout_;
    const auto fillBandRow = [&](int row, Pixel* out) {
        const Pixel* const from = &panorama(at.firstPanoramaRow + row, 0);
        out = std::copy_n(from + at.width - at.margin, at.margin, out);
        out = std::copy_n(from, at.width, out);
        std::copy_n(from, at.margin, out);
    };
    const auto fillDiscRow = [&](const DiscRow& row, Pixel* out) {
        const int left = at.northCentreCol - row.halfWidth;
        const int right = at.southCentreCol + row.halfWidth;
        const int width = 2 * row.halfWidth;
        std::fill_n(out, left, Pixel{0});
        gather(panorama.data(), north_.data() + row.first, width, out + left);
        std::fill(out + left + width, out + right - width, Pixel{0});
        gather(panorama.data(), south_.data() + row.first, width, out + right - width);
        std::fill(out + right, out + at.cols, Pixel{0});
    };
#pragma omp parallel for schedule(dynamic, 16)
    for (int row = 0; row < at.rows; ++row) {
        Pixel* const out = &working(row, 0);
        if (row < at.bandRows) {
            fillBandRow(row, out);
        } else {
            fillDiscRow(rows_[static_cast<std::size_t>(row - at.bandRows)], out);
        }
    }
}

template void PolarDiscs::resample(const ByteImage& panorama, ByteImage& working) const;
template void PolarDiscs::resample(const FloatImage& panorama, FloatImage& working) const;

}  // namespace marlo::detail
