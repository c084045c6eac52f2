// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>

namespace marlo::bench {

/// xorshift: the same numbers with every standard library, which the distributions of <random> do
/// not promise. G. Marsaglia, Xorshift RNGs, Journal of Statistical Software 8(14), 2003.
class Random {
public:
    explicit Random(std::uint32_t seed)
        : state_(std::uint64_t{seed} * 2654435761U + 88172645463325252U) {}

    /// 64 bits, each as often 0 as 1.
    std::uint64_t nextBits() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return state_;
    }
    /// Even in [0, 1).
    float next() { return static_cast<float>(nextBits() >> 40) * 0x1p-24F; }
    /// Near enough to a normal distribution of mean 0 and variance 1: the sum of 12 even ones.
    float nextNormal() {
        float sum = -6.0F;
        for (int i = 0; i < 12; ++i) sum += next();
        return sum;
    }

private:
    std::uint64_t state_;
};

}  // namespace marlo::bench
