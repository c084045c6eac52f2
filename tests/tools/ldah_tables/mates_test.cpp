// SPDX-License-Identifier: BSD-3-Clause
#include "ldah_tables/mates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
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

TEST(PlacesByHomographyTest, LeaveOutWhatLiesBehindTheCamera) {
    Eigen::Matrix3d view;
    view << 1.0, 0.0, -300.0, 0.0, 1.0, -300.0, -0.01, 0.0, 1.0;
    // (200, 200, 1) becomes (-100, -100, -1), which divided is inside the image.
    EXPECT_TRUE(placesByHomography({keypointAt(200.0F, 200.0F)}, view, 200, 200).empty());
    EXPECT_EQ(placesByHomography({keypointAt(200.0F, 200.0F)}, -view, 200, 200).size(), 1U);
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

TEST(PlacesByNeighboursTest, DoNotFollowTheMatchesOfOthersAtTheSameSpot) {
    AffineScene scene;
    scene.add(30.0F, 50.0F, 500.0F, 50.0F);  // a second direction of keypoint 12
    const std::vector<Place> places = placesByNeighbours(scene.first, scene.second, scene.geometry);
    ASSERT_FALSE(places.empty());
    EXPECT_EQ(places.back().keypoint, 13);
    EXPECT_NEAR(places.back().x, 1.5F * 30.0F + 4.0F, 1e-3F);
    EXPECT_NEAR(places.back().y, 50.0F, 1e-3F);
}

TEST(PlacesByNeighboursTest, FollowOnlyTheTenNearest) {
    AffineScene scene;
    for (int i = 0; i < 12; ++i) {  // another surface, far from all that is around (30, 50)
        const float x = 400.0F + 9.0F * static_cast<float>(i % 5);
        const float y = 500.0F + 8.0F * static_cast<float>(i);
        scene.add(x, y, 0.5F * x + 300.0F, 2.0F * y);
    }
    std::rotate(scene.geometry.inliers.begin(), scene.geometry.inliers.begin() + 13,
                scene.geometry.inliers.end());
    const std::vector<Place> places = placesByNeighbours(scene.first, scene.second, scene.geometry);
    const auto place =
        std::find_if(places.begin(), places.end(), [](const Place& p) { return p.keypoint == 12; });
    ASSERT_NE(place, places.end());
    EXPECT_NEAR(place->x, 1.5F * 30.0F + 4.0F, 1e-3F);
    EXPECT_NEAR(place->y, 50.0F, 1e-3F);
}

TEST(PlacesByNeighboursTest, NeedTenMatchesOfOthers) {
    AffineScene scene;
    scene.geometry.inliers.resize(10);  // keypoints 10 to 12 still have ten, of others
    std::vector<int> placed;
    for (const Place& place : placesByNeighbours(scene.first, scene.second, scene.geometry)) {
        placed.push_back(place.keypoint);
    }
    EXPECT_EQ(placed, (std::vector<int>{10, 11, 12}));
}

TEST(PlacesByNeighboursTest, LeaveOutKeypointsWhoseSurroundingsAreMirrored) {
    AffineScene scene;
    for (Keypoint& keypoint : scene.second.keypoints) keypoint.x = 600.0F - keypoint.x;
    scene.geometry.inliers.resize(12);
    EXPECT_TRUE(placesByNeighbours(scene.first, scene.second, scene.geometry).empty());
}

// Two photographs of points in space, each with a row of its own that both photographs share. Of
// the points, the last `astray` are shown by the second photograph anywhere.
struct SceneInSpace {
    DescribedImage first;
    DescribedImage second;

    SceneInSpace(int points, int astray) {
        std::mt19937 random(5);
        const auto between = [&random](double low, double high) {
            return low + (high - low) * static_cast<double>(random()) / 4294967296.0;
        };
        first.rows = DescMat(points, 128, DescMat::Float);
        second.rows = DescMat(points, 128, DescMat::Float);
        for (int i = 0; i < points; ++i) {
            const double x = between(-2.0, 2.0);
            const double y = between(-1.5, 1.5);
            const double depth = between(3.0, 8.0);
            first.keypoints.push_back(seen(x, y, depth));
            // From a step to the right and forward.
            second.keypoints.push_back(seen(x - 0.6, y - 0.1, depth - 0.5));
            if (i >= points - astray) {
                second.keypoints.back() = keypointAt(static_cast<float>(between(0.0, 1200.0)),
                                                     static_cast<float>(between(0.0, 900.0)));
            }
            for (int column = 0; column < 128; ++column) {
                const auto value = static_cast<float>(between(0.0, 1.0));
                floatsOf(first.rows, i)[column] = value;
                floatsOf(second.rows, i)[column] = value;
            }
        }
    }

    static Keypoint seen(double x, double y, double depth) {
        return keypointAt(static_cast<float>(600.0 + 900.0 * x / depth),
                          static_cast<float>(450.0 + 900.0 * y / depth));
    }

    static float* floatsOf(const DescMat& rows, int i) {
        return reinterpret_cast<float*>(rows.data + static_cast<std::size_t>(i) * rows.step);
    }

    [[nodiscard]] EpipolarGeometry geometry() const { return epipolarGeometry(first, second); }
};

TEST(EpipolarGeometryTest, IsFoundFromMatchesOfWhichMostAgree) {
    const SceneInSpace scene(200, 60);
    const EpipolarGeometry geometry = scene.geometry();
    ASSERT_TRUE(geometry.found);
    EXPECT_GE(geometry.inliers.size(), 140U);
    EXPECT_LT(geometry.inliers.size(), 160U);
    for (std::size_t i = 0; i < 140; ++i) {
        EXPECT_LT(
            epipolarDistance(geometry.matrix, scene.first.keypoints[i], scene.second.keypoints[i]),
            0.5F);
    }
    for (const DMatch& match : geometry.inliers) EXPECT_EQ(match.queryIndex, match.trainIndex);
}

TEST(EpipolarGeometryTest, IsTheSameForTheSamePhotographs) {
    const SceneInSpace scene(200, 60);
    EXPECT_EQ(scene.geometry().matrix, scene.geometry().matrix);
}

TEST(EpipolarGeometryTest, IsNotFoundFromFewerThan80Matches) {
    EXPECT_TRUE(SceneInSpace(80, 0).geometry().found);
    EXPECT_FALSE(SceneInSpace(79, 0).geometry().found);
    EXPECT_FALSE(SceneInSpace(3, 0).geometry().found);
    EXPECT_FALSE(SceneInSpace(0, 0).geometry().found);
}

TEST(EpipolarGeometryTest, IsNotFoundWhereFewerThan80MatchesAgree) {
    EXPECT_FALSE(SceneInSpace(100, 30).geometry().found);
}

TEST(EpipolarGeometryTest, IsNotFoundWhereFewerThanHalfOfTheMatchesAgree) {
    EXPECT_FALSE(SceneInSpace(240, 145).geometry().found);
}

TEST(EpipolarGeometryTest, IsNotFoundBetweenPhotographsOfOtherThings) {
    SceneInSpace scene(200, 0);
    std::reverse(scene.second.keypoints.begin(), scene.second.keypoints.end());
    EXPECT_FALSE(scene.geometry().found);
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
