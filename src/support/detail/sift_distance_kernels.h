// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

#include "support/detail/kernel_list.h"

namespace marlo::detail {

/// The Euclidean distance of two rows of `count` floats, at any address: see cvSiftDistance().
using SiftDistanceFunction = float(const float* row1, const float* row2, std::ptrdiff_t count);
KernelList<SiftDistanceFunction> siftDistanceKernels();

}  // namespace marlo::detail
