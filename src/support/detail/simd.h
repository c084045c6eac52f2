// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>

/// For helpers of kernels, which are compiled for the processor of the kernel that calls them.
#define MARLO_KERNEL_INLINE [[gnu::always_inline]] inline
/// Marks the entry of a kernel that needs an instruction set beyond the compiler's default.
#define MARLO_KERNEL_TARGET(features) [[gnu::target(features)]]
#define MARLO_KERNEL_PRAGMA(text) _Pragma(#text)
/// Between MARLO_KERNELS_FOR(features) and MARLO_KERNELS_END every function, template or not, is
/// compiled for the instruction set, so that its intrinsics can be used. No headers of others are
/// included in between: what they define would be compiled for it, too.
#if defined(__clang__)
#define MARLO_KERNELS_FOR(features) \
    MARLO_KERNEL_PRAGMA(            \
        clang attribute push(__attribute__((target(features))), apply_to = function))
#define MARLO_KERNELS_END _Pragma("clang attribute pop")
#else
#define MARLO_KERNELS_FOR(features) \
    _Pragma("GCC push_options") MARLO_KERNEL_PRAGMA(GCC target(features))
#define MARLO_KERNELS_END _Pragma("GCC pop_options")
#endif

/// Vectors of W lanes in the compilers' own notation: arithmetic and comparisons work lane by
/// lane, `condition ? a : b` selects lane by lane. A kernel written once over W gives the same bits
/// for every W, since each lane is computed by the same IEEE operations; W = 1 is the plain
/// language, and serves for the ends of rows. Everything here is inlined into one kernel, so the
/// sources that include it are compiled with -Wno-psabi (vectors as arguments).
namespace marlo::detail {

template <int W>
struct Simd;

template <>
struct Simd<1> {
    using Float = float;
    using Int = std::int32_t;
    using Byte = std::int8_t;
};
template <>
struct Simd<4> {
    typedef float Float __attribute__((vector_size(16)));
    typedef std::int32_t Int __attribute__((vector_size(16)));
    typedef std::int8_t Byte __attribute__((vector_size(4)));
};
template <>
struct Simd<8> {
    typedef float Float __attribute__((vector_size(32)));
    typedef std::int32_t Int __attribute__((vector_size(32)));
    typedef std::int8_t Byte __attribute__((vector_size(8)));
};
template <>
struct Simd<16> {
    typedef float Float __attribute__((vector_size(64)));
    typedef std::int32_t Int __attribute__((vector_size(64)));
    typedef std::int8_t Byte __attribute__((vector_size(16)));
};

template <int W>
using FloatV = typename Simd<W>::Float;
template <int W>
using IntV = typename Simd<W>::Int;

/// A vector in memory, at any address and as whatever its elements are there.
template <typename V>
struct [[gnu::packed, gnu::may_alias]] VectorInMemory {
    V value;
};

/// The vector at `at`, to be read or written. Unlike load() and store() it passes no vector through
/// a function, which may be compiled for processors without vectors of this width.
template <typename V, typename Element>
MARLO_KERNEL_INLINE const VectorInMemory<V>& vectorAt(const Element* at) {
    return *reinterpret_cast<const VectorInMemory<V>*>(at);
}
template <typename V, typename Element>
MARLO_KERNEL_INLINE VectorInMemory<V>& vectorAt(Element* at) {
    return *reinterpret_cast<VectorInMemory<V>*>(at);
}

template <typename V, typename Element>
MARLO_KERNEL_INLINE V load(const Element* from) {
    return vectorAt<V>(from).value;
}

template <typename V, typename Element>
MARLO_KERNEL_INLINE void store(Element* to, const V& value) {
    vectorAt<V>(to).value = value;
}

/// The first `count` lanes from memory, the others 0; all of them if `count` is W or more.
template <int W>
MARLO_KERNEL_INLINE FloatV<W> loadSome(const float* from, std::ptrdiff_t count) {
    if (count >= W) return load<FloatV<W>>(from);
    float lanes[W] = {};
    for (std::ptrdiff_t i = 0; i < count; ++i) lanes[i] = from[i];
    return load<FloatV<W>>(lanes);
}

template <int W>
MARLO_KERNEL_INLINE FloatV<W> broadcast(float value) {
    if constexpr (W == 1) {
        return value;
    } else {
        return value - FloatV<W>{};
    }
}

template <int W>
MARLO_KERNEL_INLINE IntV<W> truncate(FloatV<W> x) {
    if constexpr (W == 1) {
        return static_cast<std::int32_t>(x);
    } else {
        return __builtin_convertvector(x, IntV<W>);
    }
}

template <int W>
MARLO_KERNEL_INLINE FloatV<W> toFloat(IntV<W> x) {
    if constexpr (W == 1) {
        return static_cast<float>(x);
    } else {
        return __builtin_convertvector(x, FloatV<W>);
    }
}

/// first, first + 1, first + 2 ... , each rounded for itself; below 2^31.
template <int W>
MARLO_KERNEL_INLINE FloatV<W> ramp(std::ptrdiff_t first) {
    const auto start = static_cast<std::int32_t>(first);
    if constexpr (W == 1) {
        return static_cast<float>(start);
    } else if constexpr (W == 4) {
        return toFloat<4>(IntV<4>{0, 1, 2, 3} + start);
    } else {
        return toFloat<8>(IntV<8>{0, 1, 2, 3, 4, 5, 6, 7} + start);
    }
}

template <int W>
MARLO_KERNEL_INLINE FloatV<W> abs(FloatV<W> x) {
    if constexpr (W == 1) {
        return __builtin_fabsf(x);
    } else {
        return __builtin_bit_cast(FloatV<W>, __builtin_bit_cast(IntV<W>, x) & 0x7fffffff);
    }
}

/// Correctly rounded on every processor. The loop becomes one instruction (the library's kernels
/// are compiled with -fno-math-errno).
template <int W>
MARLO_KERNEL_INLINE FloatV<W> squareRoot(FloatV<W> x) {
    if constexpr (W == 1) {
        return __builtin_sqrtf(x);
    } else {
        FloatV<W> result;
        for (int i = 0; i < W; ++i) result[i] = __builtin_sqrtf(x[i]);
        return result;
    }
}

/// x without its fraction, for |x| < 2^31.
template <int W>
MARLO_KERNEL_INLINE FloatV<W> wholePart(FloatV<W> x) {
    return toFloat<W>(truncate<W>(x));
}

/// The largest integer that is not above x, for |x| < 2^31.
template <int W>
MARLO_KERNEL_INLINE FloatV<W> roundedDown(FloatV<W> x) {
    const FloatV<W> whole = wholePart<W>(x);
    return whole - (whole > x ? broadcast<W>(1.0F) : broadcast<W>(0.0F));
}

template <int W>
MARLO_KERNEL_INLINE FloatV<W> larger(FloatV<W> a, FloatV<W> b) {
    return a > b ? a : b;
}

template <int W>
MARLO_KERNEL_INLINE FloatV<W> smaller(FloatV<W> a, FloatV<W> b) {
    return a < b ? a : b;
}

/// Turns 8 rows of W values into W rows of 8, one after the other at `to`.
MARLO_KERNEL_INLINE void storeTransposed(const FloatV<4> (&row)[8], float* to) {
    using F = FloatV<4>;
    for (int half = 0; half < 2; ++half) {
        const F* const r = row + 4 * half;
        const F low01 = __builtin_shufflevector(r[0], r[1], 0, 4, 1, 5);
        const F low23 = __builtin_shufflevector(r[2], r[3], 0, 4, 1, 5);
        const F high01 = __builtin_shufflevector(r[0], r[1], 2, 6, 3, 7);
        const F high23 = __builtin_shufflevector(r[2], r[3], 2, 6, 3, 7);
        float* const at = to + 4 * half;
        store(at, __builtin_shufflevector(low01, low23, 0, 1, 4, 5));
        store(at + 8, __builtin_shufflevector(low01, low23, 2, 3, 6, 7));
        store(at + 16, __builtin_shufflevector(high01, high23, 0, 1, 4, 5));
        store(at + 24, __builtin_shufflevector(high01, high23, 2, 3, 6, 7));
    }
}

MARLO_KERNEL_INLINE void storeTransposed(const FloatV<8> (&row)[8], float* to) {
    using F = FloatV<8>;
    // Pairs, then quadruples within each half of the vectors, then the halves.
    F quad[8];
    for (int i = 0; i < 2; ++i) {
        const F* const r = row + 4 * i;
        const F low01 = __builtin_shufflevector(r[0], r[1], 0, 8, 1, 9, 4, 12, 5, 13);
        const F low23 = __builtin_shufflevector(r[2], r[3], 0, 8, 1, 9, 4, 12, 5, 13);
        const F high01 = __builtin_shufflevector(r[0], r[1], 2, 10, 3, 11, 6, 14, 7, 15);
        const F high23 = __builtin_shufflevector(r[2], r[3], 2, 10, 3, 11, 6, 14, 7, 15);
        quad[4 * i] = __builtin_shufflevector(low01, low23, 0, 1, 8, 9, 4, 5, 12, 13);
        quad[4 * i + 1] = __builtin_shufflevector(low01, low23, 2, 3, 10, 11, 6, 7, 14, 15);
        quad[4 * i + 2] = __builtin_shufflevector(high01, high23, 0, 1, 8, 9, 4, 5, 12, 13);
        quad[4 * i + 3] = __builtin_shufflevector(high01, high23, 2, 3, 10, 11, 6, 7, 14, 15);
    }
    for (int i = 0; i < 4; ++i) {
        store(to + 8 * i, __builtin_shufflevector(quad[i], quad[i + 4], 0, 1, 2, 3, 8, 9, 10, 11));
        store(to + 8 * (i + 4),
              __builtin_shufflevector(quad[i], quad[i + 4], 4, 5, 6, 7, 12, 13, 14, 15));
    }
}

/// Adds `values` to the 8 sums at `to`, each to the one after its own and the last to the first.
MARLO_KERNEL_INLINE void addTurned(const FloatV<8> (&values)[1], float* to) {
    using F = FloatV<8>;
    const F turned = __builtin_shufflevector(values[0], values[0], 7, 0, 1, 2, 3, 4, 5, 6);
    store(to, load<F>(to) + turned);
}
MARLO_KERNEL_INLINE void addTurned(const FloatV<4> (&values)[2], float* to) {
    using F = FloatV<4>;
    store(to, load<F>(to) + __builtin_shufflevector(values[1], values[0], 3, 4, 5, 6));
    store(to + 4, load<F>(to + 4) + __builtin_shufflevector(values[0], values[1], 3, 4, 5, 6));
}

/// e^x within 2 ulp for |x| <= 87; what lies beyond gives e^-87 or e^87.
template <int W>
MARLO_KERNEL_INLINE FloatV<W> exponential(FloatV<W> x) {
    x = larger<W>(smaller<W>(x, broadcast<W>(87.0F)), broadcast<W>(-87.0F));
    // x = n ln 2 + r with |r| <= ln 2 / 2; adding 1.5 * 2^23 rounds to an integer, which then
    // stands in the low bits. ln 2 in two parts, the first exact in 9 bits.
    constexpr float kRounder = 12582912.0F;
    const FloatV<W> shifted = x * 1.44269504F + kRounder;
    const FloatV<W> n = shifted - kRounder;
    const FloatV<W> r = (x - n * 0.693359375F) + n * 2.12194440e-4F;
    // Minimax polynomial of (e^r - 1 - r) / r^2, error 3e-9, in an order of short dependences.
    const FloatV<W> r2 = r * r;
    const FloatV<W> high =
        r2 * 0.0013814469566568732F + (r * 0.0083687799051404F + 0.04166839271783829F);
    const FloatV<W> q = high * r2 + (r * 0.1666651964187622F + 0.4999999403953552F);
    const FloatV<W> fraction = (q * r2 + r) + 1.0F;
    // (n + 127) << 23 without the low bits' offset: 0x4b400000 is the pattern of kRounder.
    const IntV<W> power = (__builtin_bit_cast(IntV<W>, shifted) - (0x4b400000 - 127)) << 23;
    return fraction * __builtin_bit_cast(FloatV<W>, power);
}

/// atan2(y, x) in radians, within 1e-6; 0 for (0, 0), and +pi along -x whatever the sign of y's
/// zero. NaN if either is NaN.
template <int W>
MARLO_KERNEL_INLINE FloatV<W> arcTangent(FloatV<W> y, FloatV<W> x) {
    const FloatV<W> zero{};
    const FloatV<W> ax = abs<W>(x);
    const FloatV<W> ay = abs<W>(y);
    const FloatV<W> numerator = ay > ax ? ax : ay;
    const FloatV<W> denominator = ay > ax ? ay : ax;
    const FloatV<W> z = denominator == zero ? zero : numerator / denominator;
    const FloatV<W> t = z * z;
    // Minimax polynomial of atan(z) / z in z^2 on [0, 1], error 2.5e-7, in an order of short
    // dependences.
    const FloatV<W> t2 = t * t;
    const FloatV<W> high =
        t2 * 0.006815057247877121F + (t * -0.03361527994275093F + 0.07963825762271881F);
    const FloatV<W> middle = t * -0.13234281539916992F + 0.19808119535446167F;
    const FloatV<W> low = t * -0.33317410945892334F + 0.9999961256980896F;
    const FloatV<W> p = (high * t2 + middle) * t2 + low;
    FloatV<W> angle = p * z;
    angle = ay > ax ? 1.5707964F - angle : angle;
    angle = x < zero ? 3.1415927F - angle : angle;
    return y < zero ? -angle : angle;
}

}  // namespace marlo::detail
