// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/town.h"

#include <gtest/gtest.h>

#include <cmath>

#include "utilities/synthetic_images.h"

namespace marlo::app {
namespace {

constexpr double kAllRound = 1.0;  // the sine of a right angle

Town::Sight lookDownAt(const Town& town, double x, double y) {
    const Ray ray{{x, y, 100.0}, {0.0, 0.0, -1.0}};
    return town.look(ray, town.solidsNear(ray, 0.0));
}

TEST(TownTest, TheMarketPlaceIsOnTheGround) {
    const Town::Sight sight = lookDownAt(Town(), -2.0, -10.0);
    EXPECT_EQ(sight.solid, Town::kGround);
    EXPECT_EQ(sight.distance, 100.0);
}

TEST(TownTest, TheTowerEndsInATip) {
    const Town::Sight sight = lookDownAt(Town(), 4.5, 22.5);
    EXPECT_GE(sight.solid, 0);
    EXPECT_NEAR(sight.distance, 100.0 - 25.5, 1e-9);
}

TEST(TownTest, ARayUpwardsLeavesIntoTheSky) {
    const Town town;
    const Ray ray{{0.0, -60.0, 20.0}, {0.0, 0.6, 0.8}};
    const Town::Sight sight = town.look(ray, town.solidsNear(ray, 0.0));
    EXPECT_EQ(sight.solid, Town::kSky);
    EXPECT_TRUE(std::isinf(sight.distance));
}

TEST(TownTest, TheGroundEndsAtTheHorizon) {
    const Town town;
    const Ray ray{{0.0, -60.0, 20.0}, Eigen::Vector3d(0.0, -1.0, -1e-9).normalized()};
    EXPECT_EQ(town.look(ray, town.solidsNear(ray, 0.0)).solid, Town::kSky);
}

TEST(TownTest, TheTowerShadesItsNorthEast) {
    const Town town;
    EXPECT_TRUE(lookDownAt(town, -2.0, -10.0).isSunlit);
    // At the height of its eaves the shadow is in the middle of the sun's way to there.
    EXPECT_FALSE(lookDownAt(town, 4.5 + 10.0 * 0.55 / 0.7, 22.5 + 10.0 * 0.45 / 0.7).isSunlit);
}

TEST(TownTest, TheSolidsNearARayAreEnoughForAllRaysAroundIt) {
    const Town town;
    test::Random random(5);
    const Eigen::Vector3d eye(-7.0, -64.0, 20.0);
    for (int i = 0; i < 200; ++i) {
        const Eigen::Vector3d axis =
            Eigen::Vector3d(random.uniform(-0.5F, 0.5F), 1.0, random.uniform(-0.4F, 0.2F))
                .normalized();
        const Eigen::Vector3d aside =
            0.009 * Eigen::Vector3d(random.uniform(-0.7F, 0.7F), 0.0, random.uniform(-0.7F, 0.7F));
        const Ray ray{eye, (axis + aside).normalized()};
        const Town::Sight quick = town.look(ray, town.solidsNear({eye, axis}, 0.01));
        const Town::Sight thorough = town.look(ray, town.solidsNear({eye, axis}, kAllRound));
        ASSERT_EQ(quick.solid, thorough.solid);
        ASSERT_EQ(quick.distance, thorough.distance);
    }
}

TEST(TownTest, TheSunMakesTheSamePlaceBrighter) {
    const Town town;
    const Ray ray{{-2.0, -10.0, 100.0}, {0.0, 0.0, -1.0}};
    Town::Sight sight = lookDownAt(town, -2.0, -10.0);
    const Eigen::Array3f sunlit = town.light(ray, sight, 0.001);
    sight.isSunlit = false;
    EXPECT_TRUE((sunlit > 2.0F * town.light(ray, sight, 0.001)).all());
}

TEST(TownTest, TheSkyIsSmooth) {
    const Town town;
    const auto colour = [&](double up) {
        const Ray ray{{0.0, -60.0, 20.0}, Eigen::Vector3d(0.0, 1.0, up).normalized()};
        return town.light(ray, Town::Sight(), 0.001);
    };
    for (int i = 0; i < 100; ++i) {
        ASSERT_LT((colour(0.005 * i) - colour(0.005 * (i + 1))).abs().maxCoeff(), 0.02F);
    }
}

}  // namespace
}  // namespace marlo::app
