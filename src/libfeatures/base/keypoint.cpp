// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/keypoint.h"

#include <cmath>
#include <ostream>

namespace marlo {

bool Keypoint::samePosition(const Keypoint& other) const noexcept {
    constexpr float kTolerance = 0.001F;
    return std::abs(x - other.x) <= kTolerance && std::abs(y - other.y) <= kTolerance;
}

// Both orders are written with strict comparisons in both directions: that is what lets a NaN fall
// through to the next field.
bool Keypoint::operator<(const Keypoint& other) const noexcept {
    if (response < other.response) return true;
    if (response > other.response) return false;
    if (angle < other.angle) return true;
    if (angle > other.angle) return false;
    if (x < other.x) return true;
    if (x > other.x) return false;
    return y < other.y;
}

bool Keypoint::operator>(const Keypoint& other) const noexcept {
    return other < *this;
}

std::ostream& operator<<(std::ostream& out, const Keypoint& keypoint) {
    return out << '[' << static_cast<double>(keypoint.x) << " , " << static_cast<double>(keypoint.y)
               << "] -> " << static_cast<double>(keypoint.scale) << ", "
               << static_cast<double>(keypoint.angle) << ", "
               << static_cast<double>(keypoint.response) << ", "
               << static_cast<unsigned>(keypoint.octave) << ", "
               << static_cast<unsigned>(keypoint.layer);
}

}  // namespace marlo
