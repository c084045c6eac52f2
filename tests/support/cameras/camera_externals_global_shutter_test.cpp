// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/camera_externals_global_shutter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace marlo {
namespace {

using Eigen::Vector3d;

// A quarter turn about z: x goes to y.
RigidTransform3D quarterTurn() {
    RigidTransform3D transform;
    transform.rotation << 0.0, -1.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0;
    transform.translation = {1.0, 2.0, 3.0};
    return transform;
}

TEST(CameraExternalsGlobalShutterTest, TakesPointsToTheCameraAndBack) {
    const CameraExternalsGlobalShutter externals(quarterTurn());
    EXPECT_EQ(externals.toCamera({10.0, 20.0, 30.0}), Vector3d(-19.0, 12.0, 33.0));
    EXPECT_EQ(externals.toWorld({-19.0, 12.0, 33.0}), Vector3d(10.0, 20.0, 30.0));
}

TEST(CameraExternalsGlobalShutterTest, IsTheSameForEveryRow) {
    const CameraExternalsGlobalShutter externals(quarterTurn());
    EXPECT_FALSE(externals.hasRollingShutter());
    for (const double row : {0.0, 1000.0}) {
        EXPECT_EQ(externals.rotationRow(row), quarterTurn().rotation);
        EXPECT_EQ(externals.translationRow(row), Vector3d(1.0, 2.0, 3.0));
        EXPECT_EQ(externals.centreRow(row), Vector3d(-2.0, 1.0, -3.0));
        EXPECT_EQ(externals.toCamera(externals.centreRow(row)), Vector3d::Zero());
    }
}

TEST(CameraExternalsGlobalShutterTest, ParametersComeBack) {
    for (const auto& [type, count] :
         {std::pair(OptimExtType::None, 0U), std::pair(OptimExtType::Rotation, 3U),
          std::pair(OptimExtType::Translation, 3U),
          std::pair(OptimExtType::RotationAndTranslation, 6U)}) {
        CameraExternalsGlobalShutter externals;
        ASSERT_EQ(externals.numberOfParameters(type), count);
        const std::vector<double> values = {0.25, -0.5, 0.75, 4.0, 5.0, 6.0};
        externals.setParameters(values.data(), type, false);
        std::vector<double> back(count + 1, 9.0);
        externals.getParameters(back.data(), type);
        for (std::size_t i = 0; i < count; ++i) EXPECT_NEAR(back[i], values[i], 1e-15);
        EXPECT_EQ(back[count], 9.0);
    }
}

TEST(CameraExternalsGlobalShutterTest, DerivativesAgreeWithDifferences) {
    constexpr double kStep = 1e-4;
    const Vector3d world(10.0, 20.0, 30.0);
    for (const OptimExtType type : {OptimExtType::Rotation, OptimExtType::Translation,
                                    OptimExtType::RotationAndTranslation}) {
        const CameraExternalsGlobalShutter externals(quarterTurn());
        const std::size_t count = externals.numberOfParameters(type);
        std::vector<double> jacobian(3 * count);
        externals.pointJacobian(world, type, jacobian.data());
        for (std::size_t i = 0; i < count; ++i) {
            const auto moved = [&](double step) {
                CameraExternalsGlobalShutter other = externals;
                std::vector<double> values(count, 0.0);
                values[i] = step;
                other.setParameters(values.data(), type, true);
                return other.toCamera(world);
            };
            const Vector3d difference = (moved(kStep) - moved(-kStep)) / (2.0 * kStep);
            for (std::size_t row = 0; row < 3; ++row) {
                EXPECT_NEAR(jacobian[row * count + i], difference(static_cast<Eigen::Index>(row)),
                            1e-6);
            }
        }
    }
    CameraExternalsGlobalShutter().pointJacobian(world, OptimExtType::None, nullptr);
}

TEST(CameraExternalsGlobalShutterTest, ClonesAreIndependent) {
    CameraExternalsGlobalShutter externals(quarterTurn());
    const auto copy = externals.clone();
    EXPECT_TRUE(copy->equal(externals));
    const double shift[] = {1.0, 1.0, 1.0};
    externals.setParameters(shift, OptimExtType::Translation, true);
    EXPECT_FALSE(copy->equal(externals));
}

}  // namespace
}  // namespace marlo
