// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_anms_base.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "libfeatures/base/extensible_factory.h"
#include "libfeatures/base/parameter_setters.h"
#include "libfeatures/selectors/feature_selector_anms.h"
#include "libfeatures/selectors/feature_selector_anms_bound.h"
#include "libfeatures/selectors/feature_selector_anms_ori.h"
#include "libfeatures/selectors/feature_selector_anms_original.h"
#include "references/anms_reference.h"
#include "utilities/captured_log.h"
#include "utilities/synthetic_images.h"

namespace marlo {
namespace {

using test::Random;
using test::SlowAnms;
using testing::ElementsAre;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

Keypoint at(float x, float y, float response, float angle = 0.0F) {
    return {x, y, 1.0F, angle, response, 1, 2};
}

std::unique_ptr<IKeypointSelector> make(const std::string& variant) {
    if (variant == "ANMS") return std::make_unique<KeypointSelectorANMS>();
    if (variant == "ANMSBound") return std::make_unique<KeypointSelectorAnmsBound>();
    if (variant == "ANMSOri") return std::make_unique<KeypointSelectorAnmsOri>();
    return std::make_unique<KeypointSelectorAnmsOriginal>();
}

std::vector<Keypoint> selected(IKeypointSelector& selector, std::uint64_t count,
                               const std::vector<Keypoint>& in) {
    selector.setNumberOfKeypoints(count);
    std::vector<Keypoint> out;
    selector.select(in, out);
    return out;
}

std::vector<Keypoint> selected(const std::string& variant, std::uint64_t count,
                               const std::vector<Keypoint>& in) {
    return selected(*make(variant), count, in);
}

std::vector<float> responses(const std::vector<Keypoint>& keypoints) {
    std::vector<float> values;
    for (const Keypoint& keypoint : keypoints) values.push_back(keypoint.response);
    return values;
}

// NaN is equal to itself.
bool areSame(const Keypoint& a, const Keypoint& b) {
    for (const auto field :
         {&Keypoint::x, &Keypoint::y, &Keypoint::scale, &Keypoint::angle, &Keypoint::response}) {
        if (std::bit_cast<std::uint32_t>(a.*field) != std::bit_cast<std::uint32_t>(b.*field)) {
            return false;
        }
    }
    return a.octave == b.octave && a.layer == b.layer;
}

class AnmsTest : public testing::TestWithParam<const char*> {
protected:
    [[nodiscard]] std::string variant() const { return GetParam(); }
};

INSTANTIATE_TEST_SUITE_P(Variants, AnmsTest,
                         testing::Values("ANMS", "ANMSBound", "ANMSOri", "ANMSOrig"));

// Of those in which the stronger keypoint has to be stronger by the factor.
class AnmsByStrengthTest : public AnmsTest {};

INSTANTIATE_TEST_SUITE_P(Variants, AnmsByStrengthTest,
                         testing::Values("ANMS", "ANMSBound", "ANMSOri"));

TEST_P(AnmsTest, AskedForMoreThanThereAreGivesAllByRadius) {
    // 10 suppresses 5 at 3 pixels and 2 at 100; 5 suppresses 2 at 97: radii none, 9, 97^2.
    const std::vector<Keypoint> in{at(3, 0, 5), at(100, 0, 2), at(0, 0, 10)};
    EXPECT_THAT(responses(selected(variant(), 5, in)), ElementsAre(10.0F, 2.0F, 5.0F));
}

TEST_P(AnmsTest, KeepsThoseOfTheLargestRadii) {
    const std::vector<Keypoint> in{at(3, 0, 5), at(100, 0, 2), at(0, 0, 10)};
    EXPECT_THAT(responses(selected(variant(), 2, in)), ElementsAre(10.0F, 2.0F));
}

TEST_P(AnmsByStrengthTest, EqualPositiveResponsesDoNotSuppressOneAnother) {
    // Both of 10 come before the one that they suppress, however near they are.
    const std::vector<Keypoint> in{at(0, 0, 10), at(1, 0, 10), at(50, 0, 4)};
    EXPECT_THAT(responses(selected(variant(), 3, in)), ElementsAre(10.0F, 10.0F, 4.0F));
}

TEST_P(AnmsByStrengthTest, SlightlyWeakerOnesAreNotSuppressed) {
    // 0.8 times 10 is 8, which 9 is not below.
    const std::vector<Keypoint> in{at(0, 0, 10), at(1, 0, 9), at(50, 0, 4)};
    EXPECT_THAT(responses(selected(variant(), 3, in)), ElementsAre(10.0F, 9.0F, 4.0F));
}

TEST_P(AnmsTest, WholeKeypointsAreCopied) {
    const Keypoint strange{1.5F, 2.5F, 3.5F, 0.25F, 7.0F, 2, 3};
    EXPECT_TRUE(areSame(selected(variant(), 1, {strange}).front(), strange));
}

TEST_P(AnmsByStrengthTest, SecondCallAlsoSelectsFromTheFirst) {
    const auto selector = make(variant());
    const std::vector<Keypoint> in{at(0, 0, 10), at(40, 0, 5)};
    EXPECT_EQ(selected(*selector, 2, in).size(), 2U);
    // The strongest of either call is suppressed by nothing.
    EXPECT_THAT(responses(selected(*selector, 2, in)), ElementsAre(10.0F, 10.0F));
}

TEST_P(AnmsByStrengthTest, CloneHasTheRecordsAndIsIndependent) {
    const auto selector = make(variant());
    const std::vector<Keypoint> in{at(0, 0, 10), at(40, 0, 5)};
    selected(*selector, 2, in);
    const auto clone = selector->clone();
    const IKeypointSelector& original = *selector;
    const IKeypointSelector& copy = *clone;
    EXPECT_EQ(typeid(copy), typeid(original));
    selected(*selector, 2, {at(200, 0, 30)});
    EXPECT_THAT(responses(selected(*clone, 2, in)), ElementsAre(10.0F, 10.0F));
}

TEST_P(AnmsTest, CloneHasNumberAndRobustness) {
    const auto selector = make(variant());
    selector->setNumberOfKeypoints(1);
    setAnmsRobustness(selector.get(), 0.25F);
    const auto clone = selector->clone();
    EXPECT_EQ(dynamic_cast<KeypointSelectorAnmsBase&>(*clone).robustness(), 0.25F);
    std::vector<Keypoint> out;
    clone->select({at(0, 0, 1), at(5, 5, 2)}, out);
    EXPECT_EQ(out.size(), 1U);
}

TEST_P(AnmsTest, LogsWhatItIsAskedFor) {
    const test::CapturedLog log;
    const auto selector = make(variant());
    selected(*selector, 7, {at(0, 0, 10), at(40, 0, 5)});
    EXPECT_THAT(log.lines(),
                ElementsAre("3 [feature_selector_anms_base:78] |FeatureSelectorAnms::select 2 "
                            "keypoints as input and 7 will be selected. cRobust: 0.8"));
}

TEST_P(AnmsTest, NothingToSelectIsRefusedWithoutALine) {
    const auto selector = make(variant());
    const test::CapturedLog log;
    std::vector<Keypoint> out{at(1, 1, 1)};
    std::vector<std::size_t> indices{4};
    const auto refusal = [](const auto& call) -> std::string {
        try {
            call();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    };
    const std::string expected =
        "Number of keypoints to select or the number of input keypoints is 0";
    EXPECT_EQ(refusal([&] { selector->select({at(0, 0, 1)}, out); }), expected);
    EXPECT_EQ(refusal([&] { selector->selectIndices({at(0, 0, 1)}, indices); }), expected);
    selector->setNumberOfKeypoints(3);
    EXPECT_EQ(refusal([&] { selector->select({}, out); }), expected);
    EXPECT_EQ(out.size(), 1U);
    EXPECT_THAT(indices, ElementsAre(4U));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(refusal([&] { selector->select(out, out); }),
              "keypoint selectors cannot do selection in-place (in == out)");
}

TEST_P(AnmsTest, AnyNumberMayBeAskedFor) {
    for (const std::uint64_t count : {std::uint64_t{1} << 63U, ~std::uint64_t{0}}) {
        EXPECT_EQ(selected(variant(), count, {at(0, 0, 1), at(5, 5, 2)}).size(), 2U);
    }
}

TEST(AnmsVariantsTest, ManyInOnePlaceTakeNoLongerThanOthers) {
    // By the quadratic rule it would be 160 million comparisons for each variant.
    std::vector<Keypoint> in;
    for (int i = 0; i < 20000; ++i) in.push_back(at(5, 5, static_cast<float>(20000 - i)));
    for (const char* const variant : {"ANMS", "ANMSBound", "ANMSOri", "ANMSOrig"}) {
        EXPECT_EQ(responses(selected(variant, 1, in)), std::vector<float>{20000.0F}) << variant;
    }
}

TEST(AnmsVariantsTest, NegativeEqualResponsesSuppressTheLaterOne) {
    // -10 is below -8, which is -10 times 0.8.
    const std::vector<Keypoint> in{at(0, 0, -10, 1), at(1, 0, -10, 0), at(50, 0, -10, -1)};
    const std::vector<Keypoint> out = selected("ANMS", 3, in);
    EXPECT_EQ(out[0].x, 0.0F);
    EXPECT_EQ(out[1].x, 50.0F);
    EXPECT_EQ(out[2].x, 1.0F);
}

TEST(AnmsVariantsTest, OnlyOneOfTheRulesHasASecondOrientationSelectedWithTheFirst) {
    // 20 at the far end; 10 and 5 share a place; 4 lies 30 pixels from them.
    const std::vector<Keypoint> in{at(0, 0, 10, 1), at(0, 0, 5, 2), at(30, 0, 4), at(500, 0, 20)};
    EXPECT_THAT(responses(selected("ANMSBound", 3, in)), ElementsAre(20.0F, 10.0F, 4.0F));
    // The record before 5 in the list is that of 10, whose radius is 500^2.
    EXPECT_THAT(responses(selected("ANMSOri", 3, in)), ElementsAre(20.0F, 10.0F, 5.0F));
}

TEST(AnmsVariantsTest, CoincidentOnesGetTheRadiusOfTheLastThatSuppressesThem) {
    // 5 at the place of 20 is suppressed by 20 and by 10, of which 10, with 900, is the last; so it
    // comes after 10, and before 4, which is 20 pixels from 10.
    const std::vector<Keypoint> in{at(0, 0, 20), at(0, 30, 10), at(0, 0, 5), at(20, 30, 4)};
    EXPECT_THAT(responses(selected("ANMSOri", 4, in)), ElementsAre(20.0F, 10.0F, 5.0F, 4.0F));
    EXPECT_THAT(responses(selected("ANMSBound", 4, in)), ElementsAre(20.0F, 10.0F, 4.0F, 5.0F));
}

TEST(AnmsVariantsTest, OneIsSuppressedByNearlyEqualOnesToo) {
    // 10 divided by 1.25 is 8, so each of 10 and 9 is suppressed by one of 10 before it.
    const std::vector<Keypoint> in{at(0, 0, 10, 1), at(1, 0, 10), at(3, 0, 9), at(50, 0, 4)};
    EXPECT_THAT(responses(selected("ANMSOrig", 4, in)), ElementsAre(10.0F, 4.0F, 9.0F, 10.0F));
}

TEST(AnmsVariantsTest, OneRoundsUpToWholeNumbers) {
    // 2.2 divided by 1.25 is 1.76, rounded up 2: what has 2 or more suppresses it. 0.6 needs 1.
    const std::vector<Keypoint> in{at(0, 0, 2.6F), at(5, 0, 2.2F), at(9, 0, 0.6F)};
    // 2.2 at 5 pixels of 2.6, 0.6 at 4 of 2.2.
    EXPECT_THAT(responses(selected("ANMSOrig", 3, in)), ElementsAre(2.6F, 2.2F, 0.6F));
    // 1.9 is not 2.
    const std::vector<Keypoint> lower{at(0, 0, 1.9F), at(5, 0, 1.8F), at(9, 0, 0.6F)};
    EXPECT_THAT(responses(selected("ANMSOrig", 3, lower)), ElementsAre(1.9F, 1.8F, 0.6F));
    // Nothing is 1.
    const std::vector<Keypoint> weak{at(0, 0, 0.9F), at(1, 0, 0.1F), at(70, 0, 0.05F)};
    EXPECT_THAT(responses(selected("ANMSOrig", 3, weak)), ElementsAre(0.9F, 0.1F, 0.05F));
}

TEST(AnmsVariantsTest, IndicesAreZerosButOfOneThatKeepsThem) {
    const std::vector<Keypoint> in{at(3, 0, 5), at(100, 0, 2), at(0, 0, 10)};
    for (const char* const variant : {"ANMS", "ANMSBound", "ANMSOrig"}) {
        const auto selector = make(variant);
        selector->setNumberOfKeypoints(2);
        std::vector<std::size_t> indices;
        selector->selectIndices(in, indices);
        EXPECT_THAT(indices, ElementsAre(0U, 0U)) << variant;
    }
    KeypointSelectorAnmsOri selector;
    selector.setNumberOfKeypoints(2);
    std::vector<std::size_t> indices;
    selector.selectIndices(in, indices);
    EXPECT_THAT(indices, ElementsAre(0U, 2U));  // of 10, 5, 2
}

// What a random set may hold that the fast way has to get right, or must not be taken for.
struct Kind {
    const char* name;
    float width;
    float height;
    std::uint32_t responses;  // so many different ones
    float lowest, highest;    // response
    std::uint32_t places;     // so many different ones; 0: any
    float strange;            // one, if not 0
    bool strangeIsPosition;
};

std::vector<Keypoint> randomSet(const Kind& kind, std::size_t most, Random& random) {
    std::vector<Keypoint> keypoints;
    const std::size_t count = 1 + random.below(static_cast<std::uint32_t>(most));
    for (std::size_t i = 0; i < count; ++i) {
        const auto step = static_cast<float>(random.below(kind.responses));
        Keypoint k = at(
            random.uniform(0, kind.width), random.uniform(0, kind.height),
            kind.lowest + (kind.highest - kind.lowest) * step / static_cast<float>(kind.responses),
            random.uniform(-3, 3));
        if (kind.places > 0) {
            k.x = 7.25F * static_cast<float>(random.below(kind.places));
            k.y = 0.75F * static_cast<float>(random.below(kind.places));
        }
        if (random.below(10) == 0 && i > 0) {  // another orientation
            const float angle = k.angle;
            k = keypoints.back();
            k.angle = angle;
            if (random.below(2) == 0) k.response *= 0.5F;
        }
        keypoints.push_back(k);
    }
    if (kind.strange != 0.0F) {
        Keypoint& k = keypoints[random.below(static_cast<std::uint32_t>(count))];
        (kind.strangeIsPosition ? k.x : k.response) = kind.strange;
    }
    return keypoints;
}

class AnmsAgainstReferenceTest : public testing::TestWithParam<std::tuple<const char*, Kind>> {};

INSTANTIATE_TEST_SUITE_P(
    Variants, AnmsAgainstReferenceTest,
    testing::Combine(
        testing::Values("ANMS", "ANMSBound", "ANMSOri", "ANMSOrig"),
        testing::Values(Kind{"spread", 600, 400, 1U << 20U, 0, 1, 0, 0, false},
                        Kind{"large", 60000, 20000, 1U << 20U, 0, 300, 0, 0, false},
                        Kind{"ties", 600, 400, 5, 0, 20, 0, 0, false},
                        Kind{"places", 0, 0, 50, 0, 100, 6, 0, false},
                        Kind{"negative", 600, 400, 100, -5, 5, 30, 0, false},
                        Kind{"allNegative", 600, 400, 100, -50, -1, 0, 0, false},
                        Kind{"far", 3e5F, 2e5F, 1000, 0, 100, 0, 0, false},
                        Kind{"tiny", 1e-4F, 1e-4F, 1000, 0, 100, 0, 0, false},
                        Kind{"nanResponse", 600, 400, 100, 0, 50, 0, kNaN, false},
                        Kind{"infiniteResponse", 600, 400, 100, 0, 50, 0, kInfinity, false},
                        Kind{"hugeResponse", 600, 400, 100, 0, 50, 0, 4e9F, false},
                        Kind{"nanPosition", 600, 400, 100, 0, 50, 0, kNaN, true},
                        Kind{"infinitePosition", 600, 400, 100, 0, 50, 0, -kInfinity, true},
                        Kind{"hugePosition", 600, 400, 100, 0, 50, 0, 1e20F, true})),
    [](const auto& instance) {
        return std::string(std::get<0>(instance.param)) + std::get<1>(instance.param).name;
    });

// The records of both, in order; each call asks for as many as it is given.
void expectTheSame(const std::string& variant, float robustness,
                   const std::vector<std::vector<Keypoint>>& calls) {
    const auto selector = make(variant);
    setAnmsRobustness(selector.get(), robustness);
    SlowAnms reference(variant, robustness);
    for (const std::vector<Keypoint>& in : calls) {
        selector->setNumberOfKeypoints(in.size());
        std::vector<SlowAnms::Record> expected = reference.call(in);
        expected.resize(in.size());
        if (&in == &calls.back()) {
            std::vector<std::size_t> indices;
            selector->clone()->selectIndices(in, indices);
            for (std::size_t i = 0; i < in.size(); ++i) {
                ASSERT_EQ(indices[i], expected[i].position) << variant << ' ' << robustness;
            }
        }
        std::vector<Keypoint> out;
        selector->select(in, out);
        ASSERT_EQ(out.size(), in.size());
        for (std::size_t i = 0; i < in.size(); ++i) {
            ASSERT_TRUE(areSame(out[i], expected[i].keypoint))
                << variant << ' ' << robustness << ' ' << i;
        }
    }
}

TEST_P(AnmsAgainstReferenceTest, OneCall) {
    const auto& [variant, kind] = GetParam();
    Random random(1);
    for (int i = 0; i < 60; ++i) {
        const std::vector<Keypoint> in = randomSet(kind, i < 50 ? 40 : 400, random);
        for (const float robustness : {0.8F, 0.99F, 0.3F, 1.0F, 1.7F}) {
            expectTheSame(variant, robustness, {in});
        }
    }
}

TEST_P(AnmsAgainstReferenceTest, ObjectsThatAreUsedAgain) {
    const auto& [variant, kind] = GetParam();
    Random random(2);
    for (int i = 0; i < 40; ++i) {
        expectTheSame(variant, 0.8F,
                      {randomSet(kind, 30, random), randomSet(kind, 30, random),
                       randomSet(kind, 30, random)});
    }
}

TEST_P(AnmsAgainstReferenceTest, RobustnessThatMakesNoSense) {
    const auto& [variant, kind] = GetParam();
    Random random(3);
    for (const float robustness : {0.0F, -0.8F, kNaN, kInfinity, -kInfinity, 1e-42F}) {
        for (int i = 0; i < 10; ++i) {
            expectTheSame(variant, robustness, {randomSet(kind, 30, random)});
        }
    }
}

}  // namespace
}  // namespace marlo
