// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <array>
#include <cstddef>

/// LDAH codes, said as plainly as possible. Sums are formed in the library's order, so that codes
/// can be compared bit for bit.
namespace marlo::reference {

constexpr std::size_t kLdahSize = 128;  // values of a descriptor, and bits of its code
using LdahProjection = float[kLdahSize][kLdahSize];
using LdahOffsets = float[kLdahSize];
using LdahCode = std::array<unsigned char, kLdahSize / 8>;

/// The product of a row of the projection and a descriptor: four partial sums, value k in sum
/// k mod 4, added from the first to the last.
float ldahProduct(const float* weights, const float* descriptor);

/// Bit j, in byte j / 8 at position j mod 8, is set where product and offset add up to 0 or less.
LdahCode ldahCode(const LdahProjection& projection, const LdahOffsets& offsets,
                  const float* descriptor);

}  // namespace marlo::reference
