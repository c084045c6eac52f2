// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/detail/polynomial_roots.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace marlo::detail {
namespace {

using Coefficients = std::vector<double>;

bool isNotZero(double value) {
    return value != 0.0;
}

Coefficients derivative(const Coefficients& coefficients) {
    Coefficients result;
    for (std::size_t i = 1; i < coefficients.size(); ++i) {
        result.push_back(static_cast<double>(i) * coefficients[i]);
    }
    return result;
}

// The end of a piece that reaches to infinity: a place, or infinity, where the sign is that of the
// highest power.
double endOfLastPiece(const Coefficients& coefficients, double begin) {
    const bool negative = std::signbit(coefficients.back());
    double end = std::max(1.0, 2.0 * begin);
    while (std::isfinite(end) && std::signbit(polynomialAt(coefficients, end)) != negative) {
        end *= 2.0;
    }
    return end;
}

// The signs at `low` and `high` differ.
double bisect(const Coefficients& coefficients, double low, double high) {
    const bool negative = std::signbit(polynomialAt(coefficients, low));
    for (;;) {
        const double middle = low + 0.5 * (high - low);
        if (!(middle > low && middle < high)) return low;
        (std::signbit(polynomialAt(coefficients, middle)) == negative ? low : high) = middle;
    }
}

}  // namespace

double polynomialAt(const Coefficients& coefficients, double x) {
    double sum = 0.0;
    for (std::size_t i = coefficients.size(); i-- > 0;) {
        sum = sum * x + coefficients[i];
    }
    return sum;
}

std::vector<double> positiveRoots(Coefficients coefficients) {
    // Without what is 0 at either end, 0 itself is no root and the last power is the highest.
    const auto last = std::find_if(coefficients.rbegin(), coefficients.rend(), isNotZero);
    coefficients.erase(last.base(), coefficients.end());
    coefficients.erase(coefficients.begin(),
                       std::find_if(coefficients.begin(), coefficients.end(), isNotZero));
    if (coefficients.size() < 2) return {};

    std::vector<double> ends = positiveRoots(derivative(coefficients));
    ends.push_back(endOfLastPiece(coefficients, ends.empty() ? 0.0 : ends.back()));
    std::vector<double> roots;
    double begin = 0.0;
    double valueAtBegin = coefficients.front();
    for (const double end : ends) {
        const double value = polynomialAt(coefficients, end);
        const bool changes = std::signbit(value) != std::signbit(valueAtBegin);
        if (value == 0.0) {
            roots.push_back(end);
        } else if (valueAtBegin != 0.0 && changes && std::isfinite(end)) {
            roots.push_back(bisect(coefficients, begin, end));
        }
        begin = end;
        valueAtBegin = value;
    }
    return roots;
}

}  // namespace marlo::detail
