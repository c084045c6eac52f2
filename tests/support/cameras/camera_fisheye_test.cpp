// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/camera_fisheye.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>

#include "references/camera_reference.h"
#include "support/cameras/camera_perspective.h"
#include "utilities/camera_checks.h"

namespace marlo {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;
using test::randomBetween;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kPi = 3.141592653589793;

constexpr FisheyeParameters kFisheye = {330.5,   329.75, 639.5,   482.25,
                                        -0.0126, 0.0041, -0.0035, 0.0005};
constexpr FisheyeParameters kEquidistant = {200.0, 200.0, 700.0, 650.0};

CameraFisheye fisheye() {
    return {1280, 960, kFisheye};
}

// The values are those of OpenCV 4.6, fisheye::projectPoints(), which is for directions ahead.
TEST(CameraFisheyeTest, AgreesWithOpenCv) {
    struct Seen {
        Vector3d direction;
        Vector2d pixel;
    };
    for (const Seen& seen : {Seen{{0.0, 0.0, 1.0}, {639.5, 482.25}},
                             Seen{{0.1, -0.2, 1.0}, {671.995596096437, 417.406291601815}},
                             Seen{{-3.0, 2.0, 1.0}, {289.955168293466, 714.751075653514}},
                             Seen{{1.0, 20.0, 1.0}, {663.692542715878, 965.002856917453}},
                             Seen{{-0.5, -0.25, 0.01}, {198.220141066051, 262.110766288246}},
                             Seen{{4.0, 0.0, 0.5}, {1102.782937992337, 482.25}}}) {
        Vector2d pixel;
        Vector3d ray;
        ASSERT_TRUE(fisheye().project(seen.direction, pixel)) << seen.direction.transpose();
        EXPECT_LT((pixel - seen.pixel).norm(), 1e-9) << seen.direction.transpose();
        ASSERT_TRUE(fisheye().unproject(seen.pixel, ray)) << seen.pixel.transpose();
        EXPECT_LT((ray - seen.direction.normalized()).norm(), 1e-13) << seen.direction.transpose();
    }
}

// Without distortion the distance from the middle is the angle: 3/4 pi, 135 degrees off the axis,
// lie behind the camera.
TEST(CameraFisheyeTest, SeesWhatLiesBehind) {
    const CameraFisheye camera(1400, 1300, kEquidistant);
    EXPECT_EQ(camera.maxAngle(), kPi);
    Vector2d pixel;
    ASSERT_TRUE(camera.project({1.0, 0.0, -1.0}, pixel));
    EXPECT_NEAR(pixel.x(), 700.0 + 200.0 * 0.75 * kPi, 1e-12);
    EXPECT_EQ(pixel.y(), 650.0);
    Vector3d ray;
    ASSERT_TRUE(camera.unproject({700.0, 650.0 - 200.0 * 0.75 * kPi}, ray));
    EXPECT_LT((ray - Vector3d(0.0, -std::sqrt(0.5), -std::sqrt(0.5))).norm(), 1e-15);
    ASSERT_TRUE(camera.unproject({700.0 + 199.9 * kPi, 650.0}, ray));
    EXPECT_LT(ray.z(), -0.99999);
}

TEST(CameraFisheyeTest, StraightAheadIsThePrincipalPointAndStraightBackIsNotSeen) {
    Vector2d pixel;
    Vector3d ray;
    const CameraFisheye camera(1400, 1300, kEquidistant);
    ASSERT_TRUE(camera.project({0.0, 0.0, 2.0}, pixel));
    EXPECT_EQ(pixel, Vector2d(700.0, 650.0));
    ASSERT_TRUE(camera.unproject({700.0, 650.0}, ray));
    EXPECT_EQ(ray, Vector3d(0.0, 0.0, 1.0));
    EXPECT_FALSE(camera.project({0.0, 0.0, -1.0}, pixel));
    EXPECT_TRUE(pixel.array().isNaN().all());
    EXPECT_FALSE(camera.unproject({700.0 + 200.1 * kPi, 650.0}, ray));
    EXPECT_TRUE(ray.array().isNaN().all());
}

// theta - theta^3 / 3 folds at 1; 1 + 5 k2 t^4 at 2; and so on.
TEST(CameraFisheyeTest, TheFieldOfViewEndsAtTheFold) {
    const auto maxAngle = [](double k1, double k2, double k3, double k4) {
        return CameraFisheye(10, 10, {1.0, 1.0, 0.0, 0.0, k1, k2, k3, k4}).maxAngle();
    };
    EXPECT_DOUBLE_EQ(maxAngle(-1.0 / 3.0, 0.0, 0.0, 0.0), 1.0);
    EXPECT_DOUBLE_EQ(maxAngle(0.0, -1.0 / 80.0, 0.0, 0.0), 2.0);
    EXPECT_DOUBLE_EQ(maxAngle(0.0, 0.0, -1.0 / 448.0, 0.0), 2.0);
    EXPECT_DOUBLE_EQ(maxAngle(0.0, 0.0, 0.0, -1.0 / 2304.0), 2.0);
    EXPECT_EQ(maxAngle(0.0, 0.0, 0.0, 0.0), kPi);
    EXPECT_EQ(maxAngle(-1.0 / 300.0, 0.0, 0.0, 0.0), kPi);  // folds at 10
    EXPECT_EQ(maxAngle(0.1, 0.1, 0.1, 0.1), kPi);
}

TEST(CameraFisheyeTest, SeesNothingBeyondTheFold) {
    const CameraFisheye camera(400, 400, {300.0, 300.0, 200.0, 200.0, -1.0 / 3.0});
    Vector2d pixel;
    Vector3d ray;
    EXPECT_TRUE(camera.project({std::sin(0.999), 0.0, std::cos(0.999)}, pixel));
    EXPECT_FALSE(camera.project({std::sin(1.001), 0.0, std::cos(1.001)}, pixel));
    EXPECT_TRUE(camera.unproject({399.9, 200.0}, ray));
    EXPECT_FALSE(camera.unproject({400.1, 200.0}, ray));
    EXPECT_TRUE(ray.array().isNaN().all());
    ASSERT_TRUE(camera.unproject({200.0 + 300.0 * (1.2 - 1.2 * 1.2 * 1.2 / 3.0), 200.0}, ray));
    EXPECT_LT(std::atan2(ray.x(), ray.z()), 1.0);
    for (const double below : {1e-3, 1e-6, 1e-9, 1e-12}) {
        ASSERT_TRUE(camera.unproject({200.0 + 300.0 * (2.0 / 3.0 - below), 200.0}, ray));
        EXPECT_NEAR(std::atan2(ray.x(), ray.z()), 1.0 - std::sqrt(below), below + 4e-7);
    }
}

TEST(CameraFisheyeTest, PixelsComeBackOverTheWholeImage) {
    EXPECT_LT(test::largestRoundTrip(fisheye(), 20), 1e-9);
}

CameraFisheye randomCamera(std::mt19937& generator) {
    for (;;) {
        FisheyeParameters p;
        p.fx = randomBetween(generator, 200.0, 600.0);
        p.fy = p.fx * randomBetween(generator, 0.98, 1.02);
        p.cx = randomBetween(generator, 470.0, 530.0);
        p.cy = randomBetween(generator, 350.0, 400.0);
        p.k1 = randomBetween(generator, -0.2, 0.2);
        p.k2 = randomBetween(generator, -0.05, 0.05);
        p.k3 = randomBetween(generator, -0.01, 0.01);
        p.k4 = randomBetween(generator, -0.002, 0.002);
        const CameraFisheye camera(1000, 750, p);
        Vector3d ray;
        if (camera.unproject({0.0, 0.0}, ray) && camera.unproject({999.0, 0.0}, ray) &&
            camera.unproject({0.0, 749.0}, ray) && camera.unproject({999.0, 749.0}, ray)) {
            return camera;
        }
    }
}

// A lens that distorts the corners by 10 or 30 %, at 2500 pixels from the centre, however long it
// is.
TEST(CameraFisheyeTest, PixelsOfLongLensesComeBack) {
    for (const double focalLength : {1e4, 1e5, 1e7}) {
        const double corner = 2500.0 / focalLength;
        for (const double distortion : {-0.1, 0.3}) {
            const double k1 = distortion / (corner * corner);
            const CameraFisheye camera(4000, 3000, {focalLength, focalLength, 1999.5, 1499.5, k1});
            EXPECT_LT(test::largestRoundTrip(camera, 250), 1e-8) << focalLength;
        }
    }
}

// With such a lens Newton's method alone would creep.
TEST(CameraFisheyeTest, PixelsOfAbsurdLensesHaveTheirRays) {
    const CameraFisheye camera(180, 100, {100.0, 100.0, 89.5, 49.5, 0.0, 0.0, 0.0, 1e50});
    const Vector2d pixel(90.0, 50.0);
    Vector3d ray;
    Vector2d back;
    ASSERT_TRUE(camera.unproject(pixel, ray));
    ASSERT_TRUE(camera.project(ray, back));
    EXPECT_LT((back - pixel).norm(), 1e-4);  // of the ray the last digits are missing
}

TEST(CameraFisheyeTest, PixelsOfRandomCamerasComeBack) {
    std::mt19937 generator(1);
    for (int i = 0; i < 40; ++i) {
        EXPECT_LT(test::largestRoundTrip(randomCamera(generator), 25), 1e-9) << i;
    }
}

TEST(CameraFisheyeTest, DirectionsOfRandomCamerasComeBack) {
    std::mt19937 generator(2);
    for (int i = 0; i < 100; ++i) {
        const CameraFisheye camera = randomCamera(generator);
        const std::vector<double>& v = camera.parameters();
        const FisheyeParameters p = {v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]};
        for (int k = 0; k < 20; ++k) {
            const Vector3d direction = test::randomDirection(generator, 0.95 * camera.maxAngle());
            Vector2d pixel;
            Vector3d ray;
            ASSERT_TRUE(camera.project(direction, pixel));
            const Vector2d slow = reference::slowProject(p, direction);
            EXPECT_LT((pixel - slow).norm(), 1e-12 * (1000.0 + slow.norm()));
            ASSERT_TRUE(camera.unproject(slow, ray));
            EXPECT_LT((ray - direction).norm(), 1e-11);
        }
    }
}

TEST(CameraFisheyeTest, WhatIsNotSeenHasNoDerivatives) {
    const CameraFisheye camera(100, 100, {1e300, 1e300, 0.0, 0.0, 1e300});
    const Vector3d direction{1.0, 0.0, 1.0};
    Vector2d pixel;
    double derivatives[2 * 9];
    ASSERT_FALSE(camera.project(direction, pixel));
    EXPECT_FALSE(camera.parameterJacobian(direction, derivatives));
    EXPECT_TRUE(std::isnan(derivatives[0]));
}

TEST(CameraFisheyeTest, DerivativesAgreeWithDifferences) {
    std::mt19937 generator(3);
    for (int i = 0; i < 100; ++i) {
        const CameraFisheye camera = randomCamera(generator);
        const Vector3d direction = 3.0 * test::randomDirection(generator, 0.8 * camera.maxAngle());
        EXPECT_LT(test::largestJacobianError(camera, direction), 1e-8) << i;
    }
    EXPECT_LT(test::largestJacobianError(fisheye(), {0.0, 0.0, 2.0}), 1e-8);
    EXPECT_LT(test::largestJacobianError(fisheye(), {1e-3, -1e-3, 2.0}), 1e-8);
    EXPECT_LT(test::largestJacobianError(fisheye(), {1.0, -2.0, 0.0}), 1e-8);
}

TEST(CameraFisheyeTest, DirectionsThatAreNoneAreNotSeen) {
    Eigen::Matrix<double, 2, 3> jacobian;
    double derivatives[16];
    for (const Vector3d& direction :
         {Vector3d(0.0, 0.0, 0.0), Vector3d(kNaN, 0.0, 1.0), Vector3d(0.0, kNaN, 1.0),
          Vector3d(0.0, 0.0, kNaN), Vector3d(kInfinity, 0.0, 1.0), Vector3d(0.0, 0.0, kInfinity),
          Vector3d(0.0, 0.0, -1.0)}) {
        Vector2d pixel(1.0, 2.0);
        jacobian.setZero();
        std::fill(std::begin(derivatives), std::end(derivatives), 0.0);
        EXPECT_FALSE(fisheye().project(direction, pixel)) << direction.transpose();
        EXPECT_TRUE(pixel.array().isNaN().all());
        EXPECT_FALSE(fisheye().projectionJacobian(direction, jacobian));
        EXPECT_TRUE(jacobian.array().isNaN().all());
        EXPECT_FALSE(fisheye().parameterJacobian(direction, derivatives));
        for (const double derivative : derivatives) EXPECT_TRUE(std::isnan(derivative));
    }
}

TEST(CameraFisheyeTest, PixelsThatAreNotFiniteHaveNoRay) {
    for (const Vector2d& pixel :
         {Vector2d(kNaN, 1.0), Vector2d(1.0, kNaN), Vector2d(kInfinity, 1.0),
          Vector2d(1.0, -kInfinity), Vector2d(1e300, 1e300)}) {
        Vector3d ray(1.0, 2.0, 3.0);
        Eigen::Matrix<double, 3, 2> jacobian = Eigen::Matrix<double, 3, 2>::Zero();
        EXPECT_FALSE(fisheye().unproject(pixel, ray));
        EXPECT_TRUE(ray.array().isNaN().all());
        EXPECT_FALSE(fisheye().unprojectionJacobian(pixel, jacobian));
        EXPECT_TRUE(jacobian.array().isNaN().all());
    }
}

TEST(CameraFisheyeTest, PixelsPerRadianIsTheSlopeAwayFromTheAxis) {
    const CameraFisheye camera(10, 10, {900.0, 400.0, 0.0, 0.0, -0.01});
    EXPECT_DOUBLE_EQ(camera.pixelsPerRadian(0.0), 600.0);
    EXPECT_DOUBLE_EQ(camera.pixelsPerRadian(2.0), 600.0 * (1.0 - 0.03 * 4.0));
    EXPECT_EQ(camera.getErrorMeasureScalingFactor(2.0), camera.pixelsPerRadian(2.0));
    EXPECT_TRUE(std::isnan(camera.pixelsPerRadian(kPi)));
    EXPECT_TRUE(std::isnan(camera.pixelsPerRadian(-0.1)));
    EXPECT_TRUE(std::isnan(camera.pixelsPerRadian(kNaN)));
}

std::string refusal(int width, int height, const FisheyeParameters& p) {
    try {
        const CameraFisheye camera(width, height, p);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "accepted";
}

TEST(CameraFisheyeTest, RefusesBadParameters) {
    EXPECT_EQ(refusal(10, 10, {}), "Invalid fisheye camera: fx must be positive");
    EXPECT_EQ(refusal(10, 10, {1.0, -1.0}), "Invalid fisheye camera: fy must be positive");
    EXPECT_EQ(refusal(10, 10, {kNaN, 1.0}), "Invalid fisheye camera: fx must be finite");
    EXPECT_EQ(refusal(10, 10, {1.0, kInfinity}), "Invalid fisheye camera: fy must be finite");
    EXPECT_EQ(refusal(10, 10, {1.0, 1.0, kNaN}), "Invalid fisheye camera: cx must be finite");
    EXPECT_EQ(refusal(10, 10, {1.0, 1.0, 0.0, kNaN}), "Invalid fisheye camera: cy must be finite");
    for (int i = 0; i < 4; ++i) {
        double k[4] = {};
        k[i] = -kInfinity;
        EXPECT_EQ(refusal(10, 10, {1.0, 1.0, 0.0, 0.0, k[0], k[1], k[2], k[3]}),
                  "Invalid fisheye camera: k" + std::to_string(i + 1) + " must be finite");
    }
    EXPECT_EQ(refusal(10, 0, kFisheye), "Invalid camera: image width and height must be positive");
}

TEST(CameraFisheyeTest, ParametersHaveTheOrderOfTheFields) {
    const CameraFisheye camera(10, 20, {1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 8.0});
    EXPECT_EQ(camera.parameters(), (std::vector<double>{1, 2, 3, 4, 5, 6, 7, 8}));
    std::ostringstream out;
    camera.print(out);
    EXPECT_EQ(out.str(),
              "fisheye 10 x 20, fx = 1, fy = 2, cx = 3, cy = 4, k1 = 5, k2 = 6, k3 = 7, k4 = 8");
}

TEST(CameraFisheyeTest, SettingParametersMakesThatCameraOrChangesNothing) {
    CameraFisheye camera(1280, 960, kEquidistant);
    camera.setParameters(fisheye().parameters().data());
    EXPECT_TRUE(camera.equal(fisheye()));
    EXPECT_EQ(camera.maxAngle(), fisheye().maxAngle());
    std::vector<double> bad = CameraFisheye(1280, 960, kEquidistant).parameters();
    bad[1] = 0.0;
    EXPECT_THROW(camera.setParameters(bad.data()), std::invalid_argument);
    EXPECT_TRUE(camera.equal(fisheye()));
}

TEST(CameraFisheyeTest, IsEqualToTheSameCameraOnly) {
    EXPECT_TRUE(fisheye().equal(*fisheye().clone()));
    EXPECT_FALSE(fisheye().equal(CameraFisheye(1280, 960, kEquidistant)));
    EXPECT_FALSE(fisheye().equal(CameraFisheye(1281, 960, kFisheye)));
    EXPECT_FALSE(CameraFisheye(10, 10, {1.0, 1.0}).equal(CameraPerspective(10, 10, {1.0, 1.0})));
}

TEST(CameraFisheyeTest, CalibrationMatrixIsThePinholeOnTheAxis) {
    Eigen::Matrix3d expected;
    expected << 330.5, 0.0, 639.5, 0.0, 329.75, 482.25, 0.0, 0.0, 1.0;
    EXPECT_EQ(fisheye().calibrationMatrix(), expected);
}

TEST(CameraFisheyeTest, PixelDifferencesArePlain) {
    EXPECT_EQ(fisheye().pixelDifference({1279.0, 5.0}, {1.0, 7.0}), Vector2d(1278.0, -2.0));
}

TEST(CameraFisheyeTest, ItsBinaryFormComesBack) {
    BinWriter writer;
    fisheye().writeBin(writer);
    EXPECT_EQ(writer.buffer().size(), 12U + 8U * 8U);
    BinReader reader(writer.buffer());
    CameraFisheye camera(1, 1, kEquidistant);
    camera.readBin(reader);
    EXPECT_TRUE(camera.equal(fisheye()));
    EXPECT_EQ(camera.maxAngle(), fisheye().maxAngle());
}

}  // namespace
}  // namespace marlo
