// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/camera_spherical.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "utilities/camera_checks.h"

namespace marlo {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;
using test::randomBetween;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kPi = 3.141592653589793;

Vector2d pixelOf(const AbstractCamera& camera, const Vector3d& direction) {
    Vector2d pixel;
    EXPECT_TRUE(camera.project(direction, pixel)) << direction.transpose();
    return pixel;
}

Vector3d rayOf(const AbstractCamera& camera, const Vector2d& pixel) {
    Vector3d ray;
    EXPECT_TRUE(camera.unproject(pixel, ray)) << pixel.transpose();
    return ray;
}

// Ahead, right, left, back, below, above; all exact.
TEST(CameraSphericalTest, TheSixMainDirectionsAreExact) {
    for (const int width : {2000, 2001, 777}) {
        const CameraSpherical camera(width, 1000);
        const struct {
            Vector3d direction;
            Vector2d pixel;
        } cases[] = {
            {{0.0, 0.0, 1.0}, {0.5 * width, 500.0}},   {{1.0, 0.0, 0.0}, {0.75 * width, 500.0}},
            {{-1.0, 0.0, 0.0}, {0.25 * width, 500.0}}, {{0.0, 0.0, -1.0}, {0.0, 500.0}},
            {{0.0, 1.0, 0.0}, {0.5 * width, 1000.0}},  {{0.0, -1.0, 0.0}, {0.5 * width, 0.0}}};
        for (const auto& [direction, pixel] : cases) {
            EXPECT_EQ(pixelOf(camera, direction), pixel) << direction.transpose();
            EXPECT_EQ(pixelOf(camera, 3.0 * direction), pixel) << direction.transpose();
            EXPECT_EQ(rayOf(camera, pixel), direction) << pixel.transpose();
        }
    }
}

TEST(CameraSphericalTest, FollowsItsFormula) {
    const CameraSpherical camera(720, 360);  // a pixel a half degree
    const Vector2d pixel = pixelOf(camera, {1.0, std::sqrt(2.0), 1.0});
    EXPECT_NEAR(pixel.x(), 360.0 + 90.0, 1e-12);                        // 45 degrees to the right
    EXPECT_NEAR(pixel.y(), 180.0 + 90.0, 1e-12);                        // 45 degrees down
    const Vector3d ray = rayOf(camera, {360.0 - 60.0, 180.0 - 120.0});  // 30 left, 60 up
    EXPECT_NEAR(ray.x(), -0.25, 1e-15);
    EXPECT_NEAR(ray.y(), -std::sqrt(0.75), 1e-15);
    EXPECT_NEAR(ray.z(), 0.5 * std::sqrt(0.75), 1e-15);
}

TEST(CameraSphericalTest, EveryPixelOfThePoleRowsIsThePole) {
    const CameraSpherical camera(2000, 1000);
    for (const double x : {0.0, 1.0, 333.25, 500.0, 1999.0}) {
        EXPECT_EQ(rayOf(camera, {x, 0.0}), Vector3d(0.0, -1.0, 0.0)) << x;
        EXPECT_EQ(rayOf(camera, {x, 1000.0}), Vector3d(0.0, 1.0, 0.0)) << x;
    }
}

TEST(CameraSphericalTest, SignsOfZerosDoNotMoveAPole) {
    const CameraSpherical camera(2000, 1000);
    EXPECT_EQ(pixelOf(camera, {-0.0, 1.0, -0.0}), Vector2d(1000.0, 1000.0));
    EXPECT_EQ(pixelOf(camera, {0.0, -1.0, -0.0}), Vector2d(1000.0, 0.0));
}

TEST(CameraSphericalTest, TheSeamIsNoEdge) {
    const CameraSpherical camera(2000, 1000);
    EXPECT_EQ(rayOf(camera, {2000.0, 300.0}), rayOf(camera, {0.0, 300.0}));
    EXPECT_EQ(rayOf(camera, {-1.0, 300.0}), rayOf(camera, {1999.0, 300.0}));
    EXPECT_EQ(rayOf(camera, {2500.0, 300.0}), rayOf(camera, {500.0, 300.0}));
    EXPECT_EQ(rayOf(camera, {-20500.0, 300.0}), rayOf(camera, {1500.0, 300.0}));
    // From both sides: columns stay below the width.
    EXPECT_EQ(pixelOf(camera, {0.0, 0.0, -1.0}).x(), 0.0);
    EXPECT_EQ(pixelOf(camera, {-0.0, 0.0, -1.0}).x(), 0.0);
    EXPECT_NEAR(pixelOf(camera, {1e-9, 0.0, -1.0}).x(), 2000.0, 1e-6);
    EXPECT_LT(pixelOf(camera, {1e-9, 0.0, -1.0}).x(), 2000.0);
    EXPECT_EQ(pixelOf(camera, {1e-20, 0.0, -1.0}).x(), 0.0);
    EXPECT_NEAR(pixelOf(camera, {-1e-9, 0.0, -1.0}).x(), 0.0, 1e-6);
    EXPECT_GT(pixelOf(camera, {-1e-9, 0.0, -1.0}).x(), 0.0);
}

TEST(CameraSphericalTest, PixelDifferencesTakeTheShorterWayRound) {
    const CameraSpherical camera(2000, 1000);
    EXPECT_EQ(camera.pixelDifference({1999.0, 5.0}, {1.0, 7.0}), Vector2d(-2.0, -2.0));
    EXPECT_EQ(camera.pixelDifference({1.0, 7.0}, {1999.0, 5.0}), Vector2d(2.0, 2.0));
    EXPECT_EQ(camera.pixelDifference({900.0, 0.0}, {100.0, 1000.0}), Vector2d(800.0, -1000.0));
}

TEST(CameraSphericalTest, PixelsComeBackFromEveryRowBelowThePole) {
    EXPECT_LT(test::largestRoundTrip(CameraSpherical(2000, 1000), 25, 1), 1e-9);
    EXPECT_LT(test::largestRoundTrip(CameraSpherical(977, 1013), 20, 1), 1e-9);
}

TEST(CameraSphericalTest, DirectionsComeBack) {
    std::mt19937 generator(1);
    const CameraSpherical camera(8192, 4096);
    for (int i = 0; i < 2000; ++i) {
        const Vector3d direction = test::randomDirection(generator, kPi);
        EXPECT_LT((rayOf(camera, pixelOf(camera, direction)) - direction).norm(), 1e-14);
    }
}

TEST(CameraSphericalTest, DerivativesAgreeWithDifferences) {
    std::mt19937 generator(2);
    const CameraSpherical camera(2000, 1000);
    for (int i = 0; i < 100; ++i) {
        Vector3d direction = 3.0 * test::randomDirection(generator, kPi);
        if (std::hypot(direction.x(), direction.z()) < 0.5) direction.z() += 1.0;
        EXPECT_LT(test::largestJacobianError(camera, direction), 1e-8) << direction.transpose();
    }
    EXPECT_LT(test::largestJacobianError(camera, {0.0, 0.0, -1.0}), 1e-8);  // over the seam
}

TEST(CameraSphericalTest, ThereIsNoDerivativeAtThePoles) {
    const CameraSpherical camera(2000, 1000);
    Eigen::Matrix<double, 2, 3> jacobian = Eigen::Matrix<double, 2, 3>::Zero();
    EXPECT_FALSE(camera.projectionJacobian({0.0, 1.0, 0.0}, jacobian));
    EXPECT_TRUE(jacobian.array().isNaN().all());
    Eigen::Matrix<double, 3, 2> inverse = Eigen::Matrix<double, 3, 2>::Zero();
    EXPECT_FALSE(camera.unprojectionJacobian({10.0, 0.0}, inverse));
    EXPECT_TRUE(inverse.array().isNaN().all());
    EXPECT_TRUE(camera.parameterJacobian({0.0, 1.0, 0.0}, nullptr));  // of no parameters
}

TEST(CameraSphericalTest, RowsBeyondThePolesHaveNoRay) {
    const CameraSpherical camera(2000, 1000);
    for (const Vector2d& pixel :
         {Vector2d(10.0, -0.001), Vector2d(10.0, 1000.001), Vector2d(kNaN, 10.0),
          Vector2d(10.0, kNaN), Vector2d(kInfinity, 10.0), Vector2d(10.0, -kInfinity)}) {
        Vector3d ray(1.0, 2.0, 3.0);
        EXPECT_FALSE(camera.unproject(pixel, ray)) << pixel.transpose();
        EXPECT_TRUE(ray.array().isNaN().all());
    }
}

TEST(CameraSphericalTest, DirectionsThatAreNoneAreNotSeen) {
    const CameraSpherical camera(2000, 1000);
    for (const Vector3d& direction :
         {Vector3d(0.0, 0.0, 0.0), Vector3d(kNaN, 0.0, 1.0), Vector3d(0.0, kNaN, 1.0),
          Vector3d(0.0, 0.0, kNaN), Vector3d(kInfinity, 0.0, 1.0),
          Vector3d(0.0, -kInfinity, 0.0)}) {
        Vector2d pixel(1.0, 2.0);
        EXPECT_FALSE(camera.project(direction, pixel)) << direction.transpose();
        EXPECT_TRUE(pixel.array().isNaN().all());
        EXPECT_FALSE(camera.parameterJacobian(direction, nullptr));
    }
}

TEST(CameraSphericalTest, PixelsPerRadianIsTheSameEverywhere) {
    const CameraSpherical camera(2000, 1000);
    for (const double angle : {0.0, 1.0, kPi}) {
        EXPECT_DOUBLE_EQ(camera.pixelsPerRadian(angle), 1000.0 / kPi);
    }
    EXPECT_DOUBLE_EQ(CameraSpherical(1000, 2000).pixelsPerRadian(1.0), 1000.0 / kPi);
    EXPECT_EQ(camera.getErrorMeasureScalingFactor(1.0), camera.pixelsPerRadian(1.0));
    EXPECT_TRUE(std::isnan(camera.pixelsPerRadian(-0.1)));
    EXPECT_TRUE(std::isnan(camera.pixelsPerRadian(3.2)));
    EXPECT_TRUE(std::isnan(camera.pixelsPerRadian(kNaN)));
    EXPECT_EQ(camera.maxAngle(), kInfinity);
}

TEST(CameraSphericalTest, CalibrationMatrixIsThePinholeOnTheAxis) {
    const CameraSpherical camera(2000, 1100);
    const Eigen::Matrix3d matrix = camera.calibrationMatrix();
    Eigen::Matrix<double, 2, 3> jacobian;
    ASSERT_TRUE(camera.projectionJacobian({0.0, 0.0, 1.0}, jacobian));
    EXPECT_LT((matrix.topLeftCorner<2, 2>() - jacobian.leftCols<2>()).norm(), 1e-12);
    EXPECT_EQ(Vector2d(matrix.col(2).head<2>()), pixelOf(camera, {0.0, 0.0, 1.0}));
    EXPECT_EQ(matrix.row(2), Eigen::RowVector3d(0.0, 0.0, 1.0));
}

TEST(CameraSphericalTest, IsItsImageSizeAndNothingElse) {
    CameraSpherical camera(2000, 1000);
    EXPECT_TRUE(camera.parameters().empty());
    camera.setParameters(nullptr);
    EXPECT_TRUE(camera.equal(CameraSpherical(2000, 1000)));
    EXPECT_TRUE(camera.equal(*camera.clone()));
    EXPECT_FALSE(camera.equal(CameraSpherical(2000, 1001)));
    std::ostringstream out;
    camera.print(out);
    EXPECT_EQ(out.str(), "spherical 2000 x 1000");
    EXPECT_THROW(CameraSpherical(0, 1), std::invalid_argument);
    EXPECT_THROW(CameraSpherical(1, 0), std::invalid_argument);
}

TEST(CameraSphericalTest, ItsBinaryFormComesBack) {
    BinWriter writer;
    CameraSpherical(2000, 1000).writeBin(writer);
    EXPECT_EQ(writer.buffer().size(), 12U);
    BinReader reader(writer.buffer());
    CameraSpherical camera(1, 1);
    camera.readBin(reader);
    EXPECT_TRUE(camera.equal(CameraSpherical(2000, 1000)));
}

}  // namespace
}  // namespace marlo
