// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/detail/brief_pattern.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>

namespace marlo::detail {
namespace {

constexpr std::uint32_t kSeed = 171;
constexpr float kStandardDeviation = 9.0F;                     // pixels
constexpr int kMostSquaredRadius = 575;                        // within a circle of 23.98 pixels
constexpr double kRadiansOfOneRotation = 0.08726646259971647;  // 5 degrees

// Normally distributed numbers of variance 1 by the polar method. G. Marsaglia, T. Bray, A
// convenient method for generating normal variables, SIAM Review 6(3), 1964. Written out, since the
// language fixes the numbers of its generators but not those of its distributions.
//
// Logarithms may differ in the last bit from one mathematics library to another. That does not
// reach the pattern: before truncation none of its offsets is nearer than 1.1e-4 to a whole number
// other than 0, a hundred times as much as all roundings together, and no pair of even numbers is
// nearer than 2.7e-5 to being refused by another rounding.
class NormalNumbers {
public:
    float next() {
        if (hasSecond_) {
            hasSecond_ = false;
            return second_;
        }
        float u = 0.0F;
        float v = 0.0F;
        float s = 0.0F;
        do {
            u = 2.0F * even() - 1.0F;
            v = 2.0F * even() - 1.0F;
            s = u * u + v * v;
        } while (s > 1.0F || s == 0.0F);
        const float factor = std::sqrt(-2.0F * std::log(s) / s);
        second_ = u * factor;
        hasSecond_ = true;
        return v * factor;
    }

private:
    // In [0, 1), in 24 bits: the largest of the generator's numbers would be rounded up to 1.
    float even() {
        const float number = static_cast<float>(generator_()) * 0x1p-32F;
        return number < 1.0F ? number : 0x1.fffffep-1F;
    }

    std::mt19937 generator_{kSeed};
    float second_ = 0.0F;
    bool hasSecond_ = false;
};

// Truncated. Eight standard deviations, more than 24 bits can give, are 72 pixels.
std::int8_t drawOffset(NormalNumbers& numbers) {
    return static_cast<std::int8_t>(kStandardDeviation * numbers.next());
}

// In braces, so that the offsets are drawn in the order in which they are written.
Brief::PatternEntry drawEntry(NormalNumbers& numbers) {
    return {drawOffset(numbers), drawOffset(numbers), drawOffset(numbers), drawOffset(numbers)};
}

bool isInCircle(int dx, int dy) {
    return dx * dx + dy * dy <= kMostSquaredRadius;
}

// Adds a half away from zero and truncates. That is not std::round(): the sum itself is rounded, so
// the largest number below a half becomes 1. Such are the sines of the computed 30 and 150 degrees,
// which are not quite a half. They alone decide on a point by their last bit; the true values are
// within 0.3 of it, so every mathematics library of ordinary quality gives the same patterns.
std::int8_t rounded(double offset) {
    return static_cast<std::int8_t>(offset + (offset < 0.0 ? -0.5 : 0.5));
}

Brief::PatternEntry turned(const Brief::PatternEntry& entry, double cosine, double sine) {
    const auto x = [&](int dx, int dy) { return rounded(dx * cosine - dy * sine); };
    const auto y = [&](int dx, int dy) { return rounded(dx * sine + dy * cosine); };
    return {x(entry.dx1, entry.dy1), y(entry.dx1, entry.dy1), x(entry.dx2, entry.dy2),
            y(entry.dx2, entry.dy2)};
}

}  // namespace

Brief::Pattern drawBriefPattern() {
    NormalNumbers numbers;
    Brief::Pattern pattern;
    for (Brief::PatternEntry& entry : pattern) {
        do {
            entry = drawEntry(numbers);
        } while (!isInCircle(entry.dx1, entry.dy1) || !isInCircle(entry.dx2, entry.dy2));
    }
    return pattern;
}

std::vector<Brief::Pattern> rotatedBriefPatterns() {
    const Brief::Pattern drawn = drawBriefPattern();
    std::vector<Brief::Pattern> patterns(kBriefRotations);
    for (std::size_t a = 0; a < patterns.size(); ++a) {
        const double angle = static_cast<double>(a) * kRadiansOfOneRotation;
        const double cosine = std::cos(angle);
        const double sine = std::sin(angle);
        for (std::size_t i = 0; i < drawn.size(); ++i) {
            patterns[a][i] = turned(drawn[i], cosine, sine);
        }
    }
    return patterns;
}

}  // namespace marlo::detail
