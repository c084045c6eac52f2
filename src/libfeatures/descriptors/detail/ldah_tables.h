// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/descriptors/detail/descriptor_kernels.h"

namespace marlo::detail {

constexpr int kLdahBits = 128;

/// What LDAH codes are made with. Bit j of the code of a SIFT descriptor d is set where
/// `projection[j]` . d + `offsets[j]` is 0 or less.
struct LdahTables {
    /// The first 16 hexadecimal digits of the SHA-256 of the little-endian bytes of `projection`
    /// followed by those of `offsets`. Codes can be compared only if they were made with the same
    /// tables.
    const char* identifier;
    float projection[kLdahBits][kDescriptorSize];
    float offsets[kLdahBits];
};

/// Those of this library.
extern const LdahTables kLdahTables;

}  // namespace marlo::detail
