// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"

namespace marlo::system {

/// How the processor counts the set bits of a word. Binary distance kernels are instantiated over
/// it; all give identical results.
enum popcnt_t : int {
    PopcntNone = 0,  ///< no instruction: a portable bit count
    PopcntX86 = 1,   ///< the x86 POPCNT instruction
    PopcntArm = 2,   ///< the ARM vector bit count (every 64-bit ARM processor has it)
};

/// The population-count capability of the processor that this runs on.
FEATURES_EXPORT popcnt_t hasPOPCNT() noexcept;

/// How many logical processors this process may use at once, at least 1: those in the calling
/// thread's affinity mask, and no more than the processor time that the control groups of the
/// process allow (rounded up), as they stood at the first call.
FEATURES_EXPORT int noLogicalCPUs();

}  // namespace marlo::system
