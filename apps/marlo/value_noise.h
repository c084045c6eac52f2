// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

/// Random patterns as functions of the place. Integer hashes, plain float arithmetic and square
/// roots, which are rounded correctly everywhere: the same bits on every machine.
namespace marlo::app {

/// Well-mixed bits of a point of the integer lattice.
inline std::uint32_t latticeHash(int x, int y, std::uint32_t seed) {
    // Odd numbers near 2^32 times the fractional parts of square roots.
    std::uint32_t h = static_cast<std::uint32_t>(x) * 0x6A09E667U +
                      static_cast<std::uint32_t>(y) * 0xBB67AE85U + seed * 0x9E3779B9U;
    h = (h ^ (h >> 15)) * 0xA54FF53BU;
    h = (h ^ (h >> 16)) * 0x510E527FU;
    return h ^ (h >> 15);
}

/// The hash as a number from 0 to below 1.
inline float unitFloat(std::uint32_t hash) {
    return static_cast<float>(static_cast<std::int32_t>(hash >> 8)) * 0x1p-24F;
}

/// The largest integer that is not above x, which fits into an int.
inline int floorToInt(float x) {
    const int truncated = static_cast<int>(x);
    return truncated - (x < static_cast<float>(truncated) ? 1 : 0);
}

inline float clampToUnit(float x) {
    return std::min(1.0F, std::max(0.0F, x));
}

/// From 0 at 0 to 1 at 1, with slopes of 0 at both.
inline float smooth(float t) {
    return t * t * (3.0F - 2.0F * t);
}

/// From 0 at `low` to 1 at `high`, with slopes of 0 at both ends.
inline float smoothStep(float low, float high, float x) {
    return smooth(clampToUnit((x - low) / (high - low)));
}

inline float mix(float a, float b, float share) {
    return a + share * (b - a);
}

/// Random values from -1 to 1 at the integers, smooth between.
inline float valueNoise(float x, float y, std::uint32_t seed) {
    const int column = floorToInt(x);
    const int row = floorToInt(y);
    const float u = smooth(x - static_cast<float>(column));
    const float v = smooth(y - static_cast<float>(row));
    const auto at = [&](int dx, int dy) {
        return unitFloat(latticeHash(column + dx, row + dy, seed));
    };
    return 2.0F * mix(mix(at(0, 0), at(1, 0), u), mix(at(0, 1), at(1, 1), u), v) - 1.0F;
}

inline float valueNoise(float x, float y, float z, std::uint32_t seed) {
    const int layer = floorToInt(z);
    const float w = smooth(z - static_cast<float>(layer));
    return mix(valueNoise(x, y, latticeHash(layer, 0, seed)),
               valueNoise(x, y, latticeHash(layer + 1, 0, seed)), w);
}

/// How much of a pattern of that wavelength a pixel shows that covers `footprint`.
inline float visibleShare(float wavelength, float footprint) {
    return clampToUnit(0.8F * wavelength / footprint - 0.7F);
}

/// The wavelengths of fractal noise, halved from octave to octave, and how much an octave has of
/// the amplitude of the one before.
struct Octaves {
    float coarsest = 1.0F;
    float finest = 1.0F;
    float roughness = 0.7F;
};

/// Value noise of several wavelengths, mostly from -1 to 1, without what is too fine for the pixel.
inline float fractalNoise(float x, float y, std::uint32_t seed, const Octaves& octaves,
                          float footprint) {
    float sum = 0.0F;
    float amplitude = 0.7F;
    for (float wavelength = octaves.coarsest; wavelength >= octaves.finest; wavelength *= 0.5F) {
        const float share = visibleShare(wavelength, footprint);
        if (share <= 0.0F) break;
        const float scale = 1.0F / wavelength;
        sum += amplitude * share * valueNoise(x * scale, y * scale, seed++);
        amplitude *= octaves.roughness;
        // Turned from octave to octave (3, 4, 5 is a right triangle), so that no lattice shows.
        const float turned = 0.8F * x - 0.6F * y;
        y = 0.6F * x + 0.8F * y;
        x = turned;
    }
    return sum;
}

/// The same on the surface of a solid.
inline float fractalNoise(float x, float y, float z, std::uint32_t seed, const Octaves& octaves,
                          float footprint) {
    float sum = 0.0F;
    float amplitude = 0.7F;
    for (float wavelength = octaves.coarsest; wavelength >= octaves.finest; wavelength *= 0.5F) {
        const float share = visibleShare(wavelength, footprint);
        if (share <= 0.0F) break;
        const float scale = 1.0F / wavelength;
        sum += amplitude * share * valueNoise(x * scale, y * scale, z * scale, seed++);
        amplitude *= octaves.roughness;
    }
    return sum;
}

/// A place among irregular cells around one random point per unit square.
struct Cell {
    float toCentre = 0.0F;   ///< distance to the nearest point
    float toBorder = 0.0F;   ///< about the distance to the border with the next cell
    std::uint32_t hash = 0;  ///< of the cell
};

inline Cell cellAt(float x, float y, std::uint32_t seed) {
    const int column = floorToInt(x);
    const int row = floorToInt(y);
    const float baseX = static_cast<float>(column) - x + 0.15F;
    const float baseY = static_cast<float>(row) - y + 0.15F;
    float nearest = std::numeric_limits<float>::max();  // squared
    float second = nearest;
    std::uint32_t hash = 0;
    for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
            const std::uint32_t h = latticeHash(column + dx, row + dy, seed);
            const auto low = static_cast<std::int32_t>(h & 0xFFFFU);
            const auto high = static_cast<std::int32_t>(h >> 16);
            const float offsetX =
                baseX + static_cast<float>(dx) + 0.7F * 0x1p-16F * static_cast<float>(low);
            const float offsetY =
                baseY + static_cast<float>(dy) + 0.7F * 0x1p-16F * static_cast<float>(high);
            const float squared = offsetX * offsetX + offsetY * offsetY;
            second = std::min(second, std::max(nearest, squared));
            hash = squared < nearest ? h : hash;
            nearest = std::min(nearest, squared);
        }
    }
    const float toCentre = std::sqrt(nearest);
    return {toCentre, 0.5F * (std::sqrt(second) - toCentre), hash};
}

}  // namespace marlo::app
