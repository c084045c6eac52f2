// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cmath>
#include <cstring>

#include "libmarlocuda/detail/function.h"

/// The functions of the CPU's kernels, operation by operation: with contraction off on both sides
/// they give the same bits.
namespace marlo::gpu {

/// The GPU library's images: rows x cols, row-major without padding.
struct Image {
    float* data = nullptr;
    int rows = 0;
    int cols = 0;

    MARLO_GPU_FUNCTION float& at(int r, int c) const {
        return data[static_cast<long long>(r) * cols + c];
    }
    MARLO_GPU_FUNCTION long long size() const { return static_cast<long long>(rows) * cols; }
};

MARLO_GPU_FUNCTION inline int least(int a, int b) {
    return a < b ? a : b;
}
MARLO_GPU_FUNCTION inline int greatest(int a, int b) {
    return a > b ? a : b;
}

/// Where row or column `i` lies in a line of `length` that is mirrored at both ends, edge pixels
/// repeated; for -length <= i < 2 * length. Some place of the line for what lies beyond.
MARLO_GPU_FUNCTION inline int mirroredOnce(int i, int length) {
    if (i < 0) i = -1 - i;
    if (i >= length) i = length - 1 - (i - length);
    return greatest(least(i, length - 1), 0);
}

/// The number of bits that are set.
MARLO_GPU_FUNCTION inline unsigned bitCount(unsigned word) {
#if defined(__CUDA_ARCH__)
    return static_cast<unsigned>(__popc(word));
#else
    return static_cast<unsigned>(__builtin_popcount(word));
#endif
}

/// e^x within 2 ulp for |x| <= 87; what lies beyond gives e^-87 or e^87.
MARLO_GPU_FUNCTION inline float exponential(float x) {
    x = x < 87.0F ? x : 87.0F;
    x = x > -87.0F ? x : -87.0F;
    // x = n ln 2 + r with |r| <= ln 2 / 2; adding 1.5 * 2^23 rounds to an integer, which then
    // stands in the low bits. ln 2 in two parts, the first exact in 9 bits.
    constexpr float kRounder = 12582912.0F;
    const float shifted = x * 1.44269504F + kRounder;
    const float n = shifted - kRounder;
    const float r = (x - n * 0.693359375F) + n * 2.12194440e-4F;
    // Minimax polynomial of (e^r - 1 - r) / r^2, error 3e-9.
    const float r2 = r * r;
    const float high =
        r2 * 0.0013814469566568732F + (r * 0.0083687799051404F + 0.04166839271783829F);
    const float q = high * r2 + (r * 0.1666651964187622F + 0.4999999403953552F);
    const float fraction = (q * r2 + r) + 1.0F;
    // (n + 127) << 23 without the low bits' offset: 0x4b400000 is the pattern of kRounder.
    unsigned bits = 0;
    std::memcpy(&bits, &shifted, sizeof bits);
    bits = (bits - (0x4b400000U - 127U)) << 23;
    float power = 0.0F;
    std::memcpy(&power, &bits, sizeof power);
    return fraction * power;
}

/// atan2(y, x) in radians, within 1e-6; 0 for (0, 0), and +pi along -x whatever the sign of y's
/// zero. NaN if either is NaN.
MARLO_GPU_FUNCTION inline float arcTangent(float y, float x) {
    const float ax = fabsf(x);
    const float ay = fabsf(y);
    const float numerator = ay > ax ? ax : ay;
    const float denominator = ay > ax ? ay : ax;
    const float z = denominator == 0.0F ? 0.0F : numerator / denominator;
    const float t = z * z;
    // Minimax polynomial of atan(z) / z in z^2 on [0, 1], error 2.5e-7.
    const float t2 = t * t;
    const float high =
        t2 * 0.006815057247877121F + (t * -0.03361527994275093F + 0.07963825762271881F);
    const float middle = t * -0.13234281539916992F + 0.19808119535446167F;
    const float low = t * -0.33317410945892334F + 0.9999961256980896F;
    const float p = (high * t2 + middle) * t2 + low;
    float angle = p * z;
    angle = ay > ax ? 1.5707964F - angle : angle;
    angle = x < 0.0F ? 3.1415927F - angle : angle;
    return y < 0.0F ? -angle : angle;
}

}  // namespace marlo::gpu
