// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/keypoint.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <sstream>
#include <type_traits>
#include <vector>

namespace marlo {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

Keypoint keyed(float response, float angle, float x, float y) {
    return {x, y, 1.0F, angle, response, 0, 0};
}

std::string printed(const Keypoint& keypoint) {
    std::ostringstream out;
    out << keypoint;
    return out.str();
}

TEST(KeypointTest, DefaultsAreThoseOfAKeypointThatNoDetectorScored) {
    const Keypoint keypoint;
    EXPECT_EQ(keypoint.x, 0.0F);
    EXPECT_EQ(keypoint.y, 0.0F);
    EXPECT_EQ(keypoint.scale, 7.0F);
    EXPECT_EQ(keypoint.angle, 0.0F);
    EXPECT_EQ(keypoint.response, -1.0F);
    EXPECT_EQ(keypoint.octave, 0);
    EXPECT_EQ(keypoint.layer, 0);
}

TEST(KeypointTest, PositionConstructorKeepsTheOtherDefaults) {
    const Keypoint keypoint(1.5F, 2.5F);
    EXPECT_EQ(keypoint.x, 1.5F);
    EXPECT_EQ(keypoint.y, 2.5F);
    EXPECT_EQ(keypoint.scale, 7.0F);
    EXPECT_EQ(keypoint.angle, 0.0F);
    EXPECT_EQ(keypoint.response, -1.0F);
    EXPECT_EQ(keypoint.octave, 0);
    EXPECT_EQ(keypoint.layer, 0);
}

TEST(KeypointTest, FullConstructorSetsEveryFieldInFieldOrder) {
    const Keypoint keypoint(1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6, 7);
    EXPECT_EQ(keypoint.x, 1.0F);
    EXPECT_EQ(keypoint.y, 2.0F);
    EXPECT_EQ(keypoint.scale, 3.0F);
    EXPECT_EQ(keypoint.angle, 4.0F);
    EXPECT_EQ(keypoint.response, 5.0F);
    EXPECT_EQ(keypoint.octave, 6);
    EXPECT_EQ(keypoint.layer, 7);
}

TEST(KeypointTest, IsAPlainRecord) {
    EXPECT_TRUE(std::is_trivially_copyable_v<Keypoint>);
    EXPECT_FALSE(std::is_polymorphic_v<Keypoint>);
}

TEST(KeypointSamePositionTest, HoldsUpToExactlyTheTolerance) {
    const Keypoint origin(0.0F, 0.0F);
    EXPECT_TRUE(origin.samePosition(Keypoint(0.001F, 0.0F)));
    EXPECT_TRUE(origin.samePosition(Keypoint(0.0F, -0.001F)));
    EXPECT_TRUE(origin.samePosition(Keypoint(-0.001F, 0.001F)));
}

TEST(KeypointSamePositionTest, EndsJustAboveTheTolerance) {
    const float above = std::nextafter(0.001F, 1.0F);
    const Keypoint origin(0.0F, 0.0F);
    EXPECT_FALSE(origin.samePosition(Keypoint(above, 0.0F)));
    EXPECT_FALSE(origin.samePosition(Keypoint(0.0F, -above)));
}

TEST(KeypointSamePositionTest, DifferenceIsTakenInSinglePrecision) {
    // 0.001 + 3e-11 is above the tolerance, but rounds to it: floats are 1.2e-10 apart there.
    EXPECT_TRUE(Keypoint(0.001F, 0.0F).samePosition(Keypoint(-3e-11F, 0.0F)));
    EXPECT_TRUE(Keypoint(0.0F, -3e-11F).samePosition(Keypoint(0.0F, 0.001F)));
}

TEST(KeypointSamePositionTest, LooksAtNoOtherField) {
    EXPECT_TRUE(Keypoint(1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6, 7).samePosition(Keypoint(1.0F, 2.0F)));
}

TEST(KeypointSamePositionTest, NanIsNowhere) {
    EXPECT_FALSE(Keypoint(kNaN, 0.0F).samePosition(Keypoint(kNaN, 0.0F)));
    EXPECT_FALSE(Keypoint(0.0F, kNaN).samePosition(Keypoint(0.0F, 0.0F)));
}

TEST(KeypointOrderTest, ResponseDecidesFirst) {
    const Keypoint weak = keyed(1.0F, 9.0F, 9.0F, 9.0F);
    const Keypoint strong = keyed(2.0F, 0.0F, 0.0F, 0.0F);
    EXPECT_TRUE(weak < strong);
    EXPECT_FALSE(strong < weak);
    EXPECT_TRUE(strong > weak);
    EXPECT_FALSE(weak > strong);
}

TEST(KeypointOrderTest, ThenAngleThenXThenY) {
    EXPECT_TRUE(keyed(1.0F, 1.0F, 9.0F, 9.0F) < keyed(1.0F, 2.0F, 0.0F, 0.0F));
    EXPECT_TRUE(keyed(1.0F, 2.0F, 0.0F, 0.0F) > keyed(1.0F, 1.0F, 9.0F, 9.0F));
    EXPECT_TRUE(keyed(1.0F, 1.0F, 1.0F, 9.0F) < keyed(1.0F, 1.0F, 2.0F, 0.0F));
    EXPECT_TRUE(keyed(1.0F, 1.0F, 2.0F, 0.0F) > keyed(1.0F, 1.0F, 1.0F, 9.0F));
    EXPECT_TRUE(keyed(1.0F, 1.0F, 1.0F, 1.0F) < keyed(1.0F, 1.0F, 1.0F, 2.0F));
    EXPECT_TRUE(keyed(1.0F, 1.0F, 1.0F, 2.0F) > keyed(1.0F, 1.0F, 1.0F, 1.0F));
}

TEST(KeypointOrderTest, ScaleOctaveAndLayerTakeNoPart) {
    const Keypoint base(1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 0, 1);
    for (const Keypoint& other : {Keypoint(1.0F, 2.0F, 8.0F, 4.0F, 5.0F, 0, 1),
                                  Keypoint(1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 2, 1),
                                  Keypoint(1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 0, 3)}) {
        EXPECT_FALSE(base < other);
        EXPECT_FALSE(base > other);
        EXPECT_FALSE(other < base);
        EXPECT_FALSE(other > base);
    }
}

TEST(KeypointOrderTest, NanInAKeyFallsThroughToTheNext) {
    EXPECT_TRUE(keyed(kNaN, 1.0F, 0.0F, 0.0F) < keyed(5.0F, 2.0F, 0.0F, 0.0F));
    EXPECT_TRUE(keyed(5.0F, 2.0F, 0.0F, 0.0F) > keyed(kNaN, 1.0F, 0.0F, 0.0F));
    EXPECT_TRUE(keyed(1.0F, kNaN, 1.0F, 0.0F) < keyed(1.0F, 0.0F, 2.0F, 0.0F));
    EXPECT_TRUE(keyed(1.0F, 0.0F, kNaN, 1.0F) < keyed(1.0F, 0.0F, 0.0F, 2.0F));
    EXPECT_FALSE(keyed(1.0F, 0.0F, 0.0F, kNaN) < keyed(1.0F, 0.0F, 0.0F, 2.0F));
    EXPECT_FALSE(keyed(1.0F, 0.0F, 0.0F, kNaN) > keyed(1.0F, 0.0F, 0.0F, 2.0F));
}

// The order as a table of keys, written without looking at how the record does it.
bool lexicographicallyLess(const Keypoint& a, const Keypoint& b) {
    const float keys[4][2] = {{a.response, b.response}, {a.angle, b.angle}, {a.x, b.x}, {a.y, b.y}};
    for (const auto& key : keys) {
        if (key[0] != key[1] && !std::isnan(key[0]) && !std::isnan(key[1])) {
            return key[0] < key[1];
        }
    }
    return false;
}

TEST(KeypointOrderTest, AgreesWithTheLexicographicRuleOnRandomKeysWithTiesAndNan) {
    std::mt19937 random(1);
    const float values[] = {-1.0F, 0.0F, 1.0F, kNaN};
    const auto value = [&] { return values[random() % 4]; };
    for (int i = 0; i < 20000; ++i) {
        const Keypoint a = keyed(value(), value(), value(), value());
        const Keypoint b = keyed(value(), value(), value(), value());
        ASSERT_EQ(a < b, lexicographicallyLess(a, b)) << a << " and " << b;
        ASSERT_EQ(a > b, lexicographicallyLess(b, a)) << a << " and " << b;
    }
}

TEST(KeypointPrintTest, PrintsTheDefaultKeypoint) {
    EXPECT_EQ(printed(Keypoint()), "[0 , 0] -> 7, 0, -1, 0, 0");
}

TEST(KeypointPrintTest, PrintsEveryFieldWithOctaveAndLayerAsNumbers) {
    EXPECT_EQ(printed(Keypoint(1.5F, -2.25F, 3.5F, 0.125F, 0.75F, 65, 255)),
              "[1.5 , -2.25] -> 3.5, 0.125, 0.75, 65, 255");
}

TEST(KeypointPrintTest, UsesTheFloatFormattingOfTheStreamOnTheWidenedValue) {
    std::ostringstream out;
    out.precision(17);
    out << Keypoint(0.1F, 0.0F);
    EXPECT_EQ(out.str(), "[0.10000000149011612 , 0] -> 7, 0, -1, 0, 0");
}

}  // namespace
}  // namespace marlo
