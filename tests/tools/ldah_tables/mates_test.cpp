// SPDX-License-Identifier: BSD-3-Clause
#include "ldah_tables/mates.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace marlo::tools {
namespace {

Keypoint keypointAt(float x, float y, float scale = 2.0F, float angle = 0.0F) {
    return {x, y, scale, angle, 1.0F, 0, 1};
}

// Twice as large and turned a quarter clockwise as displayed: right becomes down.
Eigen::Matrix3d quarterTurn() {
    Eigen::Matrix3d matrix;
    matrix << 0.0, -2.0, 100.0, 2.0, 0.0, 10.0, 0.0, 0.0, 1.0;
    return matrix;
}

TEST(PlacesByHomographyTest, MapPositionSizeAndDirection) {
    const std::vector<Place> places =
        placesByHomography({keypointAt(10.0F, 20.0F, 3.0F, 0.5F)}, quarterTurn(), 200, 200);
    ASSERT_EQ(places.size(), 1U);
    EXPECT_EQ(places[0].keypoint, 0);
    EXPECT_FLOAT_EQ(places[0].x, 60.0F);
    EXPECT_FLOAT_EQ(places[0].y, 30.0F);
    EXPECT_FLOAT_EQ(places[0].scale, 6.0F);
    EXPECT_NEAR(places[0].angle, 0.5F - 1.5707963F, 1e-6F);
    EXPECT_EQ(places[0].line.norm(), 0.0F);
}

TEST(PlacesByHomographyTest, TakeTheMapAtTheKeypointForAPerspectiveView) {
    Eigen::Matrix3d view = Eigen::Matrix3d::Identity();
    view(2, 0) = 0.01;  // (x, y) to (x, y) / (1 + x / 100)
    const std::vector<Place> places =
        placesByHomography({keypointAt(100.0F, 100.0F, 8.0F, 0.0F)}, view, 200, 200);
    ASSERT_EQ(places.size(), 1U);
    EXPECT_FLOAT_EQ(places[0].x, 50.0F);
    EXPECT_FLOAT_EQ(places[0].y, 50.0F);
    // Derivatives at x = y = 100: (1/4, 0) for the column, (-1/4, 1/2) for the row.
    EXPECT_NEAR(places[0].scale, 8.0F * std::sqrt(1.0F / 8.0F), 1e-6F);
    EXPECT_NEAR(places[0].angle, 0.7853982F, 1e-6F);
}

TEST(PlacesByHomographyTest, LeaveOutWhatLiesOutsideOrNearTheBorder) {
    const auto identity = Eigen::Matrix3d::Identity();
    const auto count = [&](float x, float y) {
        return placesByHomography({keypointAt(x, y)}, identity, 50, 80, 8.0F).size();
    };
    EXPECT_EQ(count(8.0F, 8.0F), 1U);
    EXPECT_EQ(count(7.9F, 20.0F), 0U);
    EXPECT_EQ(count(20.0F, 7.9F), 0U);
    EXPECT_EQ(count(71.0F, 41.0F), 1U);
    EXPECT_EQ(count(71.1F, 41.0F), 0U);
    EXPECT_EQ(count(71.0F, 41.1F), 0U);
}

TEST(EpipolarDistanceTest, IsMeasuredFromTheLineInTheSecondImage) {
    Eigen::Matrix3d sideways;  // a shift along the rows: lines are rows
    sideways << 0.0, 0.0, 0.0, 0.0, 0.0, -2.0, 0.0, 2.0, 0.0;
    EXPECT_FLOAT_EQ(epipolarDistance(sideways, keypointAt(10.0F, 20.0F), keypointAt(70.0F, 23.5F)),
                    3.5F);
}

// Twelve matches of one affine map, and a keypoint among them.
struct AffineScene {
    DescribedImage first;
    DescribedImage second;
    EpipolarGeometry geometry;

    AffineScene() {
        geometry.found = true;
        geometry.matrix << 0.0, 0.0, 0.0, 0.0, 0.0, -1.0, 0.0, 1.0, 0.0;
        for (int i = 0; i < 12; ++i) {
            const float x = 20.0F + 7.0F * static_cast<float>(i % 4);
            const float y = 30.0F + 5.0F * static_cast<float>(i) + static_cast<float>(i * i % 7);
            add(x, y, 1.5F * x + 4.0F, y);
        }
        add(30.0F, 50.0F, 500.0F, 50.0F);  // its own match leads astray
    }

    void add(float x, float y, float xThere, float yThere) {
        const auto i = static_cast<int>(first.keypoints.size());
        first.keypoints.push_back(keypointAt(x, y, 4.0F, 0.0F));
        second.keypoints.push_back(keypointAt(xThere, yThere));
        geometry.inliers.emplace_back(i, i, 0.0F);
    }
};

TEST(PlacesByNeighboursTest, FollowTheMatchesAroundAKeypointButNotItsOwn) {
    const AffineScene scene;
    const std::vector<Place> places = placesByNeighbours(scene.first, scene.second, scene.geometry);
    ASSERT_FALSE(places.empty());
    const Place& last = places.back();
    ASSERT_EQ(last.keypoint, 12);
    EXPECT_NEAR(last.x, 1.5F * 30.0F + 4.0F, 1e-3F);
    EXPECT_NEAR(last.y, 50.0F, 1e-3F);
    EXPECT_NEAR(last.scale, 4.0F * std::sqrt(1.5F), 1e-4F);
    EXPECT_NEAR(last.angle, 0.0F, 1e-5F);
    EXPECT_NEAR(last.line.dot(Eigen::Vector3f(300.0F, 50.0F, 1.0F)), 0.0F, 1e-4F);
}

// A place at (50, 60) with scale 4 and direction 1, on the row y = 60, and one keypoint there.
bool isMate(const Keypoint& keypoint, bool withLine = false) {
    Place place;
    place.x = 50.0F;
    place.y = 60.0F;
    place.scale = 4.0F;
    place.angle = 1.0F;
    if (withLine) place.line = {0.0F, 1.0F, -60.0F};
    return !matesAt({place}, {keypoint}).empty();
}

TEST(MatesAtTest, NeedTheKeypointWithinAThirdOfItsScale) {
    EXPECT_TRUE(isMate(keypointAt(51.39F, 60.0F, 4.0F, 1.0F)));
    EXPECT_FALSE(isMate(keypointAt(51.41F, 60.0F, 4.0F, 1.0F)));
}

TEST(MatesAtTest, NeedASimilarSize) {
    EXPECT_TRUE(isMate(keypointAt(50.0F, 60.0F, 5.27F, 1.0F)));
    EXPECT_FALSE(isMate(keypointAt(50.0F, 60.0F, 5.29F, 1.0F)));
    EXPECT_TRUE(isMate(keypointAt(50.0F, 60.0F, 3.04F, 1.0F)));
    EXPECT_FALSE(isMate(keypointAt(50.0F, 60.0F, 3.02F, 1.0F)));
}

TEST(MatesAtTest, NeedASimilarDirectionWhateverTheTurns) {
    EXPECT_TRUE(isMate(keypointAt(50.0F, 60.0F, 4.0F, 1.34F)));
    EXPECT_FALSE(isMate(keypointAt(50.0F, 60.0F, 4.0F, 1.36F)));
    EXPECT_TRUE(isMate(keypointAt(50.0F, 60.0F, 4.0F, 1.0F - 6.2831855F)));
}

TEST(MatesAtTest, NeedTheKeypointNearTheEpipolarLineIfThereIsOne) {
    EXPECT_TRUE(isMate(keypointAt(50.0F, 61.3F, 4.0F, 1.0F), true));
    Place large;
    large.scale = 40.0F;
    large.line = {0.0F, 1.0F, 0.0F};
    EXPECT_EQ(matesAt({large}, {keypointAt(0.0F, 1.4F, 40.0F)}).size(), 1U);
    EXPECT_EQ(matesAt({large}, {keypointAt(0.0F, 1.6F, 40.0F)}).size(), 0U);
}

TEST(MatesAtTest, TakeTheNearestOfSeveral) {
    Place place;
    place.keypoint = 7;
    place.scale = 10.0F;
    const std::vector<Mate> mates =
        matesAt({place}, {keypointAt(2.0F, 0.0F, 10.0F), keypointAt(0.0F, 1.0F, 10.0F),
                          keypointAt(3.0F, 0.0F, 10.0F)});
    ASSERT_EQ(mates.size(), 1U);
    EXPECT_EQ(mates[0].place.keypoint, 7);
    EXPECT_EQ(mates[0].keypoint, 1);
}

}  // namespace
}  // namespace marlo::tools
