// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/detail/hamming_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "libfeatures/base/detail/add_counts.h"

namespace marlo::detail {
namespace {

// The kernel of processors that count the bits of bytes, with a count that any processor has, so
// that its layout and sums are tested everywhere.
namespace planes {
typedef std::uint8_t Bytes __attribute__((vector_size(16)));
Bytes bitCounts(Bytes bytes) {
    bytes = bytes - ((bytes >> 1) & 0x55);
    bytes = (bytes & 0x33) + ((bytes >> 2) & 0x33);
    return (bytes + (bytes >> 4)) & 0x0f;
}
#include "libfeatures/base/detail/hamming_planes_body.h"
}  // namespace planes

template <int N>
struct NamedFunctions {
    const char* name;
    HammingFunctions<N> functions;
};

template <typename Width>
class HammingKernelTest : public testing::Test {
protected:
    static constexpr int kWords = Width::value;
    static constexpr int kBytes = 8 * kWords;

    /// Those of this build that this processor can run.
    static std::vector<NamedFunctions<kWords>> kernels() {
        std::vector<NamedFunctions<kWords>> all;
        const auto add = [&all](KernelList<const HammingFunctions<kWords>> list) {
            for (const auto& kernel : list) {
                if (kernel.isSupported()) all.push_back({kernel.name, *kernel.run});
            }
        };
        add(hammingKernels<system::PopcntNone, kWords>());
        add(hammingKernels<system::PopcntX86, kWords>());
        add(hammingKernels<system::PopcntArm, kWords>());
        HammingFunctions<kWords> emulated = all.front().functions;
        emulated.groupRows = planes::kGroupRows;
        emulated.groupBytes = std::size_t{kBytes} * planes::kGroupRows;
        emulated.arrange = planes::arrange<kWords>;
        emulated.distances = planes::distances<kWords>;
        all.push_back({"planes of bytes", emulated});
        return all;
    }

    std::vector<unsigned char> randomBytes(int count) {
        std::vector<unsigned char> bytes(static_cast<std::size_t>(count));
        for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random_());
        return bytes;
    }

    static int distance(const unsigned char* a, const unsigned char* b) {
        int bits = 0;
        for (int i = 0; i < kBytes; ++i) bits += std::popcount(static_cast<unsigned>(a[i] ^ b[i]));
        return bits;
    }

    std::mt19937 random_{static_cast<unsigned>(kWords)};
};

template <int N>
using Words = std::integral_constant<int, N>;
using Widths = testing::Types<Words<1>, Words<2>, Words<4>, Words<8>, Words<16>>;
TYPED_TEST_SUITE(HammingKernelTest, Widths);

TYPED_TEST(HammingKernelTest, CountsTheBitsThatDiffer) {
    constexpr int N = TestFixture::kWords;
    constexpr int kRowBytes = TestFixture::kBytes;
    constexpr int kStep = kRowBytes + 3;  // rows need not be aligned, nor close together
    for (const NamedFunctions<N>& kernel : TestFixture::kernels()) {
        SCOPED_TRACE(kernel.name);
        const HammingFunctions<N>& functions = kernel.functions;
        for (const int missing : {0, 1, functions.groupRows - 1}) {
            const int rows = 2 * functions.groupRows - missing;
            std::vector<unsigned char> train = this->randomBytes(kStep * rows);
            std::vector<unsigned char> query = this->randomBytes(2 * kRowBytes + 1);
            // All bits differ from query 0, none from query 1.
            for (int i = 0; i < kRowBytes; ++i) {
                train[static_cast<std::size_t>(i)] =
                    static_cast<unsigned char>(~query[1U + static_cast<std::size_t>(i)]);
                train[static_cast<std::size_t>(kStep + i)] =
                    query[static_cast<std::size_t>(1 + kRowBytes + i)];
            }
            std::vector<unsigned char> groups(2 * functions.groupBytes, 0xa5);
            functions.arrange(train.data(), kStep, functions.groupRows, groups.data());
            functions.arrange(train.data() + kStep * functions.groupRows, kStep,
                              functions.groupRows - missing, groups.data() + functions.groupBytes);
            const auto padded = static_cast<std::size_t>(2 * functions.groupRows);
            std::vector<HammingDistance<N>> first(padded + 1, 77);
            std::vector<HammingDistance<N>> second(padded + 1, 77);
            const unsigned char* const queries[] = {query.data() + 1, query.data() + 1 + kRowBytes};
            HammingDistance<N>* const results[] = {first.data(), second.data()};
            functions.distances(queries, groups.data(), 2, results);
            for (int row = 0; row < rows; ++row) {
                const auto at = static_cast<std::size_t>(row);
                const unsigned char* const trainRow = train.data() + row * kStep;
                ASSERT_EQ(first[at], TestFixture::distance(queries[0], trainRow)) << row;
                ASSERT_EQ(second[at], TestFixture::distance(queries[1], trainRow)) << row;
            }
            EXPECT_EQ(first[0], 8 * kRowBytes);
            EXPECT_EQ(second[1], 0);
            EXPECT_EQ(first[padded], 77);
            EXPECT_EQ(second[padded], 77);
        }
    }
}

TYPED_TEST(HammingKernelTest, OffersEveryDistanceInOrder) {
    constexpr int N = TestFixture::kWords;
    using Distance = HammingDistance<N>;
    for (const NamedFunctions<N>& kernel : TestFixture::kernels()) {
        SCOPED_TRACE(kernel.name);
        const int count = 3 * kernel.functions.groupRows;
        for (int round = 0; round < 200; ++round) {
            // Narrow ranges give ties, and 0 twice ends a search.
            const int least = round % 3 == 0 ? 0 : 60;
            const int most = std::min(round % 5 == 0 ? 64 : 64 * N, 64 * N);
            std::uniform_int_distribution<int> bits(std::min(least, most), most);
            std::vector<Distance> distances(static_cast<std::size_t>(count));
            for (Distance& distance : distances)
                distance = static_cast<Distance>(bits(this->random_));
            for (int i = 0; i < round % 7; ++i) distances.rbegin()[i] = kNoDistance<N>;

            TwoNearestBits expected;
            if (round % 2 == 0) expected = {70, 75, 3};  // from rows before
            TwoNearestBits nearest = expected;
            for (std::size_t i = 0; i < distances.size(); ++i) {
                if (distances[i] != kNoDistance<N>) {
                    expected.offer(distances[i], static_cast<std::uint32_t>(1000 + i));
                }
            }
            kernel.functions.offer(distances.data(), count, 1000, nearest);
            ASSERT_EQ(nearest.best, expected.best);
            ASSERT_EQ(nearest.second, expected.second);
            ASSERT_EQ(nearest.index, expected.index);
        }
    }
}

TYPED_TEST(HammingKernelTest, FindsTheNearestOfMoreRowsThanKeysCanNumber) {
    constexpr int N = TestFixture::kWords;
    using Distance = HammingDistance<N>;
    for (const NamedFunctions<N>& kernel : TestFixture::kernels()) {
        SCOPED_TRACE(kernel.name);
        const int count = 70'000 / kernel.functions.groupRows * kernel.functions.groupRows;
        const auto size = static_cast<std::size_t>(count);
        std::vector<Distance> distances(size);
        for (Distance& distance : distances)
            distance = static_cast<Distance>(50 + this->random_() % 14);
        const auto expectNearest = [&](std::uint64_t best, std::uint64_t second,
                                       std::size_t index) {
            TwoNearestBits nearest;
            kernel.functions.offer(distances.data(), count, 1000, nearest);
            EXPECT_EQ(nearest.best, best);
            EXPECT_EQ(nearest.second, second);
            EXPECT_EQ(nearest.index, 1000 + index);
        };
        distances[size - 5] = 11;
        distances[size - 1] = 9;
        expectNearest(9, 11, size - 1);
        distances[size - 40] = 9;
        expectNearest(9, 9, size - 40);
        distances[1234] = 8;
        distances[size - 3] = 8;
        expectNearest(8, 8, 1234);
        distances[size - 2] = 7;
        expectNearest(7, 8, size - 2);
    }
}

TYPED_TEST(HammingKernelTest, KeepsTheSmallestDistanceAndItsFirstQuery) {
    constexpr int N = TestFixture::kWords;
    using Distance = HammingDistance<N>;
    using Key = HammingKey<N>;
    constexpr unsigned kQueries = 1U << kHammingKeyBits<N>;
    for (const NamedFunctions<N>& kernel : TestFixture::kernels()) {
        SCOPED_TRACE(kernel.name);
        const auto count = static_cast<std::size_t>(2 * kernel.functions.groupRows);
        std::vector<Key> keys(count, std::numeric_limits<Key>::max());
        std::vector<Key> expected = keys;
        std::uniform_int_distribution<int> bits(0, 64 * N);
        for (const unsigned query : {0U, 1U, 2U, 77U, kQueries / 2, kQueries - 1}) {
            std::vector<Distance> distances(count);
            for (Distance& distance : distances)
                distance = static_cast<Distance>(bits(this->random_));
            distances[5] = 64 * N;
            distances[6] = 3;
            for (std::size_t row = 0; row < count; ++row) {
                const auto key = static_cast<Key>(
                    (static_cast<unsigned>(distances[row]) << kHammingKeyBits<N>) | query);
                Key& lowest = expected[row % 2 * (count / 2) + row / 2];
                lowest = std::min(lowest, key);
            }
            kernel.functions.lowerKeys(distances.data(), static_cast<int>(count), query,
                                       keys.data());
        }
        EXPECT_EQ(keys, expected);
        EXPECT_EQ(keys[3] >> kHammingKeyBits<N>, 3) << "row 6";
        EXPECT_EQ(keys[3] & (kQueries - 1), 0U) << "the first query at this distance";
        EXPECT_EQ(keys[count / 2 + 2] >> kHammingKeyBits<N>, 64 * N) << "row 5";
    }
}

}  // namespace
}  // namespace marlo::detail
