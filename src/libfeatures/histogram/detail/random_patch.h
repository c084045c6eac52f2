// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace marlo::detail {

/// Random numbers that are the same with every compiler and standard library.
/// S. Vigna, An experimental exploration of Marsaglia's xorshift generators, scrambled, ACM TOMS
/// 42(4), 2016: xorshift64*.
class PatchRandom {
public:
    explicit PatchRandom(std::uint64_t seed) : state_(seed) {}  ///< not 0

    /// Evenly spread over [0, 1).
    float even() { return static_cast<float>(next() >> 40) * 0x1p-24F; }
    /// Mean 0, variance 1, and near enough to a normal distribution: the sum of four even ones.
    float normal();
    /// 1 or -1.
    float sign() { return next() >> 63 == 0 ? 1.0F : -1.0F; }

private:
    std::uint64_t next();

    std::uint64_t state_;
};

constexpr int kPatchCells = 4;  // a side
constexpr int kPatchDirections = 8;
using PatchDescriptor = std::array<float, kPatchCells * kPatchCells * kPatchDirections>;

/// The SIFT descriptor of the surroundings of a keypoint in a picture drawn at random: a line or a
/// spot, part of the outline of something larger, and noise. The model is as simple as descriptors
/// allow that lie where those of photographs do; docs/similarity.md has the figures. Only +, -, *,
/// / and square roots of single precision in a fixed order: the same bits on every processor.
PatchDescriptor randomPatchDescriptor(PatchRandom& random);

/// The descriptor of the same picture seen in a mirror, which is as likely.
PatchDescriptor mirrored(const PatchDescriptor& descriptor);

}  // namespace marlo::detail
