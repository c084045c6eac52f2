// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/camera_externals.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>

#include "support/cameras/camera_externals_global_shutter.h"
#include "utilities/camera_checks.h"
#include "utilities/hand_written_cameras.h"

namespace marlo {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector2d;
using Eigen::Vector3d;
using test::PlainCamera;
using test::PlainExternals;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kPi = 3.141592653589793;

// A quarter turn about z: x goes to y.
RigidTransform3D quarterTurn() {
    RigidTransform3D transform;
    transform.rotation << 0.0, -1.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0;
    transform.translation = {1.0, 2.0, 3.0};
    return transform;
}

TEST(CameraExternalsTest, TheTranslationIsThatOfEveryRow) {
    const PlainExternals externals(quarterTurn());
    for (const double row : {0.0, -5.0, 1e6, kNaN}) {
        EXPECT_EQ(externals.translationRow(row), Vector3d(1.0, 2.0, 3.0));
    }
}

TEST(CameraExternalsTest, NothingMovesDuringTheReadout) {
    const PlainExternals externals(quarterTurn());
    EXPECT_EQ(externals.readoutDisplacement(), Vector3d(0.0, 0.0, 0.0));
    EXPECT_EQ(externals.computeLambda(PlainCamera(), {1.0, 2.0, 3.0}), 0.0);
}

TEST(CameraExternalsTest, CorrectionsForARollingShutterDoNothing) {
    const PlainExternals externals(quarterTurn());
    Vector2d pixel(5.0, 6.0);
    Vector3d point(7.0, 8.0, 9.0);
    externals.applyRollingShutterCorrection(pixel, 0.5);
    externals.applyRollingShutterCorrection(point, 0.5);
    externals.applyInverseRollingShutterCorrection(pixel, 0.5);
    externals.applyInverseRollingShutterCorrection(point, 0.5);
    EXPECT_EQ(pixel, Vector2d(5.0, 6.0));
    EXPECT_EQ(point, Vector3d(7.0, 8.0, 9.0));
}

TEST(CameraExternalsTest, ThePoseIsThatOfTheWorldAtFirst) {
    const PlainExternals externals;
    EXPECT_EQ(externals.worldToCamera().rotation, Matrix3d::Identity());
    EXPECT_EQ(externals.worldToCamera().translation, Vector3d::Zero());
    EXPECT_EQ(externals.rotationVector(), Vector3d::Zero());
}

TEST(CameraExternalsTest, SetsWhatTheTypeNames) {
    const double values[] = {0.0, 0.0, 0.5 * kPi, 10.0, 20.0, 30.0};
    PlainExternals externals;
    externals.setParameters(values, OptimExtType::RotationAndTranslation, false);
    EXPECT_LT((externals.worldToCamera().rotation - quarterTurn().rotation).norm(), 1e-15);
    EXPECT_EQ(externals.worldToCamera().translation, Vector3d(10.0, 20.0, 30.0));

    externals = PlainExternals(quarterTurn());
    externals.setParameters(values + 3, OptimExtType::Translation, false);
    EXPECT_EQ(externals.worldToCamera().rotation, quarterTurn().rotation);
    EXPECT_EQ(externals.worldToCamera().translation, Vector3d(10.0, 20.0, 30.0));

    const double none[] = {0.0, 0.0, 0.0};
    externals.setParameters(none, OptimExtType::Rotation, false);
    EXPECT_EQ(externals.worldToCamera().rotation, Matrix3d::Identity());
    EXPECT_EQ(externals.worldToCamera().translation, Vector3d(10.0, 20.0, 30.0));

    externals = PlainExternals(quarterTurn());
    externals.setParameters(nullptr, OptimExtType::None, false);
    EXPECT_TRUE(externals.equal(PlainExternals(quarterTurn())));
}

TEST(CameraExternalsTest, RelativeValuesMoveThePose) {
    const double values[] = {0.0, 0.0, 0.5 * kPi, 10.0, 20.0, 30.0};
    PlainExternals externals(quarterTurn());
    externals.setParameters(values, OptimExtType::RotationAndTranslation, true);
    const Vector3d halfTurn = externals.worldToCamera().rotation * Vector3d(1.0, 0.0, 0.0);
    EXPECT_LT((halfTurn - Vector3d(-1.0, 0.0, 0.0)).norm(), 1e-15);
    EXPECT_EQ(externals.worldToCamera().translation, Vector3d(11.0, 22.0, 33.0));

    // In the camera frame: after the quarter turn that is already there.
    const double aboutX[] = {0.5 * kPi, 0.0, 0.0};
    externals = PlainExternals(quarterTurn());
    externals.setParameters(aboutX, OptimExtType::Rotation, true);
    const Vector3d turned = externals.worldToCamera().rotation * Vector3d(1.0, 0.0, 0.0);
    EXPECT_LT((turned - Vector3d(0.0, 0.0, 1.0)).norm(), 1e-15);
}

TEST(CameraExternalsTest, ManySmallTurnsStayARotation) {
    PlainExternals externals;
    const double step[] = {1e-3, -2e-3, 3e-3};
    for (int i = 0; i < 20000; ++i) externals.setParameters(step, OptimExtType::Rotation, true);
    const Matrix3d& r = externals.worldToCamera().rotation;
    EXPECT_LT((r * r.transpose() - Matrix3d::Identity()).norm(), 1e-14);
}

TEST(CameraExternalsTest, ValuesThatAreNotFiniteChangeNothing) {
    for (const double bad : {kNaN, kInfinity}) {
        for (int i = 0; i < 6; ++i) {
            double values[] = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6};
            values[i] = bad;
            PlainExternals externals(quarterTurn());
            EXPECT_THROW(
                externals.setParameters(values, OptimExtType::RotationAndTranslation, true),
                std::invalid_argument);
            EXPECT_TRUE(externals.equal(PlainExternals(quarterTurn())));
        }
    }
}

TEST(CameraExternalsTest, RotationVectorsComeBack) {
    std::mt19937 generator(1);
    for (int i = 0; i < 1000; ++i) {
        const double angle = i < 10 ? std::pow(0.1, 2 * i) : kPi - std::pow(0.1, i % 8);
        const Vector3d vector = angle * test::randomDirection(generator, kPi).normalized();
        PlainExternals externals;
        externals.setParameters(vector.data(), OptimExtType::Rotation, false);
        EXPECT_LT((externals.rotationVector() - vector).norm(), 1e-14 + 1e-8 * (i >= 10)) << angle;
        PlainExternals again;
        const Vector3d back = externals.rotationVector();
        again.setParameters(back.data(), OptimExtType::Rotation, false);
        EXPECT_LT((again.worldToCamera().rotation - externals.worldToCamera().rotation).norm(),
                  1e-14);
    }
}

TEST(CameraExternalsTest, MovingTheWorldMovesTheCameraWithIt) {
    std::mt19937 generator(2);
    for (int i = 0; i < 100; ++i) {
        const auto randomTransform = [&generator] {
            PlainExternals pose;
            const Vector3d turn = 2.0 * test::randomDirection(generator, kPi);
            const Vector3d shift = 9.0 * test::randomDirection(generator, kPi);
            pose.setParameters(turn.data(), OptimExtType::Rotation, false);
            pose.setParameters(shift.data(), OptimExtType::Translation, false);
            return pose.worldToCamera();
        };
        const RigidTransform3D move = randomTransform();
        PlainExternals externals(randomTransform());
        const Vector3d point = 5.0 * test::randomDirection(generator, kPi);
        const Vector3d before = externals.toCamera(point);
        externals.applyTransform(move);
        const Vector3d after = externals.toCamera(move.rotation * point + move.translation);
        EXPECT_LT((after - before).norm(), 1e-13);
    }
}

std::string refusal(const RigidTransform3D& transform) {
    try {
        const PlainExternals externals(transform);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "accepted";
}

TEST(CameraExternalsTest, RefusesWhatIsNoPose) {
    const std::string notFinite = "Invalid camera pose: a value is not finite";
    const std::string notARotation = "Invalid camera pose: the matrix is not a rotation";
    RigidTransform3D transform = quarterTurn();
    transform.translation.y() = kNaN;
    EXPECT_EQ(refusal(transform), notFinite);
    transform = quarterTurn();
    transform.rotation(2, 1) = kInfinity;
    EXPECT_EQ(refusal(transform), notFinite);
    transform = quarterTurn();
    transform.rotation *= 1.001;
    EXPECT_EQ(refusal(transform), notARotation);
    transform.rotation.setZero();
    EXPECT_EQ(refusal(transform), notARotation);
    transform.rotation = -Matrix3d::Identity();  // a reflection
    EXPECT_EQ(refusal(transform), notARotation);

    PlainExternals externals(quarterTurn());
    EXPECT_THROW(externals.applyTransform(transform), std::invalid_argument);
    EXPECT_TRUE(externals.equal(PlainExternals(quarterTurn())));
}

TEST(CameraExternalsTest, TakesRoundingOutOfARotation) {
    PlainExternals exact;
    const double turn[] = {0.3, -0.8, 1.1};
    exact.setParameters(turn, OptimExtType::Rotation, false);
    RigidTransform3D rounded;
    rounded.rotation = exact.worldToCamera().rotation.cast<float>().cast<double>();
    const Matrix3d r = PlainExternals(rounded).worldToCamera().rotation;
    EXPECT_LT((r * r.transpose() - Matrix3d::Identity()).norm(), 1e-15);
    EXPECT_LT((r - exact.worldToCamera().rotation).norm(), 1e-7);
}

TEST(CameraExternalsTest, PrintsThePose) {
    std::ostringstream out;
    PlainExternals(quarterTurn()).print(out);
    EXPECT_EQ(out.str(), "rotation vector (0, 0, 1.5708), translation (1, 2, 3)");
}

TEST(CameraExternalsTest, IsEqualToTheSamePoseOfTheSameClassOnly) {
    const PlainExternals externals(quarterTurn());
    EXPECT_TRUE(externals.equal(*externals.clone()));
    EXPECT_FALSE(externals.equal(PlainExternals()));
    RigidTransform3D other = quarterTurn();
    other.translation.z() = std::nextafter(3.0, 4.0);
    EXPECT_FALSE(externals.equal(PlainExternals(other)));
    EXPECT_FALSE(externals.equal(CameraExternalsGlobalShutter(quarterTurn())));
}

TEST(OptimExtTypeTest, SaysWhatItChanges) {
    EXPECT_FALSE(changesRotation(OptimExtType::None) || changesTranslation(OptimExtType::None));
    EXPECT_TRUE(changesRotation(OptimExtType::Rotation));
    EXPECT_FALSE(changesTranslation(OptimExtType::Rotation));
    EXPECT_FALSE(changesRotation(OptimExtType::Translation));
    EXPECT_TRUE(changesTranslation(OptimExtType::Translation));
    EXPECT_TRUE(changesRotation(OptimExtType::RotationAndTranslation));
    EXPECT_TRUE(changesTranslation(OptimExtType::RotationAndTranslation));
}

}  // namespace
}  // namespace marlo
