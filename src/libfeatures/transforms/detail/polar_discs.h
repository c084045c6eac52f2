// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "libfeatures/transforms/detail/panorama_sphere.h"
#include "libfeatures/transforms/spherical_layout.h"
#include "support/image.h"

namespace marlo::detail {

/// Which pixel of a panorama each pixel of the two polar discs shows. The pixels of both lie alike:
/// the south disc is the north disc moved to the right.
class PolarDiscs {
public:
    /// @throws std::length_error for a panorama of 2^32 pixels or more.
    explicit PolarDiscs(const SphericalLayout& layout);

    [[nodiscard]] const SphericalLayout& layout() const { return layout_; }

    /// Fills the working image, which has the layout's size, from a panorama of the layout's size.
    template <typename Pixel>
    void resample(const Matrix<Pixel>& panorama, Matrix<Pixel>& working) const;

private:
    /// The pixels [-halfWidth, halfWidth) about the centre.
    struct DiscRow {
        int halfWidth = 0;
        std::size_t first = 0;  ///< in north_ and south_
    };

    std::vector<DiscRow> allocate();
    void fill(const std::vector<DiscRow>& rows);
    void place(const std::vector<DiscRow>& rows);
    [[nodiscard]] std::uint32_t source(const PlaceOnSphere& place) const;

    SphericalLayout layout_;
    PanoramaSphere sphere_;
    std::vector<DiscRow> rows_;  ///< of the working image, from the first of the discs on
    std::vector<std::uint32_t> north_;
    std::vector<std::uint32_t> south_;
};

}  // namespace marlo::detail
