// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "utilities/number_of_threads.h"

namespace marlo::app {
namespace {

using testing::Each;
using testing::Ge;

constexpr double kScale = 0.06;  // 72 x 54 pixels
constexpr double kSmallScale = 0.03;
constexpr float kSky = std::numeric_limits<float>::infinity();

const std::vector<DemoView>& views() {
    static const std::vector<DemoView> rendered = renderDemoViews(kScale);
    return rendered;
}

const std::vector<DemoView>& smallViews() {
    static const std::vector<DemoView> rendered = renderDemoViews(kSmallScale);
    return rendered;
}

/// Looks along the z axis of the world, of which x points to the right and y down.
PinholeCamera handMadeCamera(double x) {
    return {101, 81, 100.0, {50.0, 40.0}, Eigen::Matrix3d::Identity(), {x, 0.0, 0.0}};
}

DemoView wallAt(float depth, double cameraX) {
    return {"", handMadeCamera(cameraX), {}, cv::Mat(81, 101, CV_32F, cv::Scalar(depth))};
}

bool sameBits(const cv::Mat& a, const cv::Mat& b) {
    return a.size() == b.size() && a.type() == b.type() && a.isContinuous() && b.isContinuous() &&
           std::memcmp(a.data, b.data, a.total() * a.elemSize()) == 0;
}

void expectSameBits(const std::vector<DemoView>& a, const std::vector<DemoView>& b) {
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
        EXPECT_TRUE(sameBits(a[i].image, b[i].image)) << a[i].name;
        EXPECT_TRUE(sameBits(a[i].depth, b[i].depth)) << a[i].name;
    }
}

/// Of the pixels of `from`, the share that `to` shows as well.
double sharedPart(const DemoView& from, const DemoView& to) {
    int shared = 0;
    for (int y = 0; y < from.depth.rows; ++y) {
        for (int x = 0; x < from.depth.cols; ++x) {
            shared += transfer(from, Eigen::Vector2d(x, y), to) ? 1 : 0;
        }
    }
    return shared / static_cast<double>(from.depth.total());
}

double brightness(const DemoView& view) {
    const cv::Scalar mean = cv::mean(view.image);
    return (mean[0] + mean[1] + mean[2]) / 3.0;
}

TEST(PinholeCameraTest, ProjectsAHandComputedPoint) {
    const auto pixel = handMadeCamera(2.0).project({3.0, -2.0, 10.0});
    ASSERT_TRUE(pixel);
    EXPECT_EQ(*pixel, Eigen::Vector2d(60.0, 20.0));
}

TEST(PinholeCameraTest, PointsBehindTheCameraHaveNoPixel) {
    EXPECT_FALSE(handMadeCamera(0.0).project({0.0, 0.0, -1.0}));
    EXPECT_FALSE(handMadeCamera(0.0).project({1.0, 0.0, 0.0}));
}

TEST(PinholeCameraTest, DepthIsMeasuredAlongTheOpticalAxis) {
    EXPECT_EQ(handMadeCamera(2.0).depth({30.0, -4.0, 7.0}), 7.0);
}

TEST(PinholeCameraTest, PointsOnTheRayOfAPixelAreProjectedThere) {
    for (const DemoView& view : views()) {
        for (const Eigen::Vector2d& pixel :
             {Eigen::Vector2d(0.0, 0.0), Eigen::Vector2d(31.25, 47.5),
              Eigen::Vector2d(71.0, 4.0)}) {
            const Eigen::Vector3d ray = view.camera.ray(pixel);
            EXPECT_NEAR(ray.norm(), 1.0, 1e-12);
            const auto projected = view.camera.project(view.camera.centre + 30.0 * ray);
            ASSERT_TRUE(projected);
            EXPECT_LT((*projected - pixel).norm(), 1e-9) << view.name;
        }
    }
}

TEST(TransferTest, MovesAPixelByTheParallaxOfItsDepth) {
    const auto pixel = transfer(wallAt(10.0F, 0.0), {50.0, 40.0}, wallAt(10.0F, 2.0));
    ASSERT_TRUE(pixel);
    EXPECT_LT((*pixel - Eigen::Vector2d(30.0, 40.0)).norm(), 1e-6);
}

TEST(TransferTest, IsExactBetweenThePixelsOfASlantedPlane) {
    // The plane z = 10 + x / 2: a ray through column u meets it at 10 / (1 - (u - 50) / 200).
    DemoView from = wallAt(0.0F, 0.0);
    DemoView to = wallAt(0.0F, 1.0);
    for (int u = 0; u < from.depth.cols; ++u) {
        from.depth.col(u).setTo(10.0 / (1.0 - (u - 50) / 200.0));
        to.depth.col(u).setTo(10.5 / (1.0 - (u - 50) / 200.0));
    }
    const double depth = 10.0 / (1.0 - 20.4 / 200.0);
    const auto pixel = transfer(from, {70.4, 33.7}, to);
    ASSERT_TRUE(pixel);
    EXPECT_LT((*pixel - Eigen::Vector2d(70.4 - 100.0 / depth, 33.7)).norm(), 1e-4);
}

TEST(TransferTest, TakesTheNearestPixelsSurfaceAtTheEdgeOfAnother) {
    DemoView from = wallAt(10.0F, 0.0);
    from.depth.colRange(0, 60).setTo(5.0);
    const auto pixel = transfer(from, {59.6, 40.0}, wallAt(10.0F, 2.0));
    ASSERT_TRUE(pixel);
    EXPECT_NEAR(pixel->x(), 39.6, 1e-6);
}

TEST(TransferTest, HiddenPointsGiveNothing) {
    EXPECT_FALSE(transfer(wallAt(10.0F, 0.0), {50.0, 40.0}, wallAt(9.8F, 2.0)));
}

TEST(TransferTest, ADepthThatDiffersByLessThanOnePercentIsTheSameSurface) {
    EXPECT_TRUE(transfer(wallAt(10.0F, 0.0), {50.0, 40.0}, wallAt(9.92F, 2.0)));
}

TEST(TransferTest, PointsOutsideOfTheOtherViewGiveNothing) {
    EXPECT_FALSE(transfer(wallAt(10.0F, 0.0), {19.0, 40.0}, wallAt(10.0F, 2.0)));
}

TEST(TransferTest, PixelsOutsideOfTheFirstViewGiveNothing) {
    const DemoView wall = wallAt(10.0F, 0.0);
    EXPECT_FALSE(transfer(wall, {-0.01, 40.0}, wall));
    EXPECT_FALSE(transfer(wall, {50.0, 80.01}, wall));
    EXPECT_FALSE(transfer(wall, {std::nan(""), 40.0}, wall));
}

TEST(TransferTest, SkyGivesNothing) {
    DemoView from = wallAt(kSky, 0.0);
    EXPECT_FALSE(transfer(from, {50.0, 40.0}, wallAt(10.0F, 0.0)));
    from.depth.colRange(0, 50).setTo(10.0);
    from.depth.colRange(51, 101).setTo(10.0);
    EXPECT_FALSE(transfer(from, {50.3, 40.0}, wallAt(10.0F, 0.0)));
}

TEST(TransferTest, ThereAndBackLeadsToTheSamePixel) {
    // Where a wall stands on the ground, less than 1 % of the depth may hide a point.
    for (std::size_t i = 0; i + 1 < views().size(); ++i) {
        const DemoView& here = views()[i];
        const DemoView& there = views()[i + 1];
        int visible = 0;
        int exact = 0;
        for (int y = 0; y < here.depth.rows; ++y) {
            for (int x = 0; x < here.depth.cols; ++x) {
                const auto pixel = transfer(here, Eigen::Vector2d(x, y), there);
                const auto back = pixel ? transfer(there, *pixel, here) : std::nullopt;
                if (!back) continue;
                const double error = (*back - Eigen::Vector2d(x, y)).norm();
                EXPECT_LT(error, 1.0) << here.name << " " << x << ", " << y;
                ++visible;
                exact += error <= 0.1 ? 1 : 0;
            }
        }
        EXPECT_GT(exact, 0.95 * visible) << here.name;
    }
}

TEST(DemoViewsTest, AreEightOfTheAskedSizeWithNamesInOrder) {
    ASSERT_EQ(views().size(), 8U);
    for (std::size_t i = 0; i < views().size(); ++i) {
        const DemoView& view = views()[i];
        EXPECT_EQ(view.name, "view_0" + std::to_string(i + 1) + ".png");
        EXPECT_EQ(view.image.size(), cv::Size(72, 54));
        EXPECT_EQ(view.image.type(), CV_8UC3);
        EXPECT_EQ(view.depth.size(), cv::Size(72, 54));
        EXPECT_EQ(view.depth.type(), CV_32F);
        EXPECT_EQ(view.camera.width, 72);
        EXPECT_EQ(view.camera.height, 54);
    }
}

TEST(DemoViewsTest, DepthOfTheGroundIsExact) {
    // The camera of the fourth view is 23 m above the ground and looks down by 19 m on a way of
    // 6.7 and 69.6 m. The middle of the lowest row is 26.5 pixels below the optical axis.
    const double across = std::hypot(6.7, 69.6);
    const double way = std::hypot(across, 19.0);
    const double fallPerMetreOfDepth = (19.0 + 26.5 / 75.0 * across) / way;
    EXPECT_NEAR(views()[3].depth.at<float>(53, 36), 23.0 / fallPerMetreOfDepth, 1e-5);
}

TEST(DemoViewsTest, SkyIsInfinitelyFar) {
    EXPECT_EQ(views()[0].depth.at<float>(0, 0), kSky);
}

TEST(DemoViewsTest, RotationsAreRightHandedAndOrthonormal) {
    for (const DemoView& view : views()) {
        const Eigen::Matrix3d& rotation = view.camera.rotation;
        EXPECT_TRUE((rotation * rotation.transpose()).isIdentity(1e-12)) << view.name;
        EXPECT_GT(rotation.determinant(), 0.0) << view.name;
    }
}

TEST(DemoViewsTest, OnlyTheThirdCameraIsTurnedAboutItsAxis) {
    for (std::size_t i = 0; i < views().size(); ++i) {
        // How far the image's right points down in the world, next to how far its bottom does.
        const Eigen::Vector3d down = views()[i].camera.rotation * -Eigen::Vector3d::UnitZ();
        EXPECT_NEAR(std::atan2(down.x(), down.y()), i == 2 ? std::acos(0.5) : 0.0, 1e-12);
    }
}

TEST(DemoViewsTest, OnlyTheFifthCameraIsZoomedIn) {
    for (std::size_t i = 0; i < views().size(); ++i) {
        EXPECT_EQ(views()[i].camera.focalLength, i == 4 ? 112.5 : 75.0);
    }
}

TEST(DemoViewsTest, TheSecondIsTheDarkestAndTheSeventhTheBrightest) {
    for (const std::size_t other : {0UL, 2UL, 3UL, 4UL, 5UL, 7UL}) {
        EXPECT_LT(brightness(views()[1]) + 30.0, brightness(views()[other])) << other;
        EXPECT_GT(brightness(views()[6]) - 20.0, brightness(views()[other])) << other;
    }
}

TEST(DemoViewsTest, TheLastIsTheNoisiest) {
    // In the sky, where nothing but noise tells neighbours apart.
    const auto noise = [](const DemoView& view) {
        cv::Mat difference;
        cv::absdiff(view.image(cv::Rect(0, 0, 10, 2)), view.image(cv::Rect(1, 0, 10, 2)),
                    difference);
        return cv::mean(difference)[1];
    };
    EXPECT_GT(noise(views()[0]), 0.5);
    EXPECT_GT(noise(views()[7]), 3.0 * noise(views()[0]));
}

TEST(DemoViewsTest, AllHaveContrast) {
    for (const DemoView& view : views()) {
        cv::Scalar mean;
        cv::Scalar deviation;
        cv::meanStdDev(view.image, mean, deviation);
        EXPECT_GT(deviation[1], 15.0) << view.name;
    }
}

TEST(DemoViewsTest, NoTwoLookTheSame) {
    for (std::size_t i = 0; i < views().size(); ++i) {
        for (std::size_t j = i + 1; j < views().size(); ++j) {
            cv::Mat difference;
            cv::absdiff(views()[i].image, views()[j].image, difference);
            EXPECT_GT(cv::mean(difference)[1], 10.0) << i << ", " << j;
        }
    }
}

TEST(DemoViewsTest, NeighboursShareTwoFifthsOfTheirPixels) {
    std::vector<double> shares;
    for (std::size_t i = 0; i + 1 < views().size(); ++i) {
        shares.push_back(sharedPart(views()[i], views()[i + 1]));
        shares.push_back(sharedPart(views()[i + 1], views()[i]));
    }
    EXPECT_THAT(shares, Each(Ge(0.4)));
}

TEST(DemoViewsTest, NeighboursLookFromDirectionsTenToFifteenDegreesApart) {
    for (std::size_t i = 0; i + 1 < views().size(); ++i) {
        const Eigen::Vector2d here = views()[i].camera.centre.head<2>();
        const Eigen::Vector2d next = views()[i + 1].camera.centre.head<2>();
        const double degrees = std::acos(here.normalized().dot(next.normalized())) * 57.29577951308;
        EXPECT_GE(degrees, 10.0) << i;
        EXPECT_LE(degrees, 15.0) << i;
    }
}

TEST(DemoViewsTest, EveryRunGivesTheSameBits) {
    expectSameBits(renderDemoViews(kSmallScale), smallViews());
}

TEST(DemoViewsTest, AnyNumberOfThreadsGivesTheSameBits) {
    for (const int count : {1, 3}) {
        const test::NumberOfThreads threads(count);
        expectSameBits(renderDemoViews(kSmallScale), smallViews());
    }
}

// Panoramas.

const std::vector<DemoPanorama>& panoramas() {
    static const std::vector<DemoPanorama> rendered = renderDemoPanoramas(0.05);
    return rendered;
}

/// Looks along the z axis of the world, of which x points to the right and y down.
PanoramaCamera handMadePanoramaCamera(const Eigen::Vector3d& centre) {
    return {400, 200, Eigen::Matrix3d::Identity(), centre};
}

/// Everything that it sees is at one distance.
DemoPanorama ballAt(float distance, const Eigen::Vector3d& centre) {
    return {
        "", handMadePanoramaCamera(centre), {}, cv::Mat(200, 400, CV_32F, cv::Scalar(distance))};
}

TEST(PanoramaCameraTest, ProjectsHandComputedPoints) {
    const PanoramaCamera camera = handMadePanoramaCamera({1.0, 2.0, 3.0});
    const auto seen = [&](double x, double y, double z) {
        return camera.project(camera.centre + Eigen::Vector3d(x, y, z));
    };
    const auto expectAt = [](const Eigen::Vector2d& pixel, double x, double y) {
        EXPECT_LT((pixel - Eigen::Vector2d(x, y)).norm(), 1e-6) << pixel.transpose();
    };
    expectAt(seen(0, 0, 5), 200, 100);
    expectAt(seen(5, 0, 0), 300, 100);
    expectAt(seen(-5, 0, 0), 100, 100);
    expectAt(seen(3, 0, 3), 250, 100);
    expectAt(seen(0, 4, 4), 200, 150);
    expectAt(seen(0, -4, 4), 200, 50);
    EXPECT_NEAR(seen(0, 7, 0).y(), 200.0, 1e-6);
    EXPECT_NEAR(seen(0, -7, 0).y(), 0.0, 1e-6);
}

TEST(PanoramaCameraTest, SeamIsTheFirstColumn) {
    const PanoramaCamera camera = handMadePanoramaCamera({0.0, 0.0, 0.0});
    EXPECT_EQ(camera.project({0.0, 0.0, -1.0}).x(), 0.0);
    EXPECT_EQ(camera.project({-0.0, 0.0, -1.0}).x(), 0.0);
    EXPECT_LT(camera.project({1e-9, 0.0, -1.0}).x(), 400.0);
    EXPECT_GT(camera.project({1e-9, 0.0, -1.0}).x(), 399.9);
}

TEST(PanoramaCameraTest, PointsOnTheRayOfAPixelAreProjectedThere) {
    for (const DemoPanorama& panorama : panoramas()) {
        for (const Eigen::Vector2d& pixel :
             {Eigen::Vector2d(0.0, 25.0), Eigen::Vector2d(99.9, 1.5), Eigen::Vector2d(31.25, 49.0),
              Eigen::Vector2d(50.0, 25.0), Eigen::Vector2d(71.0, 4.0)}) {
            const Eigen::Vector3d ray = panorama.camera.ray(pixel);
            EXPECT_NEAR(ray.norm(), 1.0, 1e-12);
            EXPECT_LT((panorama.camera.project(panorama.camera.centre + 30.0 * ray) - pixel).norm(),
                      1e-9)
                << panorama.name;
        }
    }
}

TEST(PanoramaTransferTest, GivesTheDirectionFromTheOtherCamera) {
    // Five to the right of the first camera, and five ahead of the second.
    const auto direction =
        transfer(ballAt(5.0F, {0.0, 0.0, 0.0}), {300.0, 100.0}, ballAt(5.0F, {5.0, 0.0, -5.0}));
    ASSERT_TRUE(direction);
    EXPECT_LT((*direction - Eigen::Vector3d::UnitZ()).norm(), 1e-9);
}

TEST(PanoramaTransferTest, DirectionIsOfTheWorldHoweverTheOtherCameraIsTurned) {
    DemoPanorama turned = ballAt(5.0F, {5.0, 0.0, -5.0});
    turned.camera.rotation << 0, 1, 0, 0, 0, 1, 1, 0, 0;
    const auto direction = transfer(ballAt(5.0F, {0.0, 0.0, 0.0}), {300.0, 100.0}, turned);
    ASSERT_TRUE(direction);
    EXPECT_LT((*direction - Eigen::Vector3d::UnitZ()).norm(), 1e-9);
}

TEST(PanoramaTransferTest, HiddenPointsGiveNothing) {
    const DemoPanorama here = ballAt(10.0F, {0.0, 0.0, 0.0});
    for (const float distance : {9.6F, 10.4F}) {
        EXPECT_TRUE(transfer(here, {50.0, 70.0}, ballAt(distance, {0.0, 0.0, 0.0}))) << distance;
    }
    for (const float distance : {9.4F, 10.6F, 0.0F}) {
        EXPECT_FALSE(transfer(here, {50.0, 70.0}, ballAt(distance, {0.0, 0.0, 0.0}))) << distance;
    }
}

TEST(PanoramaTransferTest, SkyGivesNothing) {
    const DemoPanorama near = ballAt(10.0F, {0.0, 0.0, 0.0});
    const DemoPanorama sky = ballAt(kSky, {0.0, 0.0, 0.0});
    EXPECT_FALSE(transfer(sky, {50.0, 70.0}, near));
    EXPECT_FALSE(transfer(near, {50.0, 70.0}, sky));
    EXPECT_FALSE(transfer(sky, {50.0, 70.0}, sky));
}

TEST(PanoramaTransferTest, ColumnsGoOnAroundTheSeam) {
    DemoPanorama here = ballAt(10.0F, {0.0, 0.0, 0.0});
    here.distance.at<float>(100, 0) = 20.0F;
    EXPECT_TRUE(transfer(here, {399.75, 100.0}, ballAt(20.0F, {0.0, 0.0, 0.0})));
    EXPECT_TRUE(transfer(here, {399.25, 100.0}, ballAt(10.0F, {0.0, 0.0, 0.0})));
    // The pole lies below the last row.
    EXPECT_TRUE(transfer(here, {200.0, 200.0}, ballAt(10.0F, {0.0, 0.0, 0.0})));
}

TEST(DemoPanoramasTest, AreTwoOfTheAskedSizeFromThreeMetresApart) {
    ASSERT_EQ(panoramas().size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        const DemoPanorama& panorama = panoramas()[i];
        EXPECT_EQ(panorama.name, "panorama_" + std::to_string(i + 1) + ".png");
        EXPECT_EQ(panorama.image.size(), cv::Size(100, 50));
        EXPECT_EQ(panorama.image.type(), CV_8UC3);
        EXPECT_EQ(panorama.distance.size(), cv::Size(100, 50));
        EXPECT_EQ(panorama.distance.type(), CV_32F);
        EXPECT_EQ(panorama.camera.width, 100);
        EXPECT_EQ(panorama.camera.height, 50);
        const Eigen::Matrix3d& rotation = panorama.camera.rotation;
        EXPECT_TRUE((rotation * rotation.transpose()).isIdentity(1e-12));
        EXPECT_GT(rotation.determinant(), 0.0);
    }
    EXPECT_EQ((panoramas()[0].camera.centre - panoramas()[1].camera.centre).norm(), 3.0);
}

TEST(DemoPanoramasTest, TheFirstIsUprightAndTheSecondOnItsSide) {
    const Eigen::Vector3d up = Eigen::Vector3d::UnitZ();
    EXPECT_EQ(panoramas()[0].camera.rotation * up, -Eigen::Vector3d::UnitY());
    EXPECT_EQ(panoramas()[1].camera.rotation * up, Eigen::Vector3d::UnitX());
}

TEST(DemoPanoramasTest, SkyIsInfinitelyFar) {
    EXPECT_EQ(panoramas()[0].distance.at<float>(0, 0), kSky);
    EXPECT_EQ(panoramas()[0].distance.at<float>(0, 50), kSky);
    EXPECT_EQ(panoramas()[1].distance.at<float>(25, 75), kSky);
}

TEST(DemoPanoramasTest, DistanceOfTheGroundIsExact) {
    // The cameras are 9 and 8 metres above the market place. The last row of the first looks down
    // by all but a fiftieth of 180 degrees; the column of the second a quarter to the left,
    // straight.
    EXPECT_NEAR(panoramas()[0].distance.at<float>(49, 10), 9.0 / std::cos(std::acos(-1.0) / 50.0),
                1e-5);
    EXPECT_NEAR(panoramas()[1].distance.at<float>(25, 25), 8.0, 1e-5);
}

TEST(DemoPanoramasTest, SamePlacesHaveTheSameColours) {
    const auto colourOf = [](const DemoPanorama& panorama, const Eigen::Vector2d& place) {
        const int col = static_cast<int>(std::lround(place.x())) % panorama.camera.width;
        const int row =
            std::min(static_cast<int>(std::lround(place.y())), panorama.camera.height - 1);
        const cv::Vec3b colour = panorama.image.at<cv::Vec3b>(row, col);
        return Eigen::Vector3d(colour[0], colour[1], colour[2]);
    };
    for (const std::size_t i : {0U, 1U}) {
        const DemoPanorama& here = panoramas()[i];
        const DemoPanorama& there = panoramas()[1 - i];
        double same = 0.0;
        double other = 0.0;
        int count = 0;
        for (int y = 0; y < here.image.rows; ++y) {
            for (int x = 0; x < here.image.cols; ++x) {
                const auto direction = transfer(here, Eigen::Vector2d(x, y), there);
                if (!direction) continue;
                ++count;
                const Eigen::Vector3d colour = colourOf(here, Eigen::Vector2d(x, y));
                const auto difference = [&](const Eigen::Vector3d& where) {
                    const Eigen::Vector2d seen = there.camera.project(there.camera.centre + where);
                    return (colourOf(there, seen) - colour).norm();
                };
                same += difference(*direction);
                other += difference({-direction->x(), -direction->y(), direction->z()});
            }
        }
        EXPECT_GT(count, 1000) << here.name;
        EXPECT_LT(same / count, 0.6 * other / count) << here.name;
        EXPECT_LT(same / count, 35.0) << here.name;
    }
}

TEST(DemoPanoramasTest, EveryRunAndAnyNumberOfThreadsGivesTheSameBits) {
    for (const int count : {1, 3}) {
        const test::NumberOfThreads threads(count);
        const std::vector<DemoPanorama> again = renderDemoPanoramas(0.05);
        ASSERT_EQ(again.size(), 2U);
        for (std::size_t i = 0; i < 2; ++i) {
            EXPECT_TRUE(sameBits(again[i].image, panoramas()[i].image)) << count;
            EXPECT_TRUE(sameBits(again[i].distance, panoramas()[i].distance)) << count;
        }
    }
}

}  // namespace
}  // namespace marlo::app
