// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_top.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <stdexcept>
#include <tuple>

#include "utilities/captured_log.h"

namespace marlo {
namespace {

using testing::ElementsAre;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

Keypoint keyed(float response, float angle, float x, float y, float scale = 1.0F) {
    return {x, y, scale, angle, response, 1, 2};
}

std::vector<Keypoint> top(std::uint64_t count, const std::vector<Keypoint>& in) {
    KeypointSelectorTop selector;
    selector.setNumberOfKeypoints(count);
    std::vector<Keypoint> out;
    selector.select(in, out);
    return out;
}

std::vector<float> responses(const std::vector<Keypoint>& keypoints) {
    std::vector<float> values;
    for (const Keypoint& keypoint : keypoints) {
        values.push_back(keypoint.response);
    }
    return values;
}

TEST(KeypointSelectorTopTest, AskedForMoreThanThereAreGivesAllStrongestFirst) {
    EXPECT_THAT(responses(top(10, {keyed(1, 0, 0, 0), keyed(3, 0, 0, 0), keyed(2, 0, 0, 0)})),
                ElementsAre(3.0F, 2.0F, 1.0F));
}

TEST(KeypointSelectorTopTest, KeepsTheStrongest) {
    EXPECT_THAT(responses(top(2, {keyed(1, 0, 0, 0), keyed(4, 0, 0, 0), keyed(2, 0, 0, 0),
                                  keyed(3, 0, 0, 0)})),
                ElementsAre(4.0F, 3.0F));
}

TEST(KeypointSelectorTopTest, AngleThenXThenYDecideAmongEqualResponses) {
    const std::vector<Keypoint> out =
        top(4, {keyed(1, 1, 1, 1), keyed(1, 1, 1, 2), keyed(1, 1, 2, 0), keyed(1, 2, 0, 0)});
    EXPECT_EQ(out[0].angle, 2.0F);
    EXPECT_EQ(out[1].x, 2.0F);
    EXPECT_EQ(out[2].y, 2.0F);
    EXPECT_EQ(out[3].y, 1.0F);
}

TEST(KeypointSelectorTopTest, KeypointsThatTheOrderCannotTellApartKeepTheirOrder) {
    std::vector<Keypoint> in;
    for (int i = 0; i < 100; ++i) {
        in.push_back(keyed(1, 0, 0, 0, static_cast<float>(i)));
    }
    const std::vector<Keypoint> out = top(100, in);
    for (std::size_t i = 0; i < out.size(); ++i) {
        ASSERT_EQ(out[i].scale, static_cast<float>(i));
    }
}

TEST(KeypointSelectorTopTest, CopiesEveryField) {
    const Keypoint out = top(1, {Keypoint(1, 2, 3, 4, 5, 6, 7)}).at(0);
    EXPECT_EQ(std::make_tuple(out.x, out.y, out.scale, out.angle, out.response),
              std::make_tuple(1.0F, 2.0F, 3.0F, 4.0F, 5.0F));
    EXPECT_EQ(out.octave, 6);
    EXPECT_EQ(out.layer, 7);
}

TEST(KeypointSelectorTopTest, DropsTheOldContentOfTheOutput) {
    KeypointSelectorTop selector;
    selector.setNumberOfKeypoints(1);
    std::vector<Keypoint> out(5);
    selector.select({keyed(2, 0, 0, 0)}, out);
    EXPECT_THAT(responses(out), ElementsAre(2.0F));
}

TEST(KeypointSelectorTopTest, LeavesTheInputAsItIs) {
    const std::vector<Keypoint> in{keyed(1, 0, 0, 0), keyed(3, 0, 0, 0), keyed(2, 0, 0, 0)};
    top(2, in);
    EXPECT_THAT(responses(in), ElementsAre(1.0F, 3.0F, 2.0F));
}

TEST(KeypointSelectorTopTest, HugeRequestGivesAll) {
    EXPECT_EQ(top(std::numeric_limits<std::uint64_t>::max(), std::vector<Keypoint>(3)).size(), 3U);
}

TEST(KeypointSelectorTopTest, NothingRequestedOrNothingGivenThrowsAndKeepsTheOutput) {
    KeypointSelectorTop selector;
    std::vector<Keypoint> out{keyed(7, 0, 0, 0)};
    const auto refusal = [&](std::uint64_t count, const std::vector<Keypoint>& in) -> std::string {
        selector.setNumberOfKeypoints(count);
        try {
            selector.select(in, out);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "accepted";
    };
    const char* const message =
        "Number of keypoints to select or the number of input keypoints is 0";
    EXPECT_EQ(refusal(0, {keyed(1, 0, 0, 0)}), message);
    EXPECT_EQ(refusal(5, {}), message);
    EXPECT_THAT(responses(out), ElementsAre(7.0F));
}

TEST(KeypointSelectorTopTest, NumberIsZeroUntilItIsSet) {
    KeypointSelectorTop selector;
    std::vector<Keypoint> out;
    EXPECT_THROW(selector.select({keyed(1, 0, 0, 0)}, out), std::runtime_error);
}

TEST(KeypointSelectorTopTest, RefusesToSelectInPlaceBeforeItLogs) {
    const test::CapturedLog log;
    KeypointSelectorTop selector;
    std::vector<Keypoint> list{keyed(1, 0, 0, 0)};
    try {
        selector.select(list, list);
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "keypoint selectors cannot do selection in-place (in == out)");
    }
    EXPECT_EQ(list.size(), 1U);
    EXPECT_THAT(log.lines(), ElementsAre());
}

TEST(KeypointSelectorTopTest, LogsWhatItIsAskedFor) {
    const test::CapturedLog log;
    top(12, std::vector<Keypoint>(3));
    EXPECT_THAT(log.lines(),
                ElementsAre("3 [feature_selector_top:29] |FeatureSelectorTOP::select 3 "
                            "keypoints as input and you want to select 12"));
}

TEST(KeypointSelectorTopTest, LogsBeforeItRefusesACountOfZero) {
    const test::CapturedLog log;
    EXPECT_THROW(top(0, std::vector<Keypoint>(3)), std::runtime_error);
    EXPECT_THAT(log.lines(),
                ElementsAre("3 [feature_selector_top:29] |FeatureSelectorTOP::select 3 "
                            "keypoints as input and you want to select 0"));
}

TEST(KeypointSelectorTopTest, DoesNotOfferIndices) {
    KeypointSelectorTop selector;
    selector.setNumberOfKeypoints(1);
    std::vector<std::size_t> out{5};
    try {
        selector.selectIndices({keyed(1, 0, 0, 0)}, out);
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Not implemented yet");
    }
    EXPECT_THAT(out, ElementsAre(5U));
}

TEST(KeypointSelectorTopTest, CloneCarriesTheNumberAndIsIndependent) {
    KeypointSelectorTop selector;
    selector.setNumberOfKeypoints(2);
    const std::unique_ptr<IKeypointSelector> clone = selector.clone();
    selector.setNumberOfKeypoints(1);
    std::vector<Keypoint> out;
    clone->select(std::vector<Keypoint>(5), out);
    EXPECT_EQ(out.size(), 2U);
}

TEST(KeypointSelectorTopTest, AgreesWithRepeatedlyTakingTheStrongest) {
    std::mt19937 random(2);
    const auto value = [&] { return static_cast<float>(random() % 3); };
    for (int round = 0; round < 200; ++round) {
        std::vector<Keypoint> in;
        for (std::size_t i = 0, size = 1 + random() % 40; i < size; ++i) {
            in.push_back(keyed(value(), value(), value(), value(), static_cast<float>(i)));
        }
        const std::uint64_t count = 1 + random() % 45;
        std::vector<Keypoint> left = in;
        std::vector<float> expected;
        while (expected.size() < count && !left.empty()) {
            std::size_t strongest = 0;
            for (std::size_t i = 1; i < left.size(); ++i) {
                if (left[i] > left[strongest]) strongest = i;
            }
            expected.push_back(left[strongest].scale);
            left.erase(left.begin() + static_cast<std::ptrdiff_t>(strongest));
        }
        std::vector<float> actual;
        for (const Keypoint& keypoint : top(count, in)) {
            actual.push_back(keypoint.scale);
        }
        ASSERT_EQ(actual, expected);
    }
}

TEST(KeypointSelectorTopTest, NanAnywhereStillGivesAPermutationOfTheInput) {
    std::mt19937 random(3);
    const float values[] = {kNaN, 0.0F, 1.0F, -1.0F, std::numeric_limits<float>::infinity()};
    const auto value = [&] { return values[random() % 5]; };
    for (int round = 0; round < 100; ++round) {
        std::vector<Keypoint> in;
        std::vector<float> expected;
        for (std::size_t i = 0; i < 300; ++i) {
            in.push_back(keyed(value(), value(), value(), value(), static_cast<float>(i)));
            expected.push_back(static_cast<float>(i));
        }
        std::vector<float> actual;
        for (const Keypoint& keypoint : top(300, in)) {
            actual.push_back(keypoint.scale);
        }
        std::sort(actual.begin(), actual.end());
        ASSERT_EQ(actual, expected);
    }
}

}  // namespace
}  // namespace marlo
