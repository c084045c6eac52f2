// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <tuple>
#include <vector>

#include "libfeatures/base/keypoint.h"

namespace marlo::test {

/// Everything that keypoints hold, for comparing; they themselves only compare by strength.
inline auto fieldsOf(const std::vector<Keypoint>& keypoints) {
    std::vector<std::tuple<float, float, float, float, float, int, int>> fields;
    fields.reserve(keypoints.size());
    for (const Keypoint& k : keypoints) {
        fields.emplace_back(k.x, k.y, k.scale, k.angle, k.response, k.octave, k.layer);
    }
    return fields;
}

}  // namespace marlo::test
