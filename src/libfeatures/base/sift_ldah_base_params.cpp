// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/sift_ldah_base_params.h"

namespace marlo {

SiftLdahBaseParams::~SiftLdahBaseParams() = default;

void SiftLdahBaseParams::setParams(float scale) {
    imageScale = scale;
}

}  // namespace marlo
