// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/i_keypoint_selector.h"

#include <stdexcept>

namespace marlo {

IKeypointSelector::~IKeypointSelector() = default;

void IKeypointSelector::checkNoInPlace(const std::vector<Keypoint>& in,
                                       const std::vector<Keypoint>& out) {
    if (&in == &out) {
        throw std::runtime_error("keypoint selectors cannot do selection in-place (in == out)");
    }
}

}  // namespace marlo
