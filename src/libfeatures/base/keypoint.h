// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <iosfwd>

#include "libfeatures/features_export.h"

namespace marlo {

/// One image feature: where it is, how large, which way it points and how strong.
///
/// Positions are in pixels of the full-resolution input image, x = column, y = row, with pixel
/// centres at integers. The layout of this record (24 bytes) is a binary contract with the GPU
/// library, which writes records straight into a std::vector<Keypoint>; the last two bytes are
/// padding without a defined value, so compare or hash fields, not bytes.
struct FEATURES_EXPORT Keypoint {
    Keypoint() = default;
    /// A keypoint known by its position only; everything else keeps its default.
    Keypoint(float column, float row) : x(column), y(row) {}
    Keypoint(float column, float row, float size, float direction, float strength,
             unsigned char octaveIndex, unsigned char layerIndex)
        : x(column),
          y(row),
          scale(size),
          angle(direction),
          response(strength),
          octave(octaveIndex),
          layer(layerIndex) {}

    /// Whether both coordinates differ by no more than 0.001 pixels. No other field is looked at.
    [[nodiscard]] bool samePosition(const Keypoint& other) const noexcept;

    /// The order by strength: response decides, then angle, then x, then y. Scale, octave and
    /// layer take no part. A NaN is neither smaller nor greater, so the next field decides; lists
    /// that contain NaN are therefore not totally ordered and must not go through std::sort.
    [[nodiscard]] bool operator<(const Keypoint& other) const noexcept;
    /// Sorting by this puts the strongest keypoint first.
    [[nodiscard]] bool operator>(const Keypoint& other) const noexcept;

    float x = 0.0F;
    float y = 0.0F;
    float scale = 7.0F;        ///< size in pixels of the input image (sigma of the scale space)
    float angle = 0.0F;        ///< dominant direction in radians, -pi to +pi, counter-clockwise
    float response = -1.0F;    ///< detector strength, larger is stronger; -1: no detector scored it
    unsigned char octave = 0;  ///< scale-space octave in which it was found
    unsigned char layer = 0;   ///< scale level inside that octave
};

/// Prints "[x , y] -> scale, angle, response, octave, layer" without a line break, in the stream's
/// own float formatting.
FEATURES_EXPORT std::ostream& operator<<(std::ostream& out, const Keypoint& keypoint);

}  // namespace marlo
