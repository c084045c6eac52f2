// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/histogram/feature_histogram.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <latch>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "libfeatures/histogram/random_descriptors.h"
#include "references/histogram_reference.h"
#include "utilities/matching_cases.h"
#include "utilities/number_of_threads.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using Bins = std::vector<std::uint32_t>;
using reference::countNearestByBits;
using reference::countNearestByFloats;

constexpr int kWords = 1024;
constexpr std::array kWidths = {8, 16, 32, 64, 128};
constexpr std::array kTypes = {DescriptorType::LDAH, DescriptorType::SIFT};

// The words for rows of `bytes` bytes: the stream of random LDAH rows, cut into such rows.
DescMat ldahWords(int bytes) {
    static const DescMat stream = [] {
        DescMat rows;
        fillRandomLdah(rows, kWords * 128 / 16);
        return rows;
    }();
    DescMat words(kWords, bytes, DescMat::Byte);
    std::memcpy(words.data, stream.data, static_cast<std::size_t>(kWords) * words.step);
    return words;
}

const DescMat& siftWords() {
    static const DescMat words = [] {
        DescMat rows;
        fillRandomSift(rows, kWords);
        return rows;
    }();
    return words;
}

DescMat wordsOf(DescriptorType type) {
    return type == DescriptorType::LDAH ? ldahWords(16) : test::copyOf(siftWords());
}

Bins classified(DescriptorType type, const DescMat& descriptors) {
    FeatureHistogram histogram(type);
    histogram.classify(descriptors);
    return histogram.bins;
}

FeatureHistogram withCounts(DescriptorType type, const std::vector<std::uint32_t>& first) {
    FeatureHistogram histogram(type);
    std::copy(first.begin(), first.end(), histogram.bins.begin());
    return histogram;
}

std::uint64_t sumOf(const Bins& bins) {
    return std::accumulate(bins.begin(), bins.end(), std::uint64_t{0});
}

std::string refusalOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "nothing was thrown";
}

// Before any other test: here the words are made.
TEST(FeatureHistogramTest, ManyThreadsMayConstructTheFirstOnesAtOnce) {
    constexpr int kThreads = 16;
    std::latch start(kThreads);
    std::vector<std::vector<Bins>> found(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&start, &of = found[static_cast<std::size_t>(i)], i] {
            start.arrive_and_wait();
            for (std::size_t turn = 0; turn < 3; ++turn) {  // words of LDAH, SIFT and longer rows
                const auto kind = (turn + static_cast<std::size_t>(i)) % 3;
                FeatureHistogram histogram(kind == 1 ? DescriptorType::SIFT : DescriptorType::LDAH);
                histogram.classify(kind == 0   ? test::rowsOfBits(16, {0, 64, 128})
                                   : kind == 1 ? test::rowsOfFloats(128, {0.0F, 0.5F})
                                               : test::rowsOfBits(32, {0, 100, 200, 256}));
                of.resize(3);
                of[kind] = histogram.bins;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (const std::vector<Bins>& of : found) EXPECT_EQ(of, found[0]);
    EXPECT_EQ(found[0][0], countNearestByBits(test::rowsOfBits(16, {0, 64, 128}), ldahWords(16)));
    EXPECT_EQ(found[0][1],
              countNearestByFloats(test::rowsOfFloats(128, {0.0F, 0.5F}), siftWords()));
    EXPECT_EQ(found[0][2],
              countNearestByBits(test::rowsOfBits(32, {0, 100, 200, 256}), ldahWords(32)));
}

TEST(FeatureHistogramTest, StartsWith1024CountsOfZero) {
    for (const DescriptorType type : kTypes) {
        const FeatureHistogram histogram(type);
        EXPECT_EQ(histogram.bins, Bins(1024, 0));
        EXPECT_EQ(histogram.descriptorType, type);
    }
}

TEST(FeatureHistogramTest, ADescriptorThatIsAWordCountsForIt) {
    for (const DescriptorType type : kTypes) {
        Bins expected(kWords, 0);
        expected[5] = 1;
        EXPECT_EQ(classified(type, wordsOf(type).row(5)), expected);
    }
}

TEST(FeatureHistogramTest, EveryWordIsItsOwnNearest) {
    for (const DescriptorType type : kTypes) {
        EXPECT_EQ(classified(type, wordsOf(type)), Bins(kWords, 1));
    }
    for (const int bytes : kWidths) {
        if (bytes == 8) continue;  // 64 bits do not suffice
        EXPECT_EQ(classified(DescriptorType::LDAH, ldahWords(bytes)), Bins(kWords, 1)) << bytes;
    }
}

TEST(FeatureHistogramTest, AnEmptyMatrixGivesCountsOfZero) {
    for (const int bytes : kWidths) {
        FeatureHistogram histogram(DescriptorType::LDAH);
        histogram.bins[7] = 3;
        histogram.classify(DescMat(0, bytes, DescMat::Byte));
        EXPECT_EQ(histogram.bins, Bins(kWords, 0)) << bytes;
    }
    const DescMat noRows(0, 128, DescMat::Float);
    const DescMat nothing;
    for (const DescMat* const empty : {&noRows, &nothing}) {
        FeatureHistogram histogram(DescriptorType::SIFT);
        histogram.bins[7] = 3;
        histogram.classify(*empty);
        EXPECT_EQ(histogram.bins, Bins(kWords, 0));
    }
}

TEST(FeatureHistogramTest, OtherWidthsThanThoseOfLdahRowsChangeNothing) {
    for (const int cols : {0, 1, 7, 24, 31, 40, 56, 63, 72, 127, 136, 256}) {
        FeatureHistogram histogram(DescriptorType::LDAH);
        histogram.bins[7] = 3;
        Bins expected(kWords, 0);
        expected[7] = 3;
        for (const int rows : {0, 3}) {
            const test::RowsApart zeros(
                test::rowsOfBits(cols, std::vector<int>(static_cast<std::size_t>(rows), 0)));
            histogram.classify(zeros.view());
            EXPECT_EQ(histogram.bins, expected) << rows << " x " << cols;
        }
    }
    FeatureHistogram histogram(DescriptorType::LDAH);
    histogram.bins[7] = 3;
    histogram.classify(DescMat());
    EXPECT_EQ(histogram.bins[7], 3U);
}

TEST(FeatureHistogramTest, ColumnsBeyondWholeWordsDoNotCount) {
    test::Random random(11);
    for (const int cols : {9, 15, 17, 23, 33, 39, 65, 71, 129, 135}) {
        const DescMat rows = test::randomBits(10, cols, random);
        const test::RowsApart apart(rows);
        const Bins expected = countNearestByBits(rows, ldahWords(cols / 8 * 8));
        EXPECT_EQ(classified(DescriptorType::LDAH, apart.view()), expected) << cols;
    }
}

TEST(FeatureHistogramTest, AgreesWithTheReferenceOnBitsOfEveryWidth) {
    test::Random random(12);
    for (const int cols : kWidths) {
        const DescMat words = ldahWords(cols);
        for (const int rows : {1, 2, 63, 65}) {
            // Most lie between several words at the same distance.
            const DescMat bits = test::randomBits(rows, cols, random);
            const test::RowsApart apart = test::anywhere(bits, random);
            const Bins expected = countNearestByBits(bits, words);
            EXPECT_EQ(classified(DescriptorType::LDAH, bits), expected) << rows << " x " << cols;
            EXPECT_EQ(classified(DescriptorType::LDAH, apart.view()), expected)
                << rows << " x " << cols;
        }
    }
}

template <system::popcnt_t P, int N>
void expectTheSameCounts(const DescMat& rows) {
    FeatureHistogram histogram(DescriptorType::LDAH);
    histogram.bins[0] = 77;
    histogram.classifyLdah<P, N>(rows);
    EXPECT_EQ(histogram.bins, countNearestByBits(rows, ldahWords(8 * N))) << P << ", " << N;
}

TEST(FeatureHistogramTest, EveryWayOfCountingBitsGivesTheSameCounts) {
    test::Random random(13);
    const auto expectForWidth = [&]<int N>(std::integral_constant<int, N>) {
        const DescMat rows = test::randomBits(20, 8 * N, random);
        expectTheSameCounts<system::PopcntNone, N>(rows);
        expectTheSameCounts<system::PopcntArm, N>(rows);
    };
    expectForWidth(std::integral_constant<int, 1>());
    expectForWidth(std::integral_constant<int, 2>());
    expectForWidth(std::integral_constant<int, 4>());
    expectForWidth(std::integral_constant<int, 8>());
    expectForWidth(std::integral_constant<int, 16>());
}

TEST(FeatureHistogramTest, BitsCanBeCountedInAHistogramOfAnyType) {
    FeatureHistogram histogram(DescriptorType::SIFT);
    histogram.classifyLdah<system::PopcntNone, 2>(ldahWords(16).row(9));
    EXPECT_EQ(histogram.bins[9], 1U);
    EXPECT_EQ(sumOf(histogram.bins), 1U);
}

TEST(FeatureHistogramTest, RowsThatAreTooShortForTheirWordsAreRefused) {
    FeatureHistogram histogram(DescriptorType::LDAH);
    histogram.bins[7] = 3;
    EXPECT_EQ(refusalOf([&] {
                  histogram.classifyLdah<system::PopcntNone, 4>(test::rowsOfBits(31, {0}));
              }),
              "The rows of descriptors are too short.");
    EXPECT_EQ(histogram.bins[7], 3U);
    histogram.classifyLdah<system::PopcntNone, 4>(DescMat(0, 31, DescMat::Byte));
    EXPECT_EQ(histogram.bins, Bins(kWords, 0));
}

TEST(FeatureHistogramTest, RowsOfFloatsInAnLdahHistogramAreReadAsBytes) {
    test::Random random(14);
    const DescMat floats = test::randomUnitRows(8, 128, random);
    DescMat firstBytes(8, 128, DescMat::Byte);
    for (int i = 0; i < 8; ++i) {
        std::memcpy(firstBytes.row(i).data, floats.row(i).data, firstBytes.step);
    }
    EXPECT_EQ(classified(DescriptorType::LDAH, floats),
              countNearestByBits(firstBytes, ldahWords(128)));
}

TEST(FeatureHistogramTest, AgreesWithTheReferenceOnFloats) {
    test::Random random(15);
    const DescMat& words = siftWords();
    for (const int rows : {1, 2, 63, 65}) {
        // Half of them lie near a word.
        DescMat floats = test::randomUnitRows(rows, 128, random);
        for (int i = 0; i < rows; i += 2) {
            DescMat row = floats.row(i);
            words.row(static_cast<int>(random.below(kWords))).copyTo(row);
            auto* const values = reinterpret_cast<float*>(row.data);
            for (int c = 0; c < 128; ++c) values[c] += random.uniform(-0.05F, 0.05F);
        }
        const test::RowsApart apart = test::anywhere(floats, random);
        const Bins expected = countNearestByFloats(floats, words);
        EXPECT_EQ(classified(DescriptorType::SIFT, floats), expected) << rows;
        EXPECT_EQ(classified(DescriptorType::SIFT, apart.view()), expected) << rows;
    }
}

TEST(FeatureHistogramTest, AgreesWithTheReferenceOnFloatsOfAnyLength) {
    test::Random random(16);
    const DescMat& words = siftWords();
    for (const float length : {1e-30F, 1e-3F, 3.0F, 512.0F, 1e10F, 1e18F}) {
        DescMat floats = test::randomUnitRows(9, 128, random);
        // Every third is as long as a word.
        for (int i = 0; i < 9; ++i) {
            auto* const values = reinterpret_cast<float*>(floats.row(i).data);
            for (int c = 0; c < 128; ++c) values[c] *= i % 3 == 0 ? 1.0F : length;
        }
        EXPECT_EQ(classified(DescriptorType::SIFT, floats), countNearestByFloats(floats, words))
            << length;
    }
}

TEST(FeatureHistogramTest, RowsThatAreNearToNothingCountForTheFirstWord) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    // The last one's squares overflow.
    for (const float value : {nan, infinity, -infinity, 1e30F}) {
        DescMat rows(4, 128, DescMat::Float);
        for (int i = 0; i < 4; ++i) {
            DescMat row = rows.row(i);
            siftWords().row(100 + i).copyTo(row);
            if (i % 2 == 0) reinterpret_cast<float*>(row.data)[127] = value;
        }
        Bins expected(kWords, 0);
        expected[0] = 2;
        expected[101] = 1;
        expected[103] = 1;
        EXPECT_EQ(classified(DescriptorType::SIFT, rows), expected) << value;
    }
}

TEST(FeatureHistogramTest, OfEquallyNearSiftWordsTheFirstCounts) {
    // Far enough off that all distances round to a few floats.
    const DescMat rows = test::rowsOfFloats(128, {3e7F, -3e7F, 1e12F});
    EXPECT_EQ(classified(DescriptorType::SIFT, rows), countNearestByFloats(rows, siftWords()));
    EXPECT_EQ(classified(DescriptorType::SIFT, rows.row(2))[0], 1U);
}

TEST(FeatureHistogramTest, OtherRowsThanOf128FloatsAreRefusedInASiftHistogram) {
    const DescMat bytes = test::rowsOfBits(128, {0});
    const DescMat codes = test::rowsOfBits(16, {0});
    const DescMat narrow = test::rowsOfFloats(127, {0.5F});
    const DescMat wide = test::rowsOfFloats(129, {0.5F});
    for (const DescMat* const rows : {&bytes, &codes, &narrow, &wide}) {
        FeatureHistogram histogram(DescriptorType::SIFT);
        histogram.bins[7] = 3;
        EXPECT_EQ(refusalOf([&] { histogram.classify(*rows); }),
                  "SIFT histograms are made of rows of 128 floats.");
        EXPECT_EQ(histogram.bins[7], 3U);
    }
}

TEST(FeatureHistogramTest, AnyOtherTypeIsClassifiedAsSift) {
    const auto other = static_cast<DescriptorType>(7);
    Bins expected(kWords, 0);
    expected[8] = 1;
    EXPECT_EQ(classified(other, siftWords().row(8)), expected);
    EXPECT_EQ(FeatureHistogram(other).descriptorType, other);
}

TEST(FeatureHistogramTest, EveryDescriptorCountsOnce) {
    test::Random random(17);
    EXPECT_EQ(sumOf(classified(DescriptorType::LDAH, test::randomBits(777, 16, random))), 777U);
    EXPECT_EQ(sumOf(classified(DescriptorType::SIFT, test::randomUnitRows(333, 128, random))),
              333U);
}

TEST(FeatureHistogramTest, ClassifyingDoesNotAddToWhatWasThere) {
    for (const DescriptorType type : kTypes) {
        const DescMat words = wordsOf(type);
        FeatureHistogram histogram(type);
        histogram.classify(words);
        histogram.classify(words.row(1));
        EXPECT_EQ(histogram.bins[1], 1U);
        EXPECT_EQ(sumOf(histogram.bins), 1U);
    }
}

TEST(FeatureHistogramTest, CountsAreMadeAnewWhateverTheBinsHaveBecome) {
    FeatureHistogram histogram(DescriptorType::LDAH);
    const FeatureHistogram moved = std::move(histogram);
    histogram.classify(ldahWords(16));  // NOLINT(bugprone-use-after-move): what is tested
    EXPECT_EQ(histogram.bins, Bins(kWords, 1));
}

TEST(FeatureHistogramTest, ClassifiesOnTheCallingThread) {
    const test::NumberOfThreads threads(9);
    DescMat floats;
    DescMat codes;
    fillRandomSift(floats, 300);
    fillRandomLdah(codes, 300);
    // Threads that OpenMP has once made stay.
    const auto threadsOfTheProcess = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    };
    const auto before = threadsOfTheProcess();
    FeatureHistogram(DescriptorType::SIFT).classify(floats);
    FeatureHistogram(DescriptorType::LDAH).classify(codes);
    EXPECT_EQ(threadsOfTheProcess(), before);
}

TEST(FeatureHistogramTest, ElementsOfMoreThanAByteCountWithAllTheirBytes) {
    FeatureHistogram histogram(DescriptorType::LDAH);
    const DescMat eight(1, 8, DescMat::Float);
    std::memset(eight.data, 0, 32);
    EXPECT_NO_THROW((histogram.classifyLdah<system::PopcntNone, 4>(eight)));
    const DescMat seven(1, 7, DescMat::Float);
    EXPECT_THROW((histogram.classifyLdah<system::PopcntNone, 4>(seven)), std::invalid_argument);
}

TEST(FeatureHistogramTest, IsReadWhateverTheBinsHaveBecome) {
    const FeatureHistogram written(DescriptorType::SIFT);
    BinWriter writer;
    written.writeBin(writer);
    FeatureHistogram histogram(DescriptorType::SIFT);
    histogram.bins.clear();
    BinReader reader(writer.buffer());
    histogram.readBin(reader);
    EXPECT_EQ(histogram.bins, written.bins);
}

TEST(FeatureHistogramTest, DifferentHistogramsMayBeClassifiedAtOnce) {
    test::Random random(18);
    const DescMat bits = test::randomBits(100, 16, random);
    const DescMat floats = test::randomUnitRows(20, 128, random);
    std::array<Bins, 4> found;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < found.size(); ++i) {
        threads.emplace_back([&, i] {
            found[i] = i % 2 == 0 ? classified(DescriptorType::LDAH, bits)
                                  : classified(DescriptorType::SIFT, floats);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(found[0], countNearestByBits(bits, ldahWords(16)));
    EXPECT_EQ(found[1], countNearestByFloats(floats, siftWords()));
    EXPECT_EQ(found[2], found[0]);
    EXPECT_EQ(found[3], found[1]);
}

TEST(FeatureHistogramTest, DistanceToItselfIsZero) {
    const FeatureHistogram histogram = withCounts(DescriptorType::LDAH, {1, 2, 3000000000});
    EXPECT_EQ(histogram.distance(histogram), 0);
}

TEST(FeatureHistogramTest, DistanceIsTheSumOfAbsoluteDifferences) {
    const FeatureHistogram first = withCounts(DescriptorType::LDAH, {1, 0, 10});
    const FeatureHistogram second = withCounts(DescriptorType::LDAH, {0, 1, 4, 0, 100});
    EXPECT_EQ(
        withCounts(DescriptorType::LDAH, {1}).distance(withCounts(DescriptorType::LDAH, {0, 1})),
        2);
    EXPECT_EQ(first.distance(second), 1 + 1 + 6 + 100);
    EXPECT_EQ(second.distance(first), 1 + 1 + 6 + 100);
}

TEST(FeatureHistogramTest, DistanceCountsTheLastBin) {
    FeatureHistogram histogram(DescriptorType::SIFT);
    histogram.bins[1023] = 4;
    EXPECT_EQ(histogram.distance(FeatureHistogram(DescriptorType::SIFT)), 4);
}

TEST(FeatureHistogramTest, DistanceDoesNotLookAtTheTypes) {
    EXPECT_EQ(
        withCounts(DescriptorType::LDAH, {1, 2}).distance(withCounts(DescriptorType::SIFT, {3, 5})),
        5);
}

TEST(FeatureHistogramTest, DifferencesAreTakenIn32Bits) {
    const auto distanceOfCounts = [](std::uint32_t a, std::uint32_t b) {
        return withCounts(DescriptorType::LDAH, {a})
            .distance(withCounts(DescriptorType::LDAH, {b}));
    };
    EXPECT_EQ(distanceOfCounts(0x7fffffff, 0), 2147483647);
    EXPECT_EQ(distanceOfCounts(0, 0x7fffffff), 2147483647);
    EXPECT_EQ(distanceOfCounts(0x80000000, 0), -2147483648L);
    EXPECT_EQ(distanceOfCounts(0, 0x80000000), -2147483648L);
    EXPECT_EQ(distanceOfCounts(0x80000001, 0), 2147483647);
    EXPECT_EQ(distanceOfCounts(0xffffffff, 0), 1);
    EXPECT_EQ(distanceOfCounts(0xffffffff, 0x80000000), 2147483647);
}

TEST(FeatureHistogramTest, SumsAreTakenIn64Bits) {
    FeatureHistogram full(DescriptorType::SIFT);
    full.bins.assign(kWords, 0x7fffffff);
    EXPECT_EQ(full.distance(FeatureHistogram(DescriptorType::SIFT)), 1024L * 2147483647L);
}

TEST(FeatureHistogramTest, OnlyHistogramsOf1024BinsAreComparedAndWritten) {
    for (const std::size_t count : {std::size_t{0}, std::size_t{1023}, std::size_t{1025}}) {
        FeatureHistogram other(DescriptorType::LDAH);
        other.bins.resize(count);
        const FeatureHistogram whole(DescriptorType::LDAH);
        BinWriter writer;
        const std::string expected = "A histogram of descriptors has 1024 bins.";
        EXPECT_EQ(refusalOf([&] { static_cast<void>(other.distance(whole)); }), expected);
        EXPECT_EQ(refusalOf([&] { static_cast<void>(whole.distance(other)); }), expected);
        EXPECT_EQ(refusalOf([&] { other.writeBin(writer); }), expected);
        EXPECT_TRUE(writer.buffer().empty());
    }
}

TEST(FeatureHistogramTest, IsWrittenAsItsCountsAndNothingElse) {
    FeatureHistogram histogram = withCounts(DescriptorType::SIFT, {0x01020304});
    histogram.bins[1023] = 5;
    BinWriter writer;
    writer.writeBytes("ab", 2);
    histogram.writeBin(writer);
    std::vector<unsigned char> expected(2 + 4096, 0);
    expected[0] = 'a';
    expected[1] = 'b';
    for (unsigned char i = 0; i < 4; ++i) expected[2U + i] = static_cast<unsigned char>(4 - i);
    expected[2 + 4092] = 5;
    EXPECT_EQ(writer.buffer(), expected);
}

TEST(FeatureHistogramTest, IsReadIntoAHistogramOfAnyType) {
    FeatureHistogram written(DescriptorType::LDAH);
    std::iota(written.bins.begin(), written.bins.end(), 4294966000U);
    BinWriter writer;
    written.writeBin(writer);
    written.writeBin(writer);
    BinReader reader(writer.buffer());
    for (const DescriptorType type : kTypes) {
        FeatureHistogram read(type);
        read.bins[3] = 9;
        read.readBin(reader);
        EXPECT_EQ(read.bins, written.bins);
        EXPECT_EQ(read.descriptorType, type);
    }
    EXPECT_EQ(reader.bytesLeft(), 0U);
}

TEST(FeatureHistogramTest, ReadingTakes4096Bytes) {
    const std::vector<unsigned char> bytes(4099, 1);
    BinReader reader(bytes);
    FeatureHistogram histogram(DescriptorType::LDAH);
    histogram.readBin(reader);
    EXPECT_EQ(reader.position(), 4096U);
    EXPECT_EQ(histogram.bins, Bins(kWords, 0x01010101));
}

TEST(FeatureHistogramTest, ReadingFromTooFewBytesChangesNothing) {
    const std::vector<unsigned char> bytes(4096, 1);
    BinReader reader(bytes);
    static_cast<void>(reader.read<std::uint8_t>());
    FeatureHistogram histogram = withCounts(DescriptorType::LDAH, {4, 5});
    const Bins before = histogram.bins;
    try {
        histogram.readBin(reader);
        FAIL() << "4095 bytes were enough";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "file too small");
    }
    EXPECT_EQ(histogram.bins, before);
    EXPECT_EQ(reader.position(), 1U);
}

TEST(FeatureHistogramTest, ACopyIsIndependent) {
    FeatureHistogram histogram = withCounts(DescriptorType::SIFT, {1});
    const FeatureHistogram copy = histogram;
    histogram.bins[0] = 9;
    EXPECT_EQ(copy.bins[0], 1U);
    EXPECT_EQ(copy.descriptorType, DescriptorType::SIFT);
}

}  // namespace
}  // namespace marlo
