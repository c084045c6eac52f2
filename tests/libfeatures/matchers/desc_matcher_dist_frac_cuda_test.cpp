// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/desc_matcher_dist_frac_cuda.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "libfeatures/base/cuda_exceptions.h"
#include "libfeatures/base/parameter_setters.h"
#include "references/matching_reference.h"
#include "stand_in/marlocuda_stand_in.h"
#include "support/system.h"
#include "utilities/captured_log.h"
#include "utilities/matching_cases.h"
#include "utilities/number_of_threads.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using test::HammingDistanceCall;
using test::rowsOfBits;
using test::rowsOfFloats;
using test::sameMatches;
using testing::IsEmpty;

constexpr int kEnough = 1024;  // rows on either side for the GPU to be asked
constexpr unsigned int kMostBits = std::numeric_limits<unsigned int>::max();

// What the CPU calls its kernel for binary rows of 16 columns.
QString nameOnCpu() {
    switch (system::hasPOPCNT()) {
        case system::PopcntX86:
            return QStringLiteral("CPU SSE");
        case system::PopcntArm:
            return QStringLiteral("CPU ARM");
        default:
            return {};
    }
}

// What the GPU library does, row by row. Rows are whole 64-bit words.
void findNearest(const HammingDistanceCall& call) {
    const auto bytesOf = [&](const void* data, int row) {
        return static_cast<const unsigned char*>(data) +
               static_cast<std::size_t>(row) * call.rowBytes;
    };
    for (int q = 0; q < call.queryRows; ++q) {
        unsigned int best = kMostBits;
        unsigned int second = kMostBits;
        unsigned int index = 0;
        for (int t = 0; t < call.trainRows; ++t) {
            unsigned int distance = 0;
            for (std::size_t at = 0; at < call.rowBytes; at += 8) {
                std::array<std::uint64_t, 2> words{};
                std::memcpy(&words[0], bytesOf(call.queryData, q) + at, 8);
                std::memcpy(&words[1], bytesOf(call.trainData, t) + at, 8);
                distance += static_cast<unsigned int>(std::popcount(words[0] ^ words[1]));
            }
            if (distance < best) {
                second = std::exchange(best, distance);
                index = static_cast<unsigned int>(t);
            } else if (distance < second) {
                second = distance;
            }
        }
        call.bestIndex[q] = index;
        call.bestDistance[q] = best;
        call.secondDistance[q] = second;
    }
}

// What the GPU is to say of a query row.
struct Nearest {
    unsigned int index, best, second;
};

// Rows of which those of `query` lie 0 to 69 bits away from one of `train`.
test::QueryAndTrain nearbyBits(int queryRows, int trainRows, int cols, test::Random& random) {
    test::QueryAndTrain rows{DescMat(queryRows, cols, DescMat::Byte),
                             test::randomBits(trainRows, cols, random)};
    for (int i = 0; i < queryRows; ++i) {
        const DescMat row = rows.query.row(i);
        const auto nearest = static_cast<int>(random.below(static_cast<std::uint32_t>(trainRows)));
        std::copy_n(rows.train.row(nearest).data, cols, row.data);
        for (std::uint32_t flips = random.below(70); flips > 0; --flips) {
            const std::uint32_t bit = random.below(static_cast<std::uint32_t>(8 * cols));
            row.data[bit / 8] ^= static_cast<unsigned char>(1U << (bit % 8));
        }
    }
    return rows;
}

class DescMatcherDistFracCudaTest : public testing::Test {
protected:
    DescMatcherDistFracCudaTest() {
        gpu.reset();
        gpu.activeDevice = "a GPU";
        gpu.hammingDistance.onSuccess = findNearest;
    }

    test::StandIn& gpu = test::StandIn::instance();
    DescMatcherDistFracCuda matcher;
    test::Random random{1};

    [[nodiscard]] std::vector<DMatch> onCpu(const DescMat& query, const DescMat& train) const {
        return static_cast<const DescMatcherDistFrac&>(matcher).DescMatcherDistFrac::match(query,
                                                                                           train);
    }
    [[nodiscard]] std::vector<DMatch> expected(const DescMat& query, const DescMat& train) const {
        return reference::distFracMatches(query, train, matcher.maxHammingDistance,
                                          matcher.maxDistance, matcher.distanceFraction);
    }
    [[nodiscard]] std::size_t gpuCalls() const { return gpu.calls<HammingDistanceCall>().size(); }

    /// Matches as many rows as the GPU is asked about; it says this of the first of them, and of
    /// the others what no match comes of.
    std::vector<DMatch> matchWhereTheGpuSays(const std::vector<Nearest>& first) {
        gpu.hammingDistance.onSuccess = [first](const HammingDistanceCall& call) {
            for (std::size_t i = 0; i < first.size(); ++i) {
                call.bestIndex[i] = first[i].index;
                call.bestDistance[i] = first[i].best;
                call.secondDistance[i] = first[i].second;
            }
        };
        const DescMat rows = rowsOfBits(16, std::vector<int>(kEnough));
        return matcher.match(rows, rows);
    }

    void expectMatchedOnCpu(const DescMat& query, const DescMat& train) {
        const std::vector<DMatch> matches = matcher.match(query, train);
        const QString name = matcher.kernelName();
        EXPECT_EQ(gpuCalls(), 0U);
        EXPECT_TRUE(sameMatches(matches, onCpu(query, train)));
        EXPECT_TRUE(sameMatches(matches, expected(query, train)));
        EXPECT_EQ(name, matcher.kernelName());
        EXPECT_THAT(gpu.calls<test::ActiveDeviceCall>(), IsEmpty());
    }

private:
    const test::NumberOfThreads one_{1};
};

TEST_F(DescMatcherDistFracCudaTest, StartsWithTheStatedParameters) {
    EXPECT_EQ(matcher.maxHammingDistance, 50U);
    EXPECT_EQ(matcher.maxDistance, 1000000.0F);
    EXPECT_EQ(matcher.distanceFraction, 0.8F);
    EXPECT_TRUE(matcher.kernelName().isEmpty());
}

TEST_F(DescMatcherDistFracCudaTest, TakesItsParametersThroughTheSetter) {
    setDescriptorMatcherDistFracParams(&matcher, 7U, 0.5F);
    setDescriptorMatcherDistFracParams(&matcher, 9.0F, 0.25F);
    EXPECT_EQ(matcher.maxHammingDistance, 7U);
    EXPECT_EQ(matcher.maxDistance, 9.0F);
    EXPECT_EQ(matcher.distanceFraction, 0.25F);
}

TEST_F(DescMatcherDistFracCudaTest, ACloneHasTheParametersAndTheKernelName) {
    setDescriptorMatcherDistFracParams(&matcher, 7U, 0.5F);
    setDescriptorMatcherDistFracParams(&matcher, 9.0F, 0.25F);
    (void)matcher.match(DescMat(), DescMat());
    const std::unique_ptr<IDescriptorMatcher> clone = matcher.clone();
    setDescriptorMatcherDistFracParams(&matcher, 1U, 1.0F);

    const auto* const copy = dynamic_cast<const DescMatcherDistFracCuda*>(clone.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->maxHammingDistance, 7U);
    EXPECT_EQ(copy->maxDistance, 9.0F);
    EXPECT_EQ(copy->distanceFraction, 0.25F);
    EXPECT_EQ(copy->kernelName(), QLatin1String("a GPU"));
}

TEST_F(DescMatcherDistFracCudaTest, ACloneAsksTheGpuToo) {
    const auto [query, train] = nearbyBits(kEnough, kEnough, 16, random);
    (void)matcher.clone()->match(query, train);
    EXPECT_EQ(gpuCalls(), 1U);
}

// Who is asked.

TEST_F(DescMatcherDistFracCudaTest, TheGpuGetsBothMatricesAndThreeArraysOfZeros) {
    const auto [query, train] = nearbyBits(kEnough + 3, kEnough, 16, random);
    gpu.hammingDistance.onSuccess = [](const HammingDistanceCall& call) {
        for (unsigned int* const array : {call.bestIndex, call.bestDistance, call.secondDistance}) {
            EXPECT_THAT(std::vector<unsigned int>(array, array + call.queryRows),
                        testing::Each(0U));
        }
        findNearest(call);  // writes every entry of the three
    };
    (void)matcher.match(query, train);
    const auto calls = gpu.calls<HammingDistanceCall>();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].queryData, query.data);
    EXPECT_EQ(calls[0].queryRows, kEnough + 3);
    EXPECT_EQ(calls[0].trainData, train.data);
    EXPECT_EQ(calls[0].trainRows, kEnough);
    EXPECT_EQ(calls[0].rowBytes, 16U);
}

TEST_F(DescMatcherDistFracCudaTest, FewRowsOnEitherSideStayOnTheCpu) {
    for (const auto& [queryRows, trainRows] :
         {std::pair(1023, 5000), {1023, 1024}, {1023, 1023}, {1024, 1023}, {5000, 1023}, {1, 1}}) {
        const auto [query, train] = nearbyBits(queryRows, trainRows, 16, random);
        expectMatchedOnCpu(query, train);
        EXPECT_EQ(matcher.kernelName(), nameOnCpu()) << queryRows << ' ' << trainRows;
    }
}

TEST_F(DescMatcherDistFracCudaTest, EnoughRowsOnBothSidesGoToTheGpu) {
    for (const auto& [queryRows, trainRows] :
         {std::pair(kEnough, kEnough), {kEnough, 1500}, {1500, kEnough}}) {
        gpu.allCalls.clear();
        const auto [query, train] = nearbyBits(queryRows, trainRows, 16, random);
        const std::vector<DMatch> matches = matcher.match(query, train);
        EXPECT_EQ(gpuCalls(), 1U);
        EXPECT_EQ(matcher.kernelName(), QLatin1String("a GPU"));
        EXPECT_GT(matches.size(), 100U);
        EXPECT_TRUE(sameMatches(matches, expected(query, train)));
        EXPECT_TRUE(sameMatches(matches, onCpu(query, train)));
    }
}

TEST_F(DescMatcherDistFracCudaTest, BriefRowsGoToTheGpu) {
    matcher.maxHammingDistance = 256;
    const auto [query, train] = nearbyBits(kEnough, kEnough, 64, random);
    const std::vector<DMatch> matches = matcher.match(query, train);
    ASSERT_EQ(gpuCalls(), 1U);
    EXPECT_EQ(gpu.calls<HammingDistanceCall>()[0].rowBytes, 64U);
    EXPECT_GT(matches.size(), 100U);
    EXPECT_TRUE(sameMatches(matches, onCpu(query, train)));
}

TEST_F(DescMatcherDistFracCudaTest, TheGpuTakesWidthsThatTheCpuHasNoKernelFor) {
    const auto [query, train] = nearbyBits(kEnough, kEnough, 24, random);
    EXPECT_FALSE(matcher.match(query, train).empty());
    EXPECT_EQ(gpu.calls<HammingDistanceCall>().at(0).rowBytes, 24U);
    gpu.hammingDistance.status = 1;
    EXPECT_THAT(matcher.match(query, train), IsEmpty());
}

TEST_F(DescMatcherDistFracCudaTest, FloatRowsStayOnTheCpu) {
    const auto [query, train] = test::partlyNearRows(kEnough, kEnough, 4, random);
    expectMatchedOnCpu(query, train);
    EXPECT_EQ(matcher.kernelName(), QLatin1String("CPU Float"));
}

TEST_F(DescMatcherDistFracCudaTest, RowsOfDifferentWidthsStayOnTheCpu) {
    const DescMat narrow = test::randomBits(kEnough, 8, random);
    const DescMat wide = test::randomBits(kEnough, 16, random);
    expectMatchedOnCpu(narrow, wide);
    expectMatchedOnCpu(wide, narrow);
}

TEST_F(DescMatcherDistFracCudaTest, RowsOfDifferentTypesStayOnTheCpu) {
    const DescMat bits = test::randomBits(kEnough, 16, random);
    const DescMat floats = test::randomUnitRows(kEnough, 16, random);
    matcher.maxHammingDistance = 128;
    matcher.distanceFraction = 1.1F;
    const std::vector<DMatch> matches = matcher.match(bits, floats);
    EXPECT_FALSE(matches.empty());
    EXPECT_TRUE(sameMatches(matches, onCpu(bits, floats)));
    EXPECT_THAT(matcher.match(floats, bits), IsEmpty());
    EXPECT_EQ(gpuCalls(), 0U);
}

TEST_F(DescMatcherDistFracCudaTest, RowsWithGapsStayOnTheCpu) {
    const auto [query, train] = nearbyBits(kEnough, kEnough, 16, random);
    const test::RowsApart queryRows(query, 0, 8);
    const test::RowsApart trainRows(train, 0, 1);
    expectMatchedOnCpu(queryRows.view(), train);
    expectMatchedOnCpu(query, trainRows.view());
    expectMatchedOnCpu(queryRows.view(), trainRows.view());
}

TEST_F(DescMatcherDistFracCudaTest, RowsWithoutGapsMayLieAnywhere) {
    const auto [query, train] = nearbyBits(kEnough, kEnough, 16, random);
    const test::RowsApart queryRows(query, 1, 0);
    const test::RowsApart trainRows(train, 3, 0);
    const std::vector<DMatch> matches = matcher.match(queryRows.view(), trainRows.view());
    EXPECT_EQ(gpuCalls(), 1U);
    EXPECT_TRUE(sameMatches(matches, onCpu(query, train)));
}

TEST_F(DescMatcherDistFracCudaTest, EmptyMatricesGiveNoMatchesAndTheNameOfTheGpu) {
    const auto expectNothing = [&](const DescMat& query, const DescMat& train) {
        (void)onCpu(rowsOfFloats(3, {1.0F}), rowsOfFloats(3, {1.0F}));  // leaves its name
        EXPECT_EQ(matcher.kernelName(), QLatin1String("CPU Float"));
        EXPECT_THAT(matcher.match(query, train), IsEmpty());
        EXPECT_EQ(matcher.kernelName(), QLatin1String("a GPU"));
    };
    const DescMat bits = rowsOfBits(16, std::vector<int>(2000));
    const DescMat floats = rowsOfFloats(128, {0.0F, 1.0F});
    expectNothing(DescMat(), bits);
    expectNothing(bits, DescMat());
    expectNothing(DescMat(), DescMat());
    expectNothing(DescMat(0, 16, DescMat::Byte), bits);
    expectNothing(bits, DescMat(0, 16, DescMat::Byte));
    expectNothing(DescMat(2000, 0, DescMat::Byte), DescMat(2000, 0, DescMat::Byte));
    expectNothing(floats, DescMat());
    expectNothing(floats, DescMat(0, 128, DescMat::Float));
    expectNothing(DescMat(0, 128, DescMat::Float), floats);
    expectNothing(DescMat(0, 128, DescMat::Float), bits);
    EXPECT_EQ(gpuCalls(), 0U);
}

TEST_F(DescMatcherDistFracCudaTest, TheNameIsThatOfTheLastMatch) {
    const auto [query, train] = nearbyBits(kEnough, kEnough, 16, random);
    (void)matcher.match(query, train);
    EXPECT_EQ(matcher.kernelName(), QLatin1String("a GPU"));
    (void)matcher.match(rowsOfFloats(3, {1.0F}), rowsOfFloats(3, {1.0F}));
    EXPECT_EQ(matcher.kernelName(), QLatin1String("CPU Float"));
    gpu.activeDevice =
        "G\xC3\xA9"
        "ant 2";
    (void)matcher.match(query, train);
    EXPECT_EQ(matcher.kernelName(), QString::fromUtf8("G\xC3\xA9"
                                                      "ant 2"));
}

// Failures.

TEST_F(DescMatcherDistFracCudaTest, WhatTheGpuFailsAtGoesToTheCpuInSilence) {
    const auto [query, train] = nearbyBits(kEnough, kEnough, 16, random);
    const std::vector<DMatch> wanted = expected(query, train);
    const test::CapturedLog log;
    for (const int status : {1, 2, 3, -1}) {
        gpu.allCalls.clear();
        gpu.hammingDistance.status = status;
        EXPECT_TRUE(sameMatches(matcher.match(query, train), wanted)) << status;
        EXPECT_EQ(gpuCalls(), 1U);
        EXPECT_EQ(matcher.kernelName(), nameOnCpu());
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(DescMatcherDistFracCudaTest, TheGpuIsAskedAgainAfterAFailure) {
    const auto [query, train] = nearbyBits(kEnough, kEnough, 16, random);
    gpu.hammingDistance.statuses = {1};
    (void)matcher.match(query, train);
    EXPECT_TRUE(sameMatches(matcher.match(query, train), expected(query, train)));
    EXPECT_EQ(gpuCalls(), 2U);
    EXPECT_EQ(matcher.kernelName(), QLatin1String("a GPU"));
}

TEST_F(DescMatcherDistFracCudaTest, ExceptionsOfTheGpuLibraryReachTheCaller) {
    gpu.hammingDistance.onSuccess = [](const HammingDistanceCall&) { throw cuda::CudaException(); };
    const DescMat rows = rowsOfBits(16, std::vector<int>(kEnough));
    EXPECT_THROW((void)matcher.match(rows, rows), cuda::CudaException);
}

// The ratio test.

TEST_F(DescMatcherDistFracCudaTest, ScoresHowMuchNearerTheNearestIs) {
    EXPECT_TRUE(sameMatches(matchWhereTheGpuSays({{7, 10, 40}}), {{0, 7, 0.75F}}));
}

TEST_F(DescMatcherDistFracCudaTest, TheNearestRowMustLieWithinTheLimit) {
    EXPECT_TRUE(sameMatches(matchWhereTheGpuSays({{7, 50, 100}, {8, 51, 102}}), {{0, 7, 0.5F}}));
    matcher.maxHammingDistance = 51;
    EXPECT_TRUE(sameMatches(matchWhereTheGpuSays({{7, 50, 100}, {8, 51, 102}, {9, 52, 104}}),
                            {{1, 8, 0.5F}, {0, 7, 0.5F}}));
}

TEST_F(DescMatcherDistFracCudaTest, TheRatioMustBeStrictlyBelowTheFraction) {
    EXPECT_TRUE(sameMatches(matchWhereTheGpuSays({{7, 40, 50}, {8, 40, 51}}),
                            {{1, 8, 1.0F - 40.0F / 51.0F}}));
    matcher.distanceFraction = 1.0F;
    EXPECT_THAT(matchWhereTheGpuSays({{7, 30, 30}}), IsEmpty());
    matcher.distanceFraction = 1.1F;
    EXPECT_TRUE(sameMatches(matchWhereTheGpuSays({{7, 30, 30}}), {{0, 7, 0.0F}}));
    matcher.distanceFraction = std::numeric_limits<float>::quiet_NaN();
    EXPECT_THAT(matchWhereTheGpuSays({{7, 0, 100}}), IsEmpty());
}

TEST_F(DescMatcherDistFracCudaTest, TwoRowsAtDistanceZeroAreAmbiguous) {
    matcher.distanceFraction = std::numeric_limits<float>::infinity();
    EXPECT_TRUE(sameMatches(matchWhereTheGpuSays({{7, 0, 0}, {8, 0, 1}}), {{1, 8, 1.0F}}));
}

TEST_F(DescMatcherDistFracCudaTest, TheBestComeFirstAndOfEqualScoresTheLargerQueryRow) {
    EXPECT_TRUE(sameMatches(
        matchWhereTheGpuSays({{5, 10, 40}, {9, 10, 80}, {3, 20, 80}, {9, 0, 3}, {1, 10, 40}}),
        {{3, 9, 1.0F}, {1, 9, 0.875F}, {4, 1, 0.75F}, {2, 3, 0.75F}, {0, 5, 0.75F}}));
}

TEST_F(DescMatcherDistFracCudaTest, AgreesWithTheCpuWhereDistancesTie) {
    const auto [query, train] = test::alikeBits(kEnough, kEnough + 100, 16, random);
    // All train rows but eight are far away, and some of those equal: with more near ones nearly
    // every query row would have two at distance 0.
    const DescMat far = test::randomBits(kEnough, 16, random);
    for (int i = 8; i < train.rows; ++i) {
        std::copy_n(far.row(i % kEnough).data, 16, train.row(i).data);
    }
    std::size_t matched = 0;
    for (const float fraction : {0.8F, 1.0F, 1.1F}) {
        for (const unsigned int limit : {0U, 3U, 50U, kMostBits}) {
            matcher.setParams(limit, fraction);
            const std::vector<DMatch> matches = matcher.match(query, train);
            EXPECT_EQ(matcher.kernelName(), QLatin1String("a GPU"));
            EXPECT_TRUE(sameMatches(matches, onCpu(query, train))) << limit << ' ' << fraction;
            matched += matches.size();
        }
    }
    EXPECT_GT(matched, 1000U);
}

TEST_F(DescMatcherDistFracCudaTest, TheGpuLeavesTheNumberOfThreads) {
    const test::NumberOfThreads three(3);
    const DescMat rows = rowsOfBits(16, std::vector<int>(kEnough));
    (void)matcher.match(rows, rows);
    EXPECT_EQ(omp_get_max_threads(), 3);
}

}  // namespace
}  // namespace marlo
