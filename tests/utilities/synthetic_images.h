// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <random>

#include "support/image.h"

namespace marlo::test {

/// Random numbers that are the same with every standard library.
class Random {
public:
    explicit Random(std::uint32_t seed) : generator_(seed) {}

    /// Evenly spread over [low, high).
    float uniform(float low, float high) {
        return low + (high - low) * (static_cast<float>(generator_() >> 8) * 0x1p-24F);
    }

    /// One of 0, 1 ... count - 1.
    std::uint32_t below(std::uint32_t count) {
        return static_cast<std::uint32_t>(generator_()) % count;
    }

private:
    std::mt19937 generator_;
};

/// Independent pixels, evenly spread over [low, high).
FloatImage noiseImage(Eigen::Index rows, Eigen::Index cols, std::uint32_t seed, float low = 0.0F,
                      float high = 1.0F);

/// Something like a photograph in [0, 1]: shading, blobs of many sizes, edges and a little noise.
FloatImage photographLikeImage(Eigen::Index rows, Eigen::Index cols, std::uint32_t seed);

/// The same, but fading into an even grey towards the borders, so that nothing that is computed
/// from it depends on the treatment of borders.
FloatImage fadingImage(Eigen::Index rows, Eigen::Index cols, std::uint32_t seed);

/// Adds contrast * exp(-d^2 / (2 sigma^2)) around (centreRow, centreCol).
void addBlob(FloatImage& image, double centreRow, double centreCol, double sigma, double contrast);

/// The image turned counter-clockwise, as displayed, by 90 degrees.
FloatImage turnedLeft(const FloatImage& image);

/// Whether the two have the same size and the same bytes (NaN included).
bool sameBits(const FloatImage& a, const FloatImage& b);

}  // namespace marlo::test
