// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/keypoint_utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

#include "libfeatures/matchers/match_utils.h"
#include "support/cameras/calib_camera.h"
#include "support/cameras/camera_perspective.h"
#include "utilities/captured_log.h"
#include "utilities/hand_written_cameras.h"

namespace marlo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Keypoint2p2Test, GivesThePositionAsAColumnVector) {
    EXPECT_EQ(keypoint2p2(Keypoint(1.5F, -2.0F)), Eigen::Vector2f(1.5F, -2.0F));
}

TEST(KeypointsToKeypointCoordTest, GivesThePositionsInOrderAndDropsTheOldContent) {
    std::vector<Eigen::Vector2f> coords(5, Eigen::Vector2f(9.0F, 9.0F));
    keypoint::keypointsToKeypointCoord({Keypoint(1.0F, 2.0F), Keypoint(3.0F, 4.0F)}, coords);
    EXPECT_THAT(coords, ElementsAre(Eigen::Vector2f(1.0F, 2.0F), Eigen::Vector2f(3.0F, 4.0F)));
}

TEST(KeypointsToKeypointCoordTest, NoKeypointsGiveNoCoordinates) {
    std::vector<Eigen::Vector2f> coords(5);
    keypoint::keypointsToKeypointCoord({}, coords);
    EXPECT_THAT(coords, ElementsAre());
}

TEST(KeypointsToKeypointCoordTest, ReservesExactlyWhatIsNeeded) {
    std::vector<Eigen::Vector2f> coords;
    keypoint::keypointsToKeypointCoord(std::vector<Keypoint>(7), coords);
    EXPECT_EQ(coords.capacity(), 7U);
}

using Rays = std::vector<Eigen::Vector3d>;

bool isNaN(const Eigen::Vector3d& ray) {
    return ray.array().isNaN().all();
}

// Sees pixel (x, y) in the direction (x, y, 1), and nothing where x is negative.
std::shared_ptr<CalibCamera> plainCamera() {
    return std::make_shared<CalibCamera>(test::PlainCamera());
}

// Folds at r = 1, which is seen 200 pixels from the middle.
std::shared_ptr<CalibCamera> foldingCamera() {
    return std::make_shared<CalibCamera>(
        CameraPerspective(400, 400, {300.0, 300.0, 200.0, 200.0, -1.0 / 3.0}));
}

TEST(KeypointsToHomPointsTest, GivesTheRaysInOrderAndDropsTheOldContent) {
    Rays rays(5, Eigen::Vector3d(9.0, 9.0, 9.0));
    const test::CapturedLog log;
    keypoint::keypointsToHomPoints({Keypoint(1.0F, 2.0F), Keypoint(3.0F, -4.0F)}, plainCamera(),
                                   rays);
    EXPECT_THAT(rays, ElementsAre(Eigen::Vector3d(1.0, 2.0, 1.0), Eigen::Vector3d(3.0, -4.0, 1.0)));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(KeypointsToHomPointsTest, WidensPositionsToDouble) {
    Rays rays;
    keypoint::keypointsToHomPoints({Keypoint(0.1F, 0.7F)}, plainCamera(), rays);
    EXPECT_THAT(rays, ElementsAre(Eigen::Vector3d(static_cast<double>(0.1F),
                                                  static_cast<double>(0.7F), 1.0)));
}

TEST(KeypointsToHomPointsTest, EveryKeypointHasItsRayEvenWhereThereIsNone) {
    Rays rays;
    const test::CapturedLog log;
    keypoint::keypointsToHomPoints(
        {Keypoint(-1.0F, 0.0F), Keypoint(1.0F, 2.0F), Keypoint(-2.0F, 0.0F), Keypoint(-3.0F, 0.0F),
         Keypoint(5.0F, 6.0F)},
        plainCamera(), rays);
    ASSERT_EQ(rays.size(), 5U);
    EXPECT_TRUE(isNaN(rays[0]));
    EXPECT_EQ(rays[1], Eigen::Vector3d(1.0, 2.0, 1.0));
    EXPECT_TRUE(isNaN(rays[2]));  // not the ray before
    EXPECT_TRUE(isNaN(rays[3]));
    EXPECT_EQ(rays[4], Eigen::Vector3d(5.0, 6.0, 1.0));
}

// The numbers of a column are as wide as the widest.
TEST(KeypointsToHomPointsTest, LogsOneLineForEachKeypointWithoutRay) {
    Rays rays;
    const test::CapturedLog log;
    keypoint::keypointsToHomPoints({Keypoint(-1.5F, 2.0F), Keypoint(1.0F, 2.0F),
                                    Keypoint(-1000.25F, 7.0F), Keypoint(-3.0F, 1e-7F)},
                                   plainCamera(), rays);
    EXPECT_THAT(
        log.lines(),
        ElementsAre("2 [keypoint_utils:37] |Inverse transform for point -1.5\n   2 failed",
                    "2 [keypoint_utils:37] |Inverse transform for point -1000.25\n       7 failed",
                    "2 [keypoint_utils:37] |Inverse transform for point    -3\n1e-07 failed"));
}

TEST(KeypointsToHomPointsTest, KeypointsAtNaNHaveNoRay) {
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    Rays rays;
    const test::CapturedLog log;
    keypoint::keypointsToHomPoints(
        {Keypoint(kNaN, 1.0F), Keypoint(200.0F, 200.0F), Keypoint(1.0F, -kInfinity)},
        foldingCamera(), rays);
    ASSERT_EQ(rays.size(), 3U);
    EXPECT_TRUE(isNaN(rays[0]));
    EXPECT_EQ(rays[1], Eigen::Vector3d(0.0, 0.0, 1.0));
    EXPECT_TRUE(isNaN(rays[2]));
    EXPECT_THAT(
        log.lines(),
        ElementsAre("2 [keypoint_utils:37] |Inverse transform for point nan\n  1 failed",
                    "2 [keypoint_utils:37] |Inverse transform for point    1\n-inf failed"));
}

TEST(KeypointsToHomPointsTest, MatchesOfKeypointsWithoutRayAreDropped) {
    Rays rays;
    const test::CapturedLog log;
    keypoint::keypointsToHomPoints(
        {Keypoint(200.0F, 200.0F), Keypoint(200.0F, 401.0F), Keypoint(300.0F, 200.0F)},
        foldingCamera(), rays);
    EXPECT_EQ(log.lines().size(), 1U);
    std::vector<DMatch> matches = {{0, 2, 1.0F}, {1, 0, 1.0F}, {2, 1, 1.0F}, {2, 0, 1.0F}};
    removeInfiniteMatches(matches, rays, rays);
    ASSERT_EQ(matches.size(), 2U);
    EXPECT_EQ(matches[0].queryIndex, 0U);
    EXPECT_EQ(matches[1].queryIndex, 2U);
    EXPECT_EQ(matches[1].trainIndex, 0U);
}

TEST(KeypointsToHomPointsTest, NoKeypointsGiveNoRays) {
    Rays rays(5);
    keypoint::keypointsToHomPoints({}, plainCamera(), rays);
    EXPECT_THAT(rays, IsEmpty());
}

TEST(KeypointsToHomPointsTest, ReservesExactlyWhatIsNeeded) {
    Rays rays;
    keypoint::keypointsToHomPoints(std::vector<Keypoint>(7), plainCamera(), rays);
    EXPECT_EQ(rays.capacity(), 7U);
}

TEST(KeypointsToHomPointsTest, RefusesToWorkWithoutACamera) {
    Rays rays(5);
    try {
        keypoint::keypointsToHomPoints({Keypoint(1.0F, 2.0F)}, nullptr, rays);
        ADD_FAILURE();
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "keypointsToHomPoints: there is no camera");
    }
    EXPECT_EQ(rays.size(), 5U);
}

}  // namespace
}  // namespace marlo
