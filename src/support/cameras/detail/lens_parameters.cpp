// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/detail/lens_parameters.h"

#include <cmath>
#include <stdexcept>
#include <string>

namespace marlo::detail {

void checkLensParameters(const char* model, const char* const* names, const double* values,
                         std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const bool isFocalLength = i < 2;
        const bool isFinite = std::isfinite(values[i]);
        if (isFinite && (!isFocalLength || values[i] > 0.0)) continue;
        throw std::invalid_argument("Invalid " + std::string(model) + " camera: " + names[i] +
                                    " must be " + (isFinite ? "positive" : "finite"));
    }
}

}  // namespace marlo::detail
