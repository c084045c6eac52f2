// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

namespace marlo::detail {

/// Checks the `count` parameters of a lens, of which the first two are focal lengths.
/// @throws std::invalid_argument "Invalid MODEL camera: NAME must be finite" or "... positive".
void checkLensParameters(const char* model, const char* const* names, const double* values,
                         std::size_t count);

}  // namespace marlo::detail
