// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_default.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <stdexcept>

#include "utilities/captured_log.h"

namespace marlo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr float kThreshold = 0.0066666664F;

// A keypoint that is told apart by its scale.
Keypoint at(float x, float y, float response, float id = 0.0F) {
    return {x, y, id, 0.0F, response, 0, 0};
}

std::vector<Keypoint> selected(int height, int width, const std::vector<Keypoint>& in) {
    KeypointSelectorDefault selector;
    selector.setParams(height, width);
    std::vector<Keypoint> out;
    selector.select(in, out);
    return out;
}

std::vector<float> ids(const std::vector<Keypoint>& keypoints) {
    std::vector<float> values;
    for (const Keypoint& keypoint : keypoints) {
        values.push_back(keypoint.scale);
    }
    return values;
}

// `count` keypoints, each in a cell of its own in a grid of cells at least 4 x 4 pixels.
std::vector<Keypoint> spread(int count, int width, float response) {
    std::vector<Keypoint> keypoints;
    const int perRow = width / 8;
    for (int i = 0; i < count; ++i) {
        keypoints.push_back(at(static_cast<float>(8 * (i % perRow)),
                               static_cast<float>(8 * (i / perRow)), response,
                               static_cast<float>(i)));
    }
    return keypoints;
}

// The rule as it reads, with a map from cell to positions. Gives the ids that are kept.
std::vector<float> mappedReduction(const std::vector<Keypoint>& in, int height, int width,
                                   float targetCells, float threshold) {
    const auto a = static_cast<float>(height);
    const auto b = static_cast<float>(width);
    const float aspect = b / a;
    float rows = std::sqrt(targetCells / aspect);
    rows = rows < 1.0F ? 1.0F : std::ceil(rows);
    if (a / 3.0F < rows) rows = a / 3.0F;
    const int cols = static_cast<int>(std::ceil(aspect * rows));
    std::map<int, std::vector<std::size_t>> cells;
    for (std::size_t i = 0; i < in.size(); ++i) {
        if (!(in[i].response >= threshold)) continue;
        const int cell = static_cast<int>(in[i].x * (static_cast<float>(cols) / b) + 0.5F) +
                         static_cast<int>(in[i].y * (rows / a) + 0.5F) * cols;
        auto& kept = cells[cell];
        if (kept.empty() || in[i].response == in[kept[0]].response) {
            kept.push_back(i);
        } else if (in[i].response > in[kept[0]].response) {
            kept = {i};
        }
    }
    std::vector<float> keptIds;
    for (const auto& [cell, kept] : cells) {
        for (const std::size_t i : kept) keptIds.push_back(in[i].scale);
    }
    return keptIds;
}

std::string refusal(KeypointSelectorDefault& selector, const std::vector<Keypoint>& in,
                    std::vector<Keypoint>& out) {
    try {
        selector.select(in, out);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "accepted";
}

TEST(KeypointSelectorDefaultTest, ChecksParametersThenInputThenInPlace) {
    KeypointSelectorDefault selector;
    std::vector<Keypoint> list;
    EXPECT_EQ(refusal(selector, list, list), "Parameters have not been set");
    selector.setParams(10, 10);
    EXPECT_EQ(refusal(selector, list, list), "Input keypoints are empty");
    list.push_back(at(1, 1, 1));
    EXPECT_EQ(refusal(selector, list, list),
              "keypoint selectors cannot do selection in-place (in == out)");
    EXPECT_EQ(list.size(), 1U);
}

TEST(KeypointSelectorDefaultTest, RefusedParametersChangeNothing) {
    KeypointSelectorDefault selector;
    EXPECT_THROW(selector.setParams(0, 10), std::out_of_range);
    EXPECT_THROW(selector.setParams(10, 0), std::out_of_range);
    std::vector<Keypoint> out;
    EXPECT_EQ(refusal(selector, {at(1, 1, 1)}, out), "Parameters have not been set");
}

TEST(KeypointSelectorDefaultTest, DoesNotOfferIndices) {
    KeypointSelectorDefault selector;
    selector.setParams(10, 10);
    std::vector<std::size_t> out;
    try {
        selector.selectIndices({at(1, 1, 1)}, out);
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "This case has not been implemented yet");
    }
}

TEST(KeypointSelectorDefaultTest, IgnoresTheRequestedNumber) {
    KeypointSelectorDefault selector;
    selector.setParams(300, 300);
    selector.setNumberOfKeypoints(1);
    std::vector<Keypoint> out;
    selector.select({at(0, 0, 1), at(100, 100, 1), at(200, 200, 1)}, out);
    EXPECT_EQ(out.size(), 3U);
}

TEST(KeypointSelectorDefaultTest, CellsAreThreePixelsAndRoundedOnA300By300Image) {
    // rows = min(300 / 3, 142) = 100 and cols = 100, so the cell column is trunc(x / 3 + 0.5):
    // 1 falls to column 0, 2 and 4 to column 1, 5 to column 2.
    EXPECT_THAT(
        ids(selected(300, 300, {at(1, 0, 1, 1), at(2, 0, 1, 2), at(4, 0, 2, 4), at(5, 0, 1, 5)})),
        ElementsAre(1.0F, 4.0F, 5.0F));
}

TEST(KeypointSelectorDefaultTest, LastColumnSharesItsCellsWithTheNextRow) {
    // x = 299 rounds to column 100 of row 0, which is cell 100: column 0 of row 1.
    EXPECT_THAT(ids(selected(300, 300, {at(299, 0, 1, 1), at(0, 3, 2, 2)})), ElementsAre(2.0F));
}

TEST(KeypointSelectorDefaultTest, EqualResponsesInACellAreAllKept) {
    EXPECT_THAT(ids(selected(300, 300, {at(0, 0, 1, 1), at(1, 1, 1, 2), at(1, 0, 0.5F, 3)})),
                ElementsAre(1.0F, 2.0F));
}

TEST(KeypointSelectorDefaultTest, LaterStrongerKeypointReplacesAllOfItsCell) {
    EXPECT_THAT(ids(selected(300, 300, {at(0, 0, 1, 1), at(1, 1, 1, 2), at(1, 0, 2, 3)})),
                ElementsAre(3.0F));
}

TEST(KeypointSelectorDefaultTest, GivesCellsInRowOrderWhateverTheInputOrder) {
    EXPECT_THAT(ids(selected(300, 300, {at(30, 60, 9, 1), at(60, 30, 1, 2), at(30, 30, 5, 3)})),
                ElementsAre(3.0F, 2.0F, 1.0F));
}

TEST(KeypointSelectorDefaultTest, FewKeypointsMakeItSelectAgainWithoutThreshold) {
    const test::CapturedLog log;
    const std::vector<Keypoint> out = selected(3000, 3000,
                                               {at(0, 0, kThreshold, 1), at(500, 0, 0.001F, 2),
                                                at(900, 0, 0, 3), at(1300, 0, -0.001F, 4)});
    EXPECT_THAT(ids(out), ElementsAre(1.0F, 2.0F, 3.0F));
    EXPECT_THAT(log.lines(),
                ElementsAre("2 [feature_selector_default:166] |nrKey: 1",
                            "2 [] |Selected: 1 lowerBound 20000. Running selection without "
                            "threshold...",
                            "2 [feature_selector_default:166] |nrKey: 3"));
}

TEST(KeypointSelectorDefaultTest, ThresholdOfTheFirstPassIsInclusive) {
    const test::CapturedLog log;
    selected(3000, 3000,
             {at(0, 0, kThreshold), at(500, 0, std::nextafter(kThreshold, 0.0F)), at(900, 0, 1)});
    EXPECT_EQ(log.lines().at(0), "2 [feature_selector_default:166] |nrKey: 2");
}

TEST(KeypointSelectorDefaultTest, FirstPassStandsAtExactlyTheLowerBound) {
    const test::CapturedLog log;
    EXPECT_EQ(selected(3000, 3000, spread(20000, 3000, 1)).size(), 20000U);
    EXPECT_THAT(log.lines(), ElementsAre("2 [feature_selector_default:166] |nrKey: 20000"));
}

TEST(KeypointSelectorDefaultTest, JustBelowTheLowerBoundSelectsAgain) {
    const test::CapturedLog log;
    selected(3000, 3000, spread(19999, 3000, 1));
    ASSERT_EQ(log.lines().size(), 3U);
    EXPECT_EQ(log.lines()[1],
              "2 [] |Selected: 19999 lowerBound 20000. Running selection without threshold...");
}

TEST(KeypointSelectorDefaultTest, FirstPassStandsAtExactlyTheUpperBound) {
    // 3000 x 3000 in 120,000 cells: 8.65 pixels a cell; at a distance of 10 each has its own.
    std::vector<Keypoint> in;
    for (int i = 0; i < 80000; ++i) {
        in.push_back(at(static_cast<float>(10 * (i % 290)), static_cast<float>(10 * (i / 290)), 1));
    }
    const test::CapturedLog log;
    EXPECT_EQ(selected(3000, 3000, in).size(), 80000U);
    EXPECT_THAT(log.lines(), ElementsAre("2 [feature_selector_default:166] |nrKey: 80000"));
}

// `count` keypoints of random place and response in a 3000 x 3000 image.
std::vector<Keypoint> scattered(int count, unsigned seed) {
    std::mt19937 random(seed);
    const auto fraction = [&] { return static_cast<float>(random() % 65536) / 65536.0F; };
    std::vector<Keypoint> keypoints;
    for (int i = 0; i < count; ++i) {
        const float x = 2999.0F * fraction();
        const float y = 2999.0F * fraction();
        keypoints.push_back(at(x, y, 0.1F * fraction() - 0.001F, static_cast<float>(i)));
    }
    return keypoints;
}

TEST(KeypointSelectorDefaultTest, FirstPassHas120000CellsAndTheThreshold) {
    const std::vector<Keypoint> in = scattered(60000, 5);
    const std::vector<float> expected = mappedReduction(in, 3000, 3000, 120000.0F, kThreshold);
    ASSERT_GT(expected.size(), 20000U);
    ASSERT_LT(expected.size(), 80000U);
    EXPECT_EQ(ids(selected(3000, 3000, in)), expected);
}

TEST(KeypointSelectorDefaultTest, AboveTheUpperBoundSelectsAgainIn80000CellsWithoutThreshold) {
    const std::vector<Keypoint> in = scattered(400000, 6);
    const std::size_t first = mappedReduction(in, 3000, 3000, 120000.0F, kThreshold).size();
    const std::vector<float> second = mappedReduction(in, 3000, 3000, 80000.0F, 0.0F);
    ASSERT_GT(first, 80000U);
    const test::CapturedLog log;
    EXPECT_EQ(ids(selected(3000, 3000, in)), second);
    EXPECT_THAT(
        log.lines(),
        ElementsAre("2 [feature_selector_default:166] |nrKey: " + std::to_string(first),
                    "2 [] |Selected: " + std::to_string(first) +
                        " upperBound 80000. Running selection with grid reduction...",
                    "2 [feature_selector_default:166] |nrKey: " + std::to_string(second.size())));
}

TEST(KeypointSelectorDefaultTest, SecondPassAboveTheUpperBoundTakesResponsesDownToZero) {
    std::vector<Keypoint> in;
    for (int i = 0; i < 80001; ++i) {
        in.push_back(at(static_cast<float>(10 * (i % 290)), static_cast<float>(10 * (i / 290)), 1,
                        static_cast<float>(i)));
    }
    in.push_back(at(2950, 2950, 0, -1));      // alone in its cell
    in.push_back(at(2950, 2900, -0.1F, -2));  // alone in its cell, but negative
    const std::vector<float> kept = ids(selected(3000, 3000, in));
    EXPECT_THAT(kept, testing::Contains(-1.0F));
    EXPECT_THAT(kept, testing::Not(testing::Contains(-2.0F)));
}

TEST(KeypointSelectorDefaultTest, NanAndInfinityDoNotLeaveTheGrid) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const std::vector<Keypoint> out =
        selected(300, 300,
                 {at(nan, 0, 1, 1), at(inf, 0, 2, 2), at(-inf, 0, 1, 3), at(0, nan, 1, 4),
                  at(3e38F, 0, 1, 5), at(-10, -10, 1, 6), at(0, 0, nan, 7)});
    // The first, second, third and fifth share a cell column; the last has no comparable response.
    EXPECT_THAT(ids(out), testing::UnorderedElementsAre(2.0F, 4.0F, 6.0F));
}

TEST(KeypointSelectorDefaultTest, ExtremeImageSizesAreDefined) {
    const int most = std::numeric_limits<int>::max();
    EXPECT_EQ(selected(1, 1, {at(0, 0, 1)}).size(), 1U);
    EXPECT_EQ(selected(1, most, {at(0, 0, 1), at(2e9F, 0, 1)}).size(), 2U);
    EXPECT_EQ(selected(most, 1, {at(0, 0, 1), at(0, 2e9F, 1)}).size(), 2U);
    EXPECT_EQ(selected(most, most, {at(0, 0, 1), at(2e9F, 2e9F, 1)}).size(), 2U);
}

TEST(KeypointSelectorDefaultTest, CloneCarriesHeightAndWidth) {
    KeypointSelectorDefault selector;
    selector.setParams(40, 6000);
    // 12 rows over 40 pixels: y = 4 and y = 5 are in rows trunc(1.7) and trunc(2.0). With height
    // and width exchanged both would be in row 1.
    std::vector<Keypoint> out;
    selector.clone()->select({at(0, 4, 0.5F), at(0, 5, 0.75F)}, out);
    EXPECT_EQ(out.size(), 2U);
}

TEST(KeypointSelectorDefaultTest, AgreesWithTheMappedRuleOnRandomKeypoints) {
    std::mt19937 random(4);
    for (int round = 0; round < 300; ++round) {
        const int height = 1 + static_cast<int>(random() % 400);
        const int width = 1 + static_cast<int>(random() % 400);
        std::vector<Keypoint> in;
        for (std::size_t i = 0, size = 1 + random() % 500; i < size; ++i) {
            const auto within = [&](int side) {
                return static_cast<float>(random() % 1000) * static_cast<float>(side) / 1000.0F;
            };
            in.push_back(at(within(width), within(height),
                            static_cast<float>(static_cast<int>(random() % 6) - 1),
                            static_cast<float>(i)));
        }
        ASSERT_EQ(ids(selected(height, width, in)),
                  mappedReduction(in, height, width, 20000.0F, 0.0F))
            << height << " x " << width;
    }
}

TEST(KeypointSelectorDefaultTest, NothingAtOrAboveZeroGivesNothing) {
    EXPECT_THAT(selected(10, 10, {at(1, 1, -1)}), IsEmpty());
}

}  // namespace
}  // namespace marlo
