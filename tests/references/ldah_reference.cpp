// SPDX-License-Identifier: BSD-3-Clause
#include "references/ldah_reference.h"

namespace marlo::reference {

float ldahProduct(const float* weights, const float* descriptor) {
    float sums[4] = {};
    for (std::size_t k = 0; k < kLdahSize; ++k) {
        const float product = weights[k] * descriptor[k];
        sums[k % 4] += product;
    }
    float total = sums[0];
    for (std::size_t q = 1; q < 4; ++q) total += sums[q];
    return total;
}

LdahCode ldahCode(const LdahProjection& projection, const LdahOffsets& offsets,
                  const float* descriptor) {
    LdahCode code{};
    for (std::size_t j = 0; j < kLdahSize; ++j) {
        const float value = ldahProduct(projection[j], descriptor) + offsets[j];
        if (value <= 0.0F) code[j / 8] = static_cast<unsigned char>(code[j / 8] | 1U << j % 8);
    }
    return code;
}

}  // namespace marlo::reference
