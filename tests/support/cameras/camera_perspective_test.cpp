// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/camera_perspective.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>

#include "references/camera_reference.h"
#include "utilities/camera_checks.h"

namespace marlo {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;
using test::randomBetween;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kHalfPi = 1.5707963267948966;

// fx, fy, cx, cy, k1, k2, p1, p2, k3
constexpr BrownConradyParameters kPinhole = {3000.0, 2990.0, 1999.5, 1499.5};
constexpr BrownConradyParameters kBarrel = {2900.5, 2895.25, 2011.25, 1488.5, -0.28,
                                            0.09,   0.0007,  -0.0004, -0.012};
constexpr BrownConradyParameters kPincushion = {1500.0, 1480.0, 960.0,  540.5, 0.35,
                                                0.2,    -0.003, 0.0025, 0.05};

CameraPerspective barrel() {
    return {4000, 3000, kBarrel};
}

CameraPerspective pincushion() {
    return {1920, 1080, kPincushion};
}

struct Seen {
    Vector3d direction;
    Vector2d pixel;
};

void expectSeen(const AbstractCamera& camera, const std::vector<Seen>& cases) {
    for (const Seen& seen : cases) {
        Vector2d pixel;
        Vector3d ray;
        ASSERT_TRUE(camera.project(seen.direction, pixel)) << seen.direction.transpose();
        EXPECT_LT((pixel - seen.pixel).norm(), 1e-9) << seen.direction.transpose();
        ASSERT_TRUE(camera.unproject(seen.pixel, ray)) << seen.pixel.transpose();
        EXPECT_LT((ray - seen.direction.normalized()).norm(), 1e-13) << seen.direction.transpose();
    }
}

// The values are those of OpenCV 4.6, projectPoints().
TEST(CameraPerspectiveTest, AgreesWithOpenCvOnBarrelDistortion) {
    expectSeen(barrel(), {{{0.0, 0.0, 1.0}, {2011.25, 1488.5}},
                          {{0.1, -0.2, 1.0}, {2297.141698175000, 917.737074075000}},
                          {{-0.65, -0.5, 1.0}, {410.633205809454, 261.446936538961}},
                          {{0.69, 0.52, 1.0}, {3684.144052464570, 2749.114220373623}},
                          {{-3.0, 2.5, 5.0}, {511.891237711600, 2736.351632433500}},
                          {{0.02, 0.4, 0.5}, {2109.739745830788, 3470.890577180047}}});
}

TEST(CameraPerspectiveTest, AgreesWithOpenCvOnPincushionDistortion) {
    expectSeen(pincushion(), {{{0.0, 0.0, 1.0}, {960.0, 540.5}},
                              {{0.1, -0.2, 1.0}, {1113.143437500000, 238.444950000000}},
                              {{-0.65, -0.5, 1.0}, {-344.741907246094, -454.665591140625}},
                              {{0.69, 0.52, 1.0}, {2405.441642703094, 1609.898089975170}},
                              {{-3.0, 2.5, 5.0}, {-201.654645000000, 1494.810697000000}},
                              {{0.02, 0.4, 0.5}, {1041.335751717888, 2095.198396566323}}});
}

// fx 1, all else 0 but k1 = 0.5: (3, 4) / 10 has r^2 = 1/4 and is moved by a factor of 1.125.
TEST(CameraPerspectiveTest, FollowsItsFormula) {
    const CameraPerspective camera(10, 10, {1.0, 2.0, 5.0, 6.0, 0.5});
    Vector2d pixel;
    ASSERT_TRUE(camera.project({3.0, 4.0, 10.0}, pixel));
    EXPECT_DOUBLE_EQ(pixel.x(), 5.0 + 0.3 * 1.125);
    EXPECT_DOUBLE_EQ(pixel.y(), 6.0 + 2.0 * 0.4 * 1.125);
}

TEST(CameraPerspectiveTest, WithoutDistortionRaysAreThoseOfAPinhole) {
    const CameraPerspective camera(4000, 3000, kPinhole);
    Vector3d ray;
    ASSERT_TRUE(camera.unproject({1999.5, 1499.5}, ray));
    EXPECT_EQ(ray, Vector3d(0.0, 0.0, 1.0));
    ASSERT_TRUE(camera.unproject({1999.5 + 3000.0 * 0.75, 1499.5}, ray));
    EXPECT_LT((ray - Vector3d(0.6, 0.0, 0.8)).norm(), 1e-15);  // right of the middle: +x
    ASSERT_TRUE(camera.unproject({1999.5, 1499.5 + 2990.0 * 0.75}, ray));
    EXPECT_LT((ray - Vector3d(0.0, 0.6, 0.8)).norm(), 1e-15);  // below it: +y
}

TEST(CameraPerspectiveTest, TheLengthOfADirectionDoesNotMatter) {
    Vector2d once;
    Vector2d twice;
    ASSERT_TRUE(barrel().project({0.1, -0.2, 1.0}, once));
    ASSERT_TRUE(barrel().project({0.1 * 1024.0, -0.2 * 1024.0, 1024.0}, twice));
    EXPECT_EQ(once, twice);
}

TEST(CameraPerspectiveTest, PixelsComeBackOverTheWholeImage) {
    EXPECT_LT(test::largestRoundTrip(barrel(), 50), 1e-9);
    EXPECT_LT(test::largestRoundTrip(pincushion(), 30), 1e-9);
    EXPECT_LT(test::largestRoundTrip(CameraPerspective(4000, 3000, kPinhole), 200), 1e-9);
}

// A lens that shows something at every pixel.
CameraPerspective randomCamera(std::mt19937& generator) {
    for (;;) {
        BrownConradyParameters p;
        p.fx = randomBetween(generator, 500.0, 2000.0);
        p.fy = p.fx * randomBetween(generator, 0.98, 1.02);
        p.cx = randomBetween(generator, 470.0, 530.0);
        p.cy = randomBetween(generator, 350.0, 400.0);
        p.k1 = randomBetween(generator, -0.4, 0.4);
        p.k2 = randomBetween(generator, -0.2, 0.3);
        p.k3 = randomBetween(generator, -0.1, 0.1);
        p.p1 = randomBetween(generator, -0.005, 0.005);
        p.p2 = randomBetween(generator, -0.005, 0.005);
        const CameraPerspective camera(1000, 750, p);
        Vector3d ray;
        if (camera.unproject({0.0, 0.0}, ray) && camera.unproject({999.0, 0.0}, ray) &&
            camera.unproject({0.0, 749.0}, ray) && camera.unproject({999.0, 749.0}, ray)) {
            return camera;
        }
    }
}

// A lens that distorts the corners by 10 or 30 %, at 2500 pixels from the centre, however long it
// is.
TEST(CameraPerspectiveTest, PixelsOfLongLensesComeBack) {
    for (const double focalLength : {1e4, 1e5, 1e7}) {
        const double corner = 2500.0 / focalLength;
        for (const double distortion : {-0.1, 0.3}) {
            const double k1 = distortion / (corner * corner);
            const CameraPerspective camera(4000, 3000,
                                           {focalLength, focalLength, 1999.5, 1499.5, k1});
            EXPECT_LT(test::largestRoundTrip(camera, 250), 1e-8) << focalLength;
        }
    }
}

TEST(CameraPerspectiveTest, PixelsOfRandomCamerasComeBack) {
    std::mt19937 generator(1);
    for (int i = 0; i < 40; ++i) {
        EXPECT_LT(test::largestRoundTrip(randomCamera(generator), 25), 1e-9) << i;
    }
}

TEST(CameraPerspectiveTest, DirectionsOfRandomCamerasComeBack) {
    std::mt19937 generator(2);
    for (int i = 0; i < 100; ++i) {
        const CameraPerspective camera = randomCamera(generator);
        const std::vector<double>& v = camera.parameters();
        const BrownConradyParameters p = {v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]};
        for (int k = 0; k < 20; ++k) {
            const Vector3d direction =
                test::randomDirection(generator, std::min(0.95 * camera.maxAngle(), 1.2));
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

TEST(CameraPerspectiveTest, WhatIsNotSeenHasNoDerivatives) {
    const CameraPerspective camera(100, 100, {1.0, 1.0, 0.0, 0.0, 1e300});
    const Vector3d direction{1e10, 0.0, 1.0};
    Vector2d pixel;
    double derivatives[2 * 9];
    ASSERT_FALSE(camera.project(direction, pixel));
    EXPECT_FALSE(camera.parameterJacobian(direction, derivatives));
    EXPECT_TRUE(std::isnan(derivatives[0]));
}

TEST(CameraPerspectiveTest, DerivativesAgreeWithDifferences) {
    std::mt19937 generator(3);
    for (int i = 0; i < 100; ++i) {
        const CameraPerspective camera = randomCamera(generator);
        const Vector3d direction =
            3.0 * test::randomDirection(generator, std::min(0.8 * camera.maxAngle(), 1.0));
        EXPECT_LT(test::largestJacobianError(camera, direction), 1e-8) << i;
    }
    EXPECT_LT(test::largestJacobianError(barrel(), {0.0, 0.0, 1.0}), 1e-8);
}

// r - r^3 / 3: folds at r = 1, which is seen 2/3 focal lengths from the middle.
TEST(CameraPerspectiveTest, SeesNothingBeyondTheFold) {
    const CameraPerspective camera(400, 400, {300.0, 300.0, 200.0, 200.0, -1.0 / 3.0});
    EXPECT_DOUBLE_EQ(camera.foldRadius(), 1.0);
    EXPECT_DOUBLE_EQ(camera.maxAngle(), 0.5 * kHalfPi);
    Vector2d pixel;
    Vector3d ray;
    EXPECT_TRUE(camera.project({0.0, 0.999, 1.0}, pixel));
    EXPECT_FALSE(camera.project({0.0, 1.001, 1.0}, pixel));
    EXPECT_TRUE(pixel.array().isNaN().all());
    EXPECT_TRUE(camera.unproject({200.0, 399.9}, ray));
    EXPECT_LT(ray.y(), ray.z());
    EXPECT_FALSE(camera.unproject({200.0, 400.1}, ray));
    EXPECT_TRUE(ray.array().isNaN().all());
    // Seen at the same pixel as (0, r, 1) with r below 1.
    EXPECT_FALSE(camera.project({0.0, 1.2, 1.0}, pixel));
    ASSERT_TRUE(camera.unproject({200.0, 200.0 + 300.0 * (1.2 - 1.2 * 1.2 * 1.2 / 3.0)}, ray));
    EXPECT_LT(ray.y() / ray.z(), 1.0);
}

TEST(CameraPerspectiveTest, SeesNothingBesideAndBehind) {
    Vector2d pixel;
    Eigen::Matrix<double, 2, 3> jacobian;
    double derivatives[18];
    const CameraPerspective camera(4000, 3000, kPinhole);
    EXPECT_EQ(camera.maxAngle(), kHalfPi);
    for (const Vector3d& direction :
         {Vector3d(0.0, 0.0, -1.0), Vector3d(0.1, 0.1, -1.0), Vector3d(1.0, 0.0, 0.0),
          Vector3d(0.0, 0.0, 0.0), Vector3d(kNaN, 0.0, 1.0), Vector3d(0.0, kNaN, 1.0),
          Vector3d(0.0, 0.0, kNaN), Vector3d(kInfinity, 0.0, 1.0),
          Vector3d(kInfinity, 0.0, kInfinity)}) {
        pixel.setZero();
        jacobian.setZero();
        std::fill(std::begin(derivatives), std::end(derivatives), 0.0);
        EXPECT_FALSE(camera.project(direction, pixel)) << direction.transpose();
        EXPECT_TRUE(pixel.array().isNaN().all());
        EXPECT_FALSE(camera.projectionJacobian(direction, jacobian));
        EXPECT_TRUE(jacobian.array().isNaN().all());
        EXPECT_FALSE(camera.parameterJacobian(direction, derivatives));
        for (const double derivative : derivatives) EXPECT_TRUE(std::isnan(derivative));
    }
}

TEST(CameraPerspectiveTest, PixelsThatAreNotFiniteHaveNoRay) {
    for (const Vector2d& pixel : {Vector2d(kNaN, 1.0), Vector2d(1.0, kNaN),
                                  Vector2d(kInfinity, 1.0), Vector2d(1.0, -kInfinity)}) {
        for (const BrownConradyParameters& p : {kPinhole, kBarrel, kPincushion}) {
            Vector3d ray(1.0, 2.0, 3.0);
            Eigen::Matrix<double, 3, 2> jacobian = Eigen::Matrix<double, 3, 2>::Zero();
            EXPECT_FALSE(CameraPerspective(100, 100, p).unproject(pixel, ray));
            EXPECT_TRUE(ray.array().isNaN().all());
            EXPECT_FALSE(CameraPerspective(100, 100, p).unprojectionJacobian(pixel, jacobian));
            EXPECT_TRUE(jacobian.array().isNaN().all());
        }
    }
}

TEST(CameraPerspectiveTest, PixelsOutsideOfTheImageHaveRays) {
    Vector3d ray;
    EXPECT_TRUE(barrel().unproject({-20.0, 3010.0}, ray));
    EXPECT_LT(ray.x(), 0.0);
    EXPECT_GT(ray.y(), 0.0);
}

TEST(CameraPerspectiveTest, PixelsPerRadianIsTheSlopeAwayFromTheAxis) {
    const CameraPerspective pinhole(100, 100, {900.0, 400.0, 0.0, 0.0});
    EXPECT_DOUBLE_EQ(pinhole.pixelsPerRadian(0.0), 600.0);  // the geometric mean
    EXPECT_DOUBLE_EQ(pinhole.pixelsPerRadian(std::atan(1.0)), 1200.0);
    EXPECT_TRUE(std::isnan(pinhole.pixelsPerRadian(kHalfPi)));
    EXPECT_TRUE(std::isnan(pinhole.pixelsPerRadian(-0.1)));
    EXPECT_TRUE(std::isnan(pinhole.pixelsPerRadian(kNaN)));
    const CameraPerspective camera(100, 100, {300.0, 300.0, 0.0, 0.0, -0.2, 0.05, 0.0, 0.0, -0.01});
    for (const double angle : {0.1, 0.4, 0.6}) {
        const auto at = [&](double a) {
            Vector2d pixel;
            camera.project({std::sin(a), 0.0, std::cos(a)}, pixel);
            return pixel.x();
        };
        EXPECT_NEAR(camera.pixelsPerRadian(angle), (at(angle + 1e-5) - at(angle - 1e-5)) / 2e-5,
                    1e-5);
        EXPECT_EQ(camera.getErrorMeasureScalingFactor(angle), camera.pixelsPerRadian(angle));
    }
}

std::string refusal(int width, int height, const BrownConradyParameters& p) {
    try {
        const CameraPerspective camera(width, height, p);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "accepted";
}

TEST(CameraPerspectiveTest, RefusesFocalLengthsThatAreNotPositive) {
    for (const double bad : {0.0, -0.0, -3000.0}) {
        BrownConradyParameters p = kPinhole;
        p.fx = bad;
        EXPECT_EQ(refusal(10, 10, p), "Invalid perspective camera: fx must be positive");
        p = kPinhole;
        p.fy = bad;
        EXPECT_EQ(refusal(10, 10, p), "Invalid perspective camera: fy must be positive");
    }
    EXPECT_EQ(refusal(10, 10, {}), "Invalid perspective camera: fx must be positive");
}

TEST(CameraPerspectiveTest, RefusesParametersThatAreNotFinite) {
    const char* const names[] = {"fx", "fy", "cx", "cy", "k1", "k2", "p1", "p2", "k3"};
    double BrownConradyParameters::*const fields[] = {
        &BrownConradyParameters::fx, &BrownConradyParameters::fy, &BrownConradyParameters::cx,
        &BrownConradyParameters::cy, &BrownConradyParameters::k1, &BrownConradyParameters::k2,
        &BrownConradyParameters::p1, &BrownConradyParameters::p2, &BrownConradyParameters::k3};
    for (std::size_t i = 0; i < std::size(names); ++i) {
        for (const double bad : {kNaN, kInfinity, -kInfinity}) {
            BrownConradyParameters p = kBarrel;
            p.*fields[i] = bad;
            EXPECT_EQ(refusal(10, 10, p),
                      "Invalid perspective camera: " + std::string(names[i]) + " must be finite");
        }
    }
}

TEST(CameraPerspectiveTest, RefusesAnImageWithoutPixels) {
    EXPECT_EQ(refusal(0, 10, kBarrel), "Invalid camera: image width and height must be positive");
    EXPECT_EQ(refusal(10, -1, kBarrel), "Invalid camera: image width and height must be positive");
}

TEST(CameraPerspectiveTest, ParametersHaveTheOrderOfTheFields) {
    const CameraPerspective camera(10, 20, {1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 8.0, 9.0});
    EXPECT_EQ(camera.parameters(), (std::vector<double>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    std::ostringstream out;
    camera.print(out);
    EXPECT_EQ(
        out.str(),
        "perspective 10 x 20, fx = 1, fy = 2, cx = 3, cy = 4, k1 = 5, k2 = 6, p1 = 7, p2 = 8, "
        "k3 = 9");
}

TEST(CameraPerspectiveTest, SettingParametersMakesThatCamera) {
    CameraPerspective camera(4000, 3000, kPinhole);
    camera.setParameters(barrel().parameters().data());
    EXPECT_TRUE(camera.equal(barrel()));
    EXPECT_EQ(camera.foldRadius(), barrel().foldRadius());
    Vector3d ray;
    Vector3d wanted;
    ASSERT_TRUE(camera.unproject({100.0, 100.0}, ray));
    ASSERT_TRUE(barrel().unproject({100.0, 100.0}, wanted));
    EXPECT_EQ(ray, wanted);
}

TEST(CameraPerspectiveTest, SettingBadParametersChangesNothing) {
    CameraPerspective camera = barrel();
    std::vector<double> parameters = CameraPerspective(10, 10, kPinhole).parameters();
    parameters[8] = kNaN;
    EXPECT_THROW(camera.setParameters(parameters.data()), std::invalid_argument);
    EXPECT_TRUE(camera.equal(barrel()));
    EXPECT_EQ(camera.foldRadius(), barrel().foldRadius());
}

TEST(CameraPerspectiveTest, IsEqualToTheSameCameraOnly) {
    EXPECT_TRUE(barrel().equal(*barrel().clone()));
    EXPECT_FALSE(barrel().equal(pincushion()));
    EXPECT_FALSE(barrel().equal(CameraPerspective(4001, 3000, kBarrel)));
    EXPECT_FALSE(barrel().equal(CameraPerspective(4000, 3001, kBarrel)));
    BrownConradyParameters p = kBarrel;
    p.k3 = std::nextafter(p.k3, 1.0);
    EXPECT_FALSE(barrel().equal(CameraPerspective(4000, 3000, p)));
}

TEST(CameraPerspectiveTest, CalibrationMatrixIsThePinholeOnTheAxis) {
    Eigen::Matrix3d expected;
    expected << 2900.5, 0.0, 2011.25, 0.0, 2895.25, 1488.5, 0.0, 0.0, 1.0;
    EXPECT_EQ(barrel().calibrationMatrix(), expected);
    Eigen::Matrix<double, 2, 3> jacobian;
    ASSERT_TRUE(barrel().projectionJacobian({0.0, 0.0, 1.0}, jacobian));
    EXPECT_EQ(jacobian.leftCols<2>(), (expected.topLeftCorner<2, 2>()));
}

TEST(CameraPerspectiveTest, PixelDifferencesArePlain) {
    EXPECT_EQ(barrel().pixelDifference({3999.0, 5.0}, {1.0, 7.0}), Vector2d(3998.0, -2.0));
}

TEST(CameraPerspectiveTest, ItsBinaryFormIsSizeAndParameters) {
    BinWriter writer;
    barrel().writeBin(writer);
    ASSERT_EQ(writer.buffer().size(), 12U + 9U * 8U);
    BinReader fields(writer.buffer());
    EXPECT_EQ(fields.read<std::int32_t>(), 4000);
    EXPECT_EQ(fields.read<std::int32_t>(), 3000);
    EXPECT_EQ(fields.read<std::uint32_t>(), 9U);
    EXPECT_EQ(fields.read<double>(), 2900.5);

    BinReader reader(writer.buffer());
    CameraPerspective camera(1, 1, kPinhole);
    camera.readBin(reader);
    EXPECT_TRUE(camera.equal(barrel()));
    EXPECT_EQ(camera.foldRadius(), barrel().foldRadius());
    EXPECT_EQ(reader.bytesLeft(), 0U);
}

TEST(CameraPerspectiveTest, ReadingBadBytesChangesNothing) {
    BinWriter writer;
    barrel().writeBin(writer);
    CameraPerspective camera = pincushion();
    const auto refusalOf = [&camera](std::vector<unsigned char> bytes) -> std::string {
        BinReader reader(bytes);
        try {
            camera.readBin(reader);
        } catch (const std::exception& error) {
            return error.what();
        }
        return "accepted";
    };
    std::vector<unsigned char> bytes = writer.buffer();
    bytes.pop_back();
    EXPECT_EQ(refusalOf(bytes), "file too small");
    bytes = writer.buffer();
    bytes[8] = 8;
    EXPECT_EQ(refusalOf(bytes), "The camera read is of another model");
    bytes = writer.buffer();
    std::fill_n(bytes.begin(), 4, static_cast<unsigned char>(0));
    EXPECT_EQ(refusalOf(bytes), "Invalid camera: image width and height must be positive");
    bytes = writer.buffer();
    std::fill_n(bytes.begin() + 12, 8, static_cast<unsigned char>(0));
    EXPECT_EQ(refusalOf(bytes), "Invalid perspective camera: fx must be positive");
    EXPECT_TRUE(camera.equal(pincushion()));
}

}  // namespace
}  // namespace marlo
