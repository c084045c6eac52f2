// SPDX-License-Identifier: BSD-3-Clause
#include "support/detail/aligned_vector.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>

namespace marlo::detail {
namespace {

template <typename T>
bool startsWithACacheLine(const AlignedVector<T>& vector) {
    return reinterpret_cast<std::uintptr_t>(vector.data()) % 64 == 0;
}

TEST(AlignedVectorTest, StartsWithACacheLine) {
    for (std::size_t size = 1; size < 200; ++size) {
        ASSERT_TRUE(startsWithACacheLine(AlignedVector<unsigned char>(size))) << size;
        ASSERT_TRUE(startsWithACacheLine(AlignedVector<std::int16_t>(size))) << size;
        ASSERT_TRUE(startsWithACacheLine(AlignedVector<double>(size))) << size;
    }
}

TEST(AlignedVectorTest, StillDoesAfterItHasGrown) {
    AlignedVector<std::int32_t> vector;
    for (std::int32_t i = 0; i < 1000; ++i) {
        vector.push_back(i);
        ASSERT_TRUE(startsWithACacheLine(vector)) << i;
    }
    EXPECT_EQ(vector.back(), 999);
}

TEST(AlignedVectorTest, ElementsThatAreNotGivenAreZero) {
    const AlignedVector<std::int16_t> vector(100);
    EXPECT_EQ(vector, AlignedVector<std::int16_t>(100, 0));
}

TEST(AlignedVectorTest, TooManyElementsAreRefused) {
    constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max() / sizeof(double);
    CacheLineAllocator<double> allocator;
    EXPECT_THROW((void)allocator.allocate(kMost + 1), std::bad_array_new_length);
    AlignedVector<double> vector;
    EXPECT_THROW(vector.resize(kMost + 1), std::length_error);
}

}  // namespace
}  // namespace marlo::detail
