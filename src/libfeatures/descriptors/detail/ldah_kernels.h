// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

#include "libfeatures/descriptors/detail/ldah_tables.h"
#include "support/detail/kernel_list.h"

namespace marlo::detail {

constexpr int kLdahBytes = kLdahBits / 8;  // of a code
constexpr int kLdahSums = 4;               // partial sums of a bit, value k in sum k mod 4
constexpr int kLdahPanel = 16;             // bits that are worked on together
constexpr int kLdahPanels = kLdahBits / kLdahPanel;
/// Rows that a call is best given at once: enough to read the projection seldom, and so few that
/// they stay in the first-level cache beside a panel.
constexpr int kLdahBatch = 32;

/// Tables for LDAH codes in the order in which kernels read them.
struct LdahPanels {
    LdahPanels(const float (&projectionRows)[kLdahBits][kDescriptorSize],
               const float (&offsetOfBits)[kLdahBits]);

    /// [panel][k mod 4][k / 4][bit of the panel]: panels of 8 KB.
    alignas(64) float projection[kLdahPanels][kLdahSums][kDescriptorSize / kLdahSums][kLdahPanel];
    alignas(64) float offsets[kLdahBits];
};

/// Those of kLdahTables.
const LdahPanels& ldahPanels();

/// Makes the codes of `count` descriptors, rows of 128 floats one after the other, into as many
/// codes of 16 bytes, one after the other. The four partial sums of a bit are each formed in the
/// order of the values, product by product, and added in their order; then comes the offset. What
/// is not a number leaves its bits clear.
using LdahFunction = void(const LdahPanels& panels, const float* rows, std::ptrdiff_t count,
                          unsigned char* codes);
KernelList<LdahFunction> ldahKernels();

}  // namespace marlo::detail
