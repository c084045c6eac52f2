// SPDX-License-Identifier: BSD-3-Clause
#include "references/brief_reference.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <random>

namespace marlo::reference {
namespace {

constexpr int kHalf = 4;  // of a kernel of 9

double evenNumber(std::mt19937& generator) {
    const float number = static_cast<float>(generator()) / 4294967296.0F;
    return static_cast<double>(std::min(number, std::nextafter(1.0F, 0.0F)));
}

int roundedAway(double value) {
    return value < 0.0 ? static_cast<int>(value - 0.5) : static_cast<int>(value + 0.5);
}

// What is no number or nowhere near an image is far away.
long long position(int d, float coordinate) {
    constexpr float kFar = 1.0e9F;
    const float sum = static_cast<float>(d) + coordinate;
    if (std::isnan(sum)) return static_cast<long long>(-kFar);
    return static_cast<long long>(std::floor(std::clamp(sum, -kFar, kFar)));
}

}  // namespace

DrawnBriefPattern drawnBriefPattern() {
    std::mt19937 generator(171);
    DrawnBriefPattern drawn;
    std::vector<double> waiting;  // the deviates that are still to be delivered
    const auto offset = [&] {
        if (waiting.empty()) {
            double u = 0.0;
            double v = 0.0;
            double s = 0.0;
            do {
                u = 2.0 * evenNumber(generator) - 1.0;
                v = 2.0 * evenNumber(generator) - 1.0;
                s = u * u + v * v;
                drawn.nearestToTheCircle = std::min(drawn.nearestToTheCircle, std::fabs(s - 1.0));
            } while (s > 1.0 || s == 0.0);
            const double f = std::sqrt(-2.0 * std::log(s) / s);
            waiting = {u * f, v * f};
        }
        const double deviate = 9.0 * waiting.back();
        waiting.pop_back();
        if (std::round(deviate) != 0.0) {
            drawn.nearestToAWholeNumber =
                std::min(drawn.nearestToAWholeNumber, std::fabs(deviate - std::round(deviate)));
        }
        return static_cast<int>(deviate);
    };
    while (drawn.entries.size() < 512) {
        BriefPoints e{};
        for (int& value : e) value = offset();
        if (e[0] * e[0] + e[1] * e[1] <= 575 && e[2] * e[2] + e[3] * e[3] <= 575) {
            drawn.entries.push_back(e);
        }
    }
    return drawn;
}

BriefPattern turnedBriefPattern(const BriefPattern& pattern, int steps) {
    const double alpha = steps * 0.08726646259971647;
    BriefPattern turned;
    for (const BriefPoints& e : pattern) {
        BriefPoints points{};
        for (std::size_t i = 0; i < 4; i += 2) {
            const double dx = e[i];
            const double dy = e[i + 1];
            points[i] = roundedAway(dx * std::cos(alpha) - dy * std::sin(alpha));
            points[i + 1] = roundedAway(dx * std::sin(alpha) + dy * std::cos(alpha));
        }
        turned.push_back(points);
    }
    return turned;
}

BriefBoxes::BriefBoxes(const ByteImage& image)
    : rows_(image.rows()),
      cols_(image.cols()),
      pixels_(image.data(), image.data() + image.size()),
      integral_(pixels_.size()) {
    for (long long r = 0; r < rows_; ++r) {
        for (long long c = 0; c < cols_; ++c) {
            std::uint32_t& sum = integral_[static_cast<std::size_t>(r * cols_ + c)];
            if (r == 0 && c == 0) {
                sum = 0;  // the first pixel is never counted
            } else if (r == 0) {
                sum = pixel(r, c) + integral(r, c - 1);
            } else if (c == 0) {
                sum = pixel(r, c) + integral(r - 1, c);
            } else {
                sum =
                    pixel(r, c) + integral(r - 1, c) + integral(r, c - 1) - integral(r - 1, c - 1);
            }
        }
    }
}

std::uint32_t BriefBoxes::pixel(long long row, long long col) const {
    return pixels_[static_cast<std::size_t>(row * cols_ + col)];
}

std::uint32_t BriefBoxes::integral(long long row, long long col) const {
    return integral_[static_cast<std::size_t>(row * cols_ + col)];
}

std::uint32_t BriefBoxes::mean(long long row, long long col) const {
    if (row >= kHalf && row + kHalf < rows_ && col >= kHalf && col + kHalf < cols_) {
        return (integral(row + kHalf, col + kHalf) + integral(row - kHalf, col - kHalf) -
                integral(row - kHalf, col + kHalf) - integral(row + kHalf, col - kHalf)) /
               (4 * kHalf * kHalf);
    }
    std::uint32_t sum = 0;
    for (long long r = row - kHalf + 1; r <= row + kHalf; ++r) {
        for (long long c = col - kHalf + 1; c <= col + kHalf; ++c) {
            sum += pixel(std::clamp(r, 0LL, rows_ - 1), std::clamp(c, 0LL, cols_ - 1));
        }
    }
    return sum / (4 * kHalf * kHalf);
}

BriefRow BriefBoxes::row(const Keypoint& keypoint, const BriefPattern& pattern) const {
    BriefRow bytes{};
    for (std::size_t bit = 0; bit < pattern.size(); ++bit) {
        const BriefPoints& e = pattern[bit];
        const std::uint32_t p = mean(position(e[1], keypoint.y), position(e[0], keypoint.x));
        const std::uint32_t q = mean(position(e[3], keypoint.y), position(e[2], keypoint.x));
        if (p > q) bytes[bit / 8] = static_cast<unsigned char>(bytes[bit / 8] | 1U << bit % 8);
    }
    return bytes;
}

}  // namespace marlo::reference
