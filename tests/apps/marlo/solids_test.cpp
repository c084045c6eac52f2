// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/solids.h"

#include <gtest/gtest.h>

#include <cmath>

namespace marlo::app {
namespace {

/// 6 m long, 4 m wide, walls 3 m high, turned so that its length runs towards (0.8, 0.6).
House house(House::Roof roof, double roofHeight, double x = 0.0, double y = 0.0) {
    return House({x, y, 0.8, 0.6, 6.0, 4.0, 3.0, roofHeight, roof, House::Finish::plaster, 1.0F,
                  1.0F, 1.0F});
}

Ray downwardsAt(double x, double y) {
    return {{x, y, 100.0}, {0.0, 0.0, -1.0}};
}

/// How high a house is at a place.
double heightAt(const House& house, double x, double y) {
    const auto chord = house.chord(downwardsAt(x, y));
    return chord ? 100.0 - chord->enter : 0.0;
}

TEST(HouseTest, AFlatRoofIsAsHighAsTheWalls) {
    const House flat = house(House::Roof::flat, 0.0);
    EXPECT_NEAR(heightAt(flat, 0.0, 0.0), 3.0, 1e-12);
    EXPECT_EQ(flat.chord(downwardsAt(0.0, 0.0))->face, House::roofSouth);
}

TEST(HouseTest, AGableRoofFallsFromTheRidgeToTheEaves) {
    const House gable = house(House::Roof::gable, 2.0);
    EXPECT_NEAR(heightAt(gable, 0.0, 0.0), 5.0, 1e-12);
    EXPECT_NEAR(heightAt(gable, 2.3 * 0.8, 2.3 * 0.6), 5.0, 1e-12);  // along the ridge
    EXPECT_NEAR(heightAt(gable, -0.6, 0.8), 4.0, 1e-12);             // 1 m across
}

TEST(HouseTest, APyramidFallsToAllSides) {
    const House pyramid = house(House::Roof::pyramid, 2.0);
    EXPECT_NEAR(heightAt(pyramid, 1.5 * 0.8, 1.5 * 0.6), 4.0, 1e-12);
    EXPECT_NEAR(heightAt(pyramid, -0.6, 0.8), 4.0, 1e-12);
}

TEST(HouseTest, ARayAcrossMeetsTheNearWallAndLeavesThroughTheFarOne) {
    // From the south of its own axes, 10 m from the middle.
    const Ray ray{{1.0 + 10.0 * 0.6, 2.0 - 10.0 * 0.8, 1.0}, {-0.6, 0.8, 0.0}};
    const auto chord = house(House::Roof::gable, 2.0, 1.0, 2.0).chord(ray);
    ASSERT_TRUE(chord);
    EXPECT_NEAR(chord->enter, 8.0, 1e-12);
    EXPECT_NEAR(chord->leave, 12.0, 1e-12);
    EXPECT_EQ(chord->face, House::south);
}

TEST(HouseTest, ARayBesideItMeetsNothing) {
    EXPECT_FALSE(house(House::Roof::gable, 2.0).chord(downwardsAt(0.8 * 3.1, 0.6 * 3.1)));
}

TEST(HouseTest, ARayAwayFromItHasItBehindItself) {
    const auto chord = house(House::Roof::flat, 0.0).chord({{0.0, 0.0, 10.0}, {0.0, 0.0, 1.0}});
    ASSERT_TRUE(chord);
    EXPECT_LT(chord->enter, 0.0);
}

TEST(HouseTest, PlacesOnAWallAreMeasuredFromItsLowerCorner) {
    // On the south wall, 1 m from the middle towards the east, 2 m up.
    const Eigen::Vector3d point(0.8 * 1.0 + 0.6 * 2.0, 0.6 * 1.0 - 0.8 * 2.0, 2.0);
    const Eigen::Vector2d place = house(House::Roof::gable, 2.0).onFace(House::south, point);
    EXPECT_NEAR(place.x(), 4.0, 1e-12);
    EXPECT_NEAR(place.y(), 2.0, 1e-12);
}

TEST(HouseTest, PlacesOnARoofAreMeasuredAlongItsSlope) {
    // The middle of the ridge. The slope is as long as the diagonal of 2 m across and 2 m up.
    const House gable = house(House::Roof::gable, 2.0);
    for (const int face : {House::roofSouth, House::roofNorth}) {
        const Eigen::Vector2d place = gable.onFace(face, {0.0, 0.0, 5.0});
        EXPECT_NEAR(place.x(), 3.0, 1e-12);
        EXPECT_NEAR(place.y(), std::sqrt(8.0), 1e-12);
    }
}

TEST(HouseTest, BoundsReachItsCorners) {
    const Sphere bounds = house(House::Roof::gable, 2.0).bounds();
    const Eigen::Vector3d corner(0.8 * 3.0 - 0.6 * 2.0, 0.6 * 3.0 + 0.8 * 2.0, 0.0);
    EXPECT_LE((corner - bounds.centre).norm(), bounds.radius + 1e-12);
    EXPECT_LE((Eigen::Vector3d(0.0, 0.0, 5.0) - bounds.centre).norm(), bounds.radius);
}

TEST(EllipsoidTest, ARayThroughTheMiddleHasItsDiameter) {
    const Ellipsoid ellipsoid{{1.0, 2.0, 3.0}, {1.0, 2.0, 4.0}, true};
    const auto chord = ellipsoid.chord(downwardsAt(1.0, 2.0));
    ASSERT_TRUE(chord);
    EXPECT_NEAR(chord->enter, 93.0, 1e-12);
    EXPECT_NEAR(chord->leave, 101.0, 1e-12);
}

TEST(EllipsoidTest, ARayBesideItMeetsNothing) {
    const Ellipsoid ellipsoid{{1.0, 2.0, 3.0}, {1.0, 2.0, 4.0}, true};
    EXPECT_FALSE(ellipsoid.chord(downwardsAt(2.01, 2.0)));
}

TEST(EllipsoidTest, NormalsPointOutwardsFromTheTips) {
    const Ellipsoid ellipsoid{{1.0, 2.0, 3.0}, {1.0, 2.0, 4.0}, true};
    EXPECT_TRUE(ellipsoid.normal({1.0, 4.0, 3.0}).isApprox(Eigen::Vector3d::UnitY()));
    EXPECT_TRUE(ellipsoid.normal({1.0, 2.0, -1.0}).isApprox(-Eigen::Vector3d::UnitZ()));
}

}  // namespace
}  // namespace marlo::app
