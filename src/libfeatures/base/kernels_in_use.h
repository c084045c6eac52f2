// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <vector>

#include "libfeatures/features_export.h"

namespace marlo {

/// Which code a step runs on this processor.
struct KernelInUse {
    std::string step;    ///< "blur", "descriptors", "distances of 128 bits" ...
    std::string kernel;  ///< the instruction set: "avx2", "portable" ...
};

/// All steps that have code for several instruction sets, and what is chosen for each. The choice
/// depends on the processor alone and changes no result. For reports about speed.
FEATURES_EXPORT std::vector<KernelInUse> kernelsInUse();

}  // namespace marlo
