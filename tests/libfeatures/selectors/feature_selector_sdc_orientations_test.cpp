// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_sdc_orientations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <new>
#include <random>
#include <stdexcept>
#include <string>

#include "references/sdc_reference.h"
#include "utilities/captured_log.h"

namespace marlo {
namespace {

using reference::DiscCoveringEnd;
using testing::ElementsAre;
using testing::SizeIs;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr int kLargestInt = std::numeric_limits<int>::max();

Keypoint at(float x, float y, float response, float angle = 0.0F) {
    return {x, y, 7.0F, angle, response, 0, 0};
}

KeypointSelectorSdcOrientations selectorFor(int width, int height, std::uint64_t count,
                                            float ek = 0.25F, float er = 0.1F) {
    KeypointSelectorSdcOrientations selector;
    selector.setParams(width, height, ek, er);
    selector.setNumberOfKeypoints(count);
    return selector;
}

std::vector<Keypoint> selected(KeypointSelectorSdcOrientations selector,
                               const std::vector<Keypoint>& in) {
    std::vector<Keypoint> out;
    selector.select(in, out);
    return out;
}

std::vector<std::size_t> positions(KeypointSelectorSdcOrientations selector,
                                   const std::vector<Keypoint>& in) {
    std::vector<std::size_t> out;
    selector.selectIndices(in, out);
    return out;
}

std::vector<float> responses(const std::vector<Keypoint>& keypoints) {
    std::vector<float> values;
    for (const Keypoint& keypoint : keypoints) {
        values.push_back(keypoint.response);
    }
    return values;
}

std::string refusal(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "accepted";
}

const std::vector<Keypoint>& threeWeakestFirst() {
    static const std::vector<Keypoint> kKeypoints{at(1, 1, 1), at(50, 50, 2), at(90, 90, 3)};
    return kKeypoints;
}

std::vector<Keypoint> scattered(std::size_t count, int width, int height, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> x(0.0F, static_cast<float>(width));
    std::uniform_real_distribution<float> y(0.0F, static_cast<float>(height));
    std::uniform_real_distribution<float> response(0.0F, 1.0F);
    std::vector<Keypoint> keypoints;
    while (keypoints.size() < count) {
        keypoints.push_back(at(x(random), y(random), response(random)));
    }
    return keypoints;
}

TEST(KeypointSelectorSdcOrientationsTest, AskedForAllGivesAllStrongestFirst) {
    EXPECT_THAT(responses(selected(selectorFor(100, 100, 3), threeWeakestFirst())),
                ElementsAre(3.0F, 2.0F, 1.0F));
}

TEST(KeypointSelectorSdcOrientationsTest, AskedForMoreThanThereAreGivesAllStrongestFirst) {
    EXPECT_THAT(
        responses(selected(selectorFor(100, 100, std::uint64_t{1} << 63U), threeWeakestFirst())),
        ElementsAre(3.0F, 2.0F, 1.0F));
}

TEST(KeypointSelectorSdcOrientationsTest, OneKeypointComesBack) {
    EXPECT_THAT(selected(selectorFor(1, 1, 1), {at(0, 0, 5)}), SizeIs(1));
}

TEST(KeypointSelectorSdcOrientationsTest, TakesTheStrongestThatKeepADistance) {
    // Two groups in opposite corners; the second strongest lies next to the strongest.
    const std::vector<Keypoint> in{at(10, 10, 9), at(11, 10, 8), at(90, 90, 5), at(91, 90, 4)};
    EXPECT_THAT(responses(selected(selectorFor(100, 100, 2), in)), ElementsAre(9.0F, 5.0F));
    EXPECT_THAT(positions(selectorFor(100, 100, 2), in), ElementsAre(0U, 2U));
}

TEST(KeypointSelectorSdcOrientationsTest, PositionsAreThoseInTheSortedList) {
    const std::vector<Keypoint> in{at(91, 90, 4), at(90, 90, 5), at(11, 10, 8), at(10, 10, 9)};
    EXPECT_THAT(positions(selectorFor(100, 100, 2), in), ElementsAre(0U, 2U));
}

TEST(KeypointSelectorSdcOrientationsTest, OrientationsAtOnePlaceAreTakenTogether) {
    const std::vector<Keypoint> in{at(10, 10, 9), at(11, 10, 8), at(10, 10, 7, 1), at(90, 90, 6),
                                   at(90, 90, 5, 2)};
    EXPECT_THAT(responses(selected(selectorFor(100, 100, 4), in)),
                ElementsAre(9.0F, 7.0F, 6.0F, 5.0F));
    EXPECT_THAT(positions(selectorFor(100, 100, 4), in), ElementsAre(0U, 2U, 3U, 4U));
}

TEST(KeypointSelectorSdcOrientationsTest, OnePlaceReachesToAThousandthOfAPixel) {
    const auto second = [](float x) {
        return positions(selectorFor(100, 100, 2), {at(0, 0, 3), at(x, 0, 2), at(50, 0, 1)}).at(1);
    };
    EXPECT_EQ(second(0.001F), 1U);
    EXPECT_EQ(second(std::nextafter(0.001F, 1.0F)), 2U);
}

TEST(KeypointSelectorSdcOrientationsTest, CompanionsBeyondTheNumberAreCutOff) {
    // All three at the first place are taken with it, and a tolerance of 100 % accepts them.
    const std::vector<Keypoint> in{at(10, 10, 9), at(10, 10, 8, 1), at(10, 10, 7, 2),
                                   at(11, 10, 6)};
    EXPECT_THAT(positions(selectorFor(100, 100, 2, 0.25F, 1.0F), in), ElementsAre(0U, 1U));
}

TEST(KeypointSelectorSdcOrientationsTest, AllAtOnePlaceAreTakenInOrderOfStrength) {
    const std::vector<Keypoint> in{at(5, 5, 1), at(5, 5, 4), at(5, 5, 3), at(5, 5, 2)};
    EXPECT_THAT(responses(selected(selectorFor(100, 100, 3), in)), ElementsAre(4.0F, 3.0F, 2.0F));
}

TEST(KeypointSelectorSdcOrientationsTest, CellSizeOfZeroReadsFromTheSortedList) {
    // Two are asked for, all in one cell whatever its size, but not at one place.
    const std::vector<Keypoint> in{at(1, 1, 1), at(1.1F, 1, 3), at(1.2F, 1, 2)};
    EXPECT_THAT(responses(selected(selectorFor(8, 8, 2), in)), ElementsAre(3.0F));
    EXPECT_THAT(positions(selectorFor(8, 8, 2), in), ElementsAre(0U));
}

TEST(KeypointSelectorSdcOrientationsTest, StartsEachCallWithNothingTaken) {
    KeypointSelectorSdcOrientations selector = selectorFor(2, 2, 2);  // no pass at all
    std::vector<Keypoint> out(4);
    selector.select(threeWeakestFirst(), out);
    EXPECT_THAT(out, SizeIs(0));
    selector.setParams(100, 100, 0.25F, 0.1F);
    selector.select(threeWeakestFirst(), out);
    EXPECT_THAT(out, SizeIs(2));
    selector.setParams(2, 2, 0.25F, 0.1F);
    selector.select(threeWeakestFirst(), out);
    EXPECT_THAT(out, SizeIs(0));
}

TEST(KeypointSelectorSdcOrientationsTest, CountWithinTheToleranceEndsTheSearchAndTheRestIsCutOff) {
    // 105 keypoints far apart and one beside the first: 105 are taken, 5 % above 100.
    std::vector<Keypoint> in;
    for (int i = 0; i < 105; ++i) {
        in.push_back(at(static_cast<float>(i % 15) * 100.0F, static_cast<float>(i / 15) * 100.0F,
                        static_cast<float>(1000 - i)));
    }
    in.push_back(at(0.5F, 0.0F, 1.0F));
    const std::vector<Keypoint> out = selected(selectorFor(1500, 700, 100), in);
    ASSERT_EQ(out.size(), 100U);
    for (std::size_t i = 0; i < out.size(); ++i) {
        ASSERT_EQ(out[i].response, static_cast<float>(1000 - static_cast<int>(i)));
    }
}

TEST(KeypointSelectorSdcOrientationsTest, CellSizeOfZeroAtOnceGivesNothing) {
    std::vector<Keypoint> out(4);
    KeypointSelectorSdcOrientations selector =
        selectorFor(2, 2, 2);  // floor(1 x 0.25 / 1.41 + 0.5) = 0
    selector.select(threeWeakestFirst(), out);
    EXPECT_THAT(out, SizeIs(0));
}

TEST(KeypointSelectorSdcOrientationsTest, RadiusThatNoLongerChangesEndsTheSearch) {
    // Cells of S pixels and discs of one cell in the first pass: three keypoints 2 S apart are all
    // taken, more than the 2 asked for. Any larger cell takes the first alone. The bisection comes
    // back to the first radius but for one rounding step, and there the cells are larger already.
    constexpr int kWidth = 100003;
    constexpr float kFirst = 50001.5F;
    constexpr float kNext = 50001.50390625F;
    const auto cellSize = [](float radius, float ek) {
        return std::floor(static_cast<double>(radius) * static_cast<double>(ek) / std::sqrt(2.0) +
                          0.5);
    };
    float ek = 0.9F;
    while (cellSize(kFirst, ek) == cellSize(kNext, ek)) {
        ek = std::nextafter(ek, 1.0F);
    }
    const auto far = static_cast<float>(2.0 * cellSize(kFirst, ek));
    const std::vector<Keypoint> in{at(0, far, 1), at(far, 0, 2), at(0, 0, 3)};
    EXPECT_THAT(responses(selected(selectorFor(kWidth, kWidth, 2, ek), in)), ElementsAre(3.0F));
    EXPECT_THAT(positions(selectorFor(kWidth, kWidth, 2, ek), in), ElementsAre(0U));
}

TEST(KeypointSelectorSdcOrientationsTest, LowersTheNumberForLaterCalls) {
    KeypointSelectorSdcOrientations selector = selectorFor(100, 100, 10);
    std::vector<Keypoint> out;
    selector.select(std::vector<Keypoint>{at(0, 0, 1), at(99, 99, 2)}, out);
    ASSERT_THAT(out, SizeIs(2));
    selector.select({at(10, 10, 9), at(11, 10, 8), at(90, 90, 5), at(91, 90, 4)}, out);
    EXPECT_THAT(responses(out), ElementsAre(9.0F, 5.0F));
}

TEST(KeypointSelectorSdcOrientationsTest, EmptyInputLowersTheNumberToZero) {
    KeypointSelectorSdcOrientations selector = selectorFor(100, 100, 2);
    std::vector<Keypoint> out{at(0, 0, 7)};
    const char* const message = "Keypoints to select or the number of input keypoints is 0";
    EXPECT_EQ(refusal([&] { selector.select({}, out); }), message);
    EXPECT_EQ(refusal([&] { selector.select(threeWeakestFirst(), out); }), message);
    EXPECT_THAT(responses(out), ElementsAre(7.0F));
}

TEST(KeypointSelectorSdcOrientationsTest, NothingRequestedThrowsBeforeTheParametersAreLookedAt) {
    KeypointSelectorSdcOrientations selector;
    std::vector<Keypoint> out{at(0, 0, 7)};
    std::vector<std::size_t> indices{4};
    const char* const message = "Keypoints to select or the number of input keypoints is 0";
    EXPECT_EQ(refusal([&] { selector.select(threeWeakestFirst(), out); }), message);
    EXPECT_EQ(refusal([&] { selector.selectIndices(threeWeakestFirst(), indices); }), message);
    EXPECT_THAT(responses(out), ElementsAre(7.0F));
    EXPECT_THAT(indices, ElementsAre(4U));
}

TEST(KeypointSelectorSdcOrientationsTest, ParametersMustBeSetEvenIfAllAreRequested) {
    KeypointSelectorSdcOrientations selector;
    selector.setNumberOfKeypoints(3);
    std::vector<Keypoint> out{at(0, 0, 7)};
    std::vector<std::size_t> indices{4};
    EXPECT_EQ(refusal([&] { selector.select(threeWeakestFirst(), out); }),
              "parameters have not been set");
    EXPECT_EQ(refusal([&] { selector.selectIndices(threeWeakestFirst(), indices); }),
              "parameters have not been set");
    EXPECT_THAT(responses(out), ElementsAre(7.0F));
    EXPECT_THAT(indices, ElementsAre(4U));
}

TEST(KeypointSelectorSdcOrientationsTest, RefusesToSelectInPlaceFirst) {
    KeypointSelectorSdcOrientations selector;
    std::vector<Keypoint> list;
    EXPECT_EQ(refusal([&] { selector.select(list, list); }),
              "keypoint selectors cannot do selection in-place (in == out)");
}

TEST(KeypointSelectorSdcOrientationsTest, DoesNotGiveThePositionsOfAll) {
    KeypointSelectorSdcOrientations selector = selectorFor(100, 100, 3);
    std::vector<std::size_t> out{5};
    EXPECT_EQ(refusal([&] { selector.selectIndices(threeWeakestFirst(), out); }),
              "This case has not been implemented yet");
    EXPECT_THAT(out, ElementsAre(5U));
}

TEST(KeypointSelectorSdcOrientationsTest, GridWithoutMemoryThrowsAndTheObjectStaysUsable) {
    // Cells of one pixel in the first pass: 2^62 of them.
    KeypointSelectorSdcOrientations selector = selectorFor(kLargestInt, kLargestInt, 1, 1e-9F);
    std::vector<Keypoint> out{at(0, 0, 7)};
    EXPECT_THROW(selector.select(threeWeakestFirst(), out), std::bad_alloc);
    EXPECT_THAT(responses(out), ElementsAre(7.0F));
    selector.setParams(100, 100, 0.25F, 0.1F);
    selector.select(threeWeakestFirst(), out);
    EXPECT_THAT(responses(out), ElementsAre(3.0F));
}

TEST(KeypointSelectorSdcOrientationsTest, LargestImageIsSearched) {
    const std::vector<Keypoint> in{at(0, 0, 3), at(2e9F, 2e9F, 2), at(2e9F, 2e9F, 1)};
    EXPECT_THAT(positions(selectorFor(kLargestInt, kLargestInt, 2), in), ElementsAre(0U, 1U));
}

TEST(KeypointSelectorSdcOrientationsTest, LogsTheSearch) {
    const test::CapturedLog log;
    selected(selectorFor(640, 480, 2), threeWeakestFirst());
    EXPECT_THAT(log.lines(),
                ElementsAre("2 [feature_selector_sdc_base:74] |KeypointSelectorSdc::select 3 "
                            "keypoints as input and 2 will be selected. Width: 640 Height: 480 "
                            "e_k: 0.25, e_r: 0.1"));
}

TEST(KeypointSelectorSdcOrientationsTest, LogsNothingWhereNothingIsSearched) {
    const test::CapturedLog log;
    selected(selectorFor(640, 480, 3), threeWeakestFirst());
    EXPECT_THROW(selected(KeypointSelectorSdcOrientations(), threeWeakestFirst()),
                 std::runtime_error);
    EXPECT_THAT(log.lines(), ElementsAre());
}

TEST(KeypointSelectorSdcOrientationsTest, DropsTheOldContentOfTheOutputAndSpareRoom) {
    KeypointSelectorSdcOrientations selector = selectorFor(100, 100, 1);
    std::vector<Keypoint> out(50);
    selector.select(threeWeakestFirst(), out);
    EXPECT_THAT(responses(out), ElementsAre(3.0F));
    EXPECT_EQ(out.capacity(), 1U);
}

TEST(KeypointSelectorSdcOrientationsTest, CloneCarriesEverythingAndIsIndependent) {
    KeypointSelectorSdcOrientations selector = selectorFor(100, 100, 2);
    const std::unique_ptr<IKeypointSelector> clone = selector.clone();
    selector.setNumberOfKeypoints(1);
    selector.setParams(1, 1, 1.0F, 1.0F);
    std::vector<Keypoint> out;
    clone->select({at(10, 10, 9), at(11, 10, 8), at(90, 90, 5), at(91, 90, 4)}, out);
    EXPECT_THAT(responses(out), ElementsAre(9.0F, 5.0F));
}

TEST(KeypointSelectorSdcOrientationsTest, CoordinatesOutsideTheImageCountAsThoseAtTheBorder) {
    // The last of each row shares the corner of the one before it.
    const float outside[] = {-50.0F, -kInfinity, kNaN};
    for (const float low : outside) {
        for (const float high : {150.0F, 1e30F, kInfinity}) {
            const std::vector<Keypoint> in{at(0, 0, 6), at(low, low, 5), at(99, 99, 4),
                                           at(high, high, 3)};
            EXPECT_THAT(positions(selectorFor(100, 100, 2), in), ElementsAre(0U, 2U));
        }
    }
}

TEST(KeypointSelectorSdcOrientationsTest, AgreesWithTheSlowReference) {
    std::mt19937 random(5);
    const auto upTo = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    std::map<DiscCoveringEnd, int> ends;
    int fewerThanRequested = 0;
    for (int round = 0; round < 1200; ++round) {
        reference::DiscCoveringTask task;
        task.width = 1 + static_cast<int>(upTo(round % 3 == 0 ? 12 : 200));
        task.height = 1 + static_cast<int>(upTo(round % 3 == 0 ? 12 : 200));
        const float eks[] = {0.25F, 0.25F, 0.1F, 0.7F, 1.5F, 5.0F};
        const float ers[] = {0.1F, 0.1F, 0.001F, 0.5F, 3.0F};
        task.withOrientations = true;
        task.ek = eks[upTo(6)];
        task.er = ers[upTo(5)];
        const unsigned size = 2 + upTo(120);
        const bool coarse = upTo(2) == 0;
        for (unsigned i = 0; i < size; ++i) {
            const auto coordinate = [&](int extent) {
                if (upTo(100) == 0) {
                    const float odd[] = {kNaN, kInfinity, -kInfinity, -3.0F, 1e9F, -1e30F};
                    return odd[upTo(6)];
                }
                const auto limit = static_cast<unsigned>(extent + 1);
                return coarse ? static_cast<float>(upTo(limit))
                              : static_cast<float>(upTo(limit * 1000)) / 1000.0F;
            };
            const float x = coordinate(task.width);
            const float y = coordinate(task.height);
            const unsigned orientations = 1 + (upTo(2) == 0 ? upTo(5) : 0);
            // A little apart, on either side of what may be a border of cells: only so does a
            // keypoint lose its owner from one pass to the next.
            const auto moved = [&](float place) { return place + (upTo(2) == 0 ? 4e-4F : -4e-4F); };
            const bool apart = upTo(2) == 0;
            for (unsigned o = 0; o < orientations; ++o) {
                task.in.push_back(at(apart ? moved(x) : x, apart ? moved(y) : y,
                                     static_cast<float>(upTo(coarse ? 4 : 1000)),
                                     static_cast<float>(o)));
            }
        }
        const auto most = static_cast<unsigned>(task.in.size() - 1);
        task.requested = 1 + upTo(upTo(2) == 0 ? std::min(most, 5U) : most);
        const reference::DiscCoveringAnswer answer = reference::slowDiscCovering(task);
        ++ends[answer.end];

        const bool found = answer.end != DiscCoveringEnd::CellSizeZero;
        std::vector<std::size_t> expected(answer.taken.begin(), answer.taken.end());
        if (expected.size() > task.requested) {
            expected.resize(task.requested);
        }
        fewerThanRequested += found && expected.size() < task.requested ? 1 : 0;
        const KeypointSelectorSdcOrientations selector =
            selectorFor(task.width, task.height, task.requested, task.ek, task.er);
        ASSERT_EQ(positions(selector, task.in), expected) << "round " << round;

        const std::vector<Keypoint> out = selected(selector, task.in);
        ASSERT_EQ(out.size(), expected.size());
        for (std::size_t i = 0; i < out.size(); ++i) {
            const Keypoint& wanted = answer.sorted[expected[i]];
            ASSERT_EQ(out[i].response, wanted.response) << "round " << round;
            ASSERT_EQ(out[i].angle, wanted.angle) << "round " << round;
            ASSERT_TRUE(out[i].x == wanted.x || std::isnan(wanted.x)) << "round " << round;
            ASSERT_TRUE(out[i].y == wanted.y || std::isnan(wanted.y)) << "round " << round;
        }
    }
    EXPECT_GT(ends[DiscCoveringEnd::ToleranceMet], 40);
    EXPECT_GT(ends[DiscCoveringEnd::CellSizeZero], 40);
    EXPECT_GT(ends[DiscCoveringEnd::CellSizeRepeated], 40);
    EXPECT_GT(fewerThanRequested, 10);
}

TEST(KeypointSelectorSdcOrientationsTest, UsedAgainGivesWhatANewObjectGives) {
    KeypointSelectorSdcOrientations used;
    for (unsigned seed = 0; seed < 50; ++seed) {
        const int width = 20 + static_cast<int>(seed * 7 % 200);
        const std::vector<Keypoint> in = scattered(30 + seed, width, 60, seed);
        used.setParams(width, 60, 0.25F, 0.1F);
        used.setNumberOfKeypoints(1 + seed % 29);
        std::vector<Keypoint> out;
        used.select(in, out);
        ASSERT_EQ(responses(out), responses(selected(selectorFor(width, 60, 1 + seed % 29), in)));
        std::vector<std::size_t> indices;
        used.selectIndices(in, indices);
        ASSERT_EQ(indices, positions(selectorFor(width, 60, 1 + seed % 29), in));
    }
}

}  // namespace
}  // namespace marlo
