// SPDX-License-Identifier: BSD-3-Clause
#include "support/cameras/calib_camera.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>

#include "support/cameras/camera_externals_global_shutter.h"
#include "support/cameras/camera_fisheye.h"
#include "support/cameras/camera_perspective.h"
#include "support/cameras/camera_spherical.h"
#include "utilities/hand_written_cameras.h"

namespace marlo {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;
using test::PlainCamera;
using test::PlainExternals;

TEST(CalibCameraTest, StandsInTheFrameOfTheWorldUnlessToldOtherwise) {
    const CalibCamera camera(PlainCamera({1.0, 2.0}));
    EXPECT_TRUE(camera.internals().equal(PlainCamera({1.0, 2.0})));
    EXPECT_TRUE(camera.externals().equal(CameraExternalsGlobalShutter()));
}

TEST(CalibCameraTest, OwnsCopiesOfItsParts) {
    PlainCamera internals({1.0});
    RigidTransform3D pose;
    pose.translation = {1.0, 2.0, 3.0};
    PlainExternals externals(pose);
    const CalibCamera camera(internals, externals);
    internals = PlainCamera({2.0});
    externals = PlainExternals();
    EXPECT_TRUE(camera.internals().equal(PlainCamera({1.0})));
    EXPECT_TRUE(camera.externals().equal(PlainExternals(pose)));
}

TEST(CalibCameraTest, CopiesAreIndependent) {
    CalibCamera camera(PlainCamera({1.0}));
    const CalibCamera copy = camera;
    CalibCamera assigned(CameraSpherical(20, 10));
    assigned = camera;
    const double values[] = {5.0};
    camera.internals().setParameters(values);
    const double shift[] = {1.0, 2.0, 3.0};
    camera.externals().setParameters(shift, OptimExtType::Translation, false);
    for (const CalibCamera* const other : {&copy, &std::as_const(assigned)}) {
        EXPECT_TRUE(other->internals().equal(PlainCamera({1.0})));
        EXPECT_TRUE(other->externals().equal(CameraExternalsGlobalShutter()));
    }
    EXPECT_TRUE(camera.internals().equal(PlainCamera({5.0})));
}

TEST(CalibCameraTest, MayBeAssignedToItself) {
    CalibCamera camera(PlainCamera({1.0}));
    const CalibCamera& same = camera;
    camera = same;
    EXPECT_TRUE(camera.internals().equal(PlainCamera({1.0})));
}

TEST(TransformTest, TakesRaysOfEveryCameraToPixelsAndBack) {
    for (const auto& camera :
         {std::make_shared<CalibCamera>(CameraPerspective(40, 30, {30.0, 30.0, 19.5, 14.5, -0.1})),
          std::make_shared<CalibCamera>(CameraFisheye(40, 30, {10.0, 10.0, 19.5, 14.5, 0.01})),
          std::make_shared<CalibCamera>(CameraSpherical(40, 20))}) {
        Vector3d ray;
        Vector2d pixel;
        ASSERT_TRUE(inverseTransform(*camera, {12.25, 3.5}, ray));
        EXPECT_NEAR(ray.norm(), 1.0, 1e-15);
        ASSERT_TRUE(transform(*camera, ray, pixel));
        EXPECT_LT((pixel - Vector2d(12.25, 3.5)).norm(), 1e-12);
    }
}

TEST(TransformTest, ThePoseDoesNotEnter) {
    RigidTransform3D pose;
    pose.rotation << 0.0, -1.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0;
    pose.translation = {1.0, 2.0, 3.0};
    Vector3d ray;
    ASSERT_TRUE(
        inverseTransform(CalibCamera(PlainCamera(), PlainExternals(pose)), {2.0, 3.0}, ray));
    EXPECT_EQ(ray, Vector3d(2.0, 3.0, 1.0));
}

// Whatever a camera of the host's leaves in its output.
TEST(TransformTest, LeavesNaNWhereThereIsNoResult) {
    const CalibCamera camera{PlainCamera()};
    Vector3d ray(1.0, 2.0, 3.0);
    EXPECT_FALSE(inverseTransform(camera, {-1.0, 5.0}, ray));
    EXPECT_TRUE(ray.array().isNaN().all());
    Vector2d pixel(1.0, 2.0);
    EXPECT_FALSE(transform(camera, {0.0, 0.0, -1.0}, pixel));
    EXPECT_TRUE(pixel.array().isNaN().all());
}

}  // namespace
}  // namespace marlo
