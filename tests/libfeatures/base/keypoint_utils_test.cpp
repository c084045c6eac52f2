// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/keypoint_utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace marlo {
namespace {

using testing::ElementsAre;

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

}  // namespace
}  // namespace marlo
