// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/d_match.h"

#include <ostream>

namespace marlo {

bool operator==(const DMatch& a, const DMatch& b) noexcept {
    return a.queryIndex == b.queryIndex && a.trainIndex == b.trainIndex;
}

bool operator!=(const DMatch& a, const DMatch& b) noexcept {
    return !(a == b);
}

std::ostream& operator<<(std::ostream& out, const DMatch& match) {
    return out << "Match " << match.queryIndex << ", " << match.trainIndex << ", "
               << static_cast<double>(match.distance) << '\n';
}

}  // namespace marlo
