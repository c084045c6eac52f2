// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <vector>

namespace marlo::detail {

/// The value of coefficients[0] + coefficients[1] x + ... at x.
double polynomialAt(const std::vector<double>& coefficients, double x);

/// Where the polynomial changes its sign between 0 and infinity, both excluded, in ascending order:
/// to the last bit, and on the side towards 0 of the change. A place where it touches 0 and turns
/// back is found only if it is exactly 0 there in floating point.
///
/// For any degree; meant for single digits. The roots of the derivative, found in the same way, cut
/// the axis into pieces on which the polynomial is monotonic, and each is bisected.
std::vector<double> positiveRoots(std::vector<double> coefficients);

}  // namespace marlo::detail
