// SPDX-License-Identifier: BSD-3-Clause
// The cameras beside OpenCV's on the same parameters, over whole images.
#include <gtest/gtest.h>

#include <opencv2/calib3d.hpp>
#include <vector>

#include "support/cameras/camera_fisheye.h"
#include "support/cameras/camera_perspective.h"

namespace marlo {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;

constexpr int kWidth = 4000;
constexpr int kHeight = 3000;

const BrownConradyParameters kBrownConrady[] = {
    {2900.5, 2895.25, 2011.25, 1488.5, -0.28, 0.09, 0.0007, -0.0004, -0.012},
    {2500.0, 2510.0, 1999.5, 1499.5, 0.25, -0.05, -0.003, 0.0025, 0.02},
    {4000.0, 4000.0, 1950.0, 1520.0, -0.4, 0.3, 0.0, 0.0, 0.0}};
const FisheyeParameters kFisheye[] = {
    {1300.5, 1299.75, 2011.25, 1488.5, -0.0126, 0.0041, -0.0035, 0.0005},
    {1700.0, 1700.0, 1999.5, 1499.5, 0.08, -0.02, 0.01, -0.001}};

template <typename Parameters>
cv::Matx33d matrixOf(const Parameters& p) {
    return {p.fx, 0.0, p.cx, 0.0, p.fy, p.cy, 0.0, 0.0, 1.0};
}

cv::Vec<double, 5> distortionOf(const BrownConradyParameters& p) {
    return {p.k1, p.k2, p.p1, p.p2, p.k3};
}

cv::Vec4d distortionOf(const FisheyeParameters& p) {
    return {p.k1, p.k2, p.k3, p.k4};
}

std::vector<cv::Point2d> gridOfPixels() {
    std::vector<cv::Point2d> pixels;
    for (int y = 0; y < kHeight; y += 100) {
        for (int x = 0; x < kWidth; x += 100) pixels.emplace_back(x, y);
    }
    return pixels;
}

// Of the rays of the grid as this library has them, those ahead of the camera.
template <typename Check>
void forEachRayAhead(const AbstractCamera& camera, const Check& check) {
    int seen = 0;
    for (const cv::Point2d& pixel : gridOfPixels()) {
        Vector3d ray;
        if (!camera.unproject({pixel.x, pixel.y}, ray) || ray.z() < 0.05) continue;
        check(pixel, ray);
        ++seen;
    }
    EXPECT_GT(seen, 1000);
}

TEST(OpenCvAgreementTest, ProjectPointsTakesPerspectiveRaysToTheirPixels) {
    for (const BrownConradyParameters& p : kBrownConrady) {
        forEachRayAhead(CameraPerspective(kWidth, kHeight, p), [&p](const cv::Point2d& pixel,
                                                                    const Vector3d& ray) {
            std::vector<cv::Point2d> projected;
            cv::projectPoints(std::vector<cv::Point3d>{{ray.x(), ray.y(), ray.z()}}, cv::Vec3d(),
                              cv::Vec3d(), matrixOf(p), distortionOf(p), projected);
            EXPECT_LT(cv::norm(projected[0] - pixel), 1e-8) << pixel;
        });
    }
}

TEST(OpenCvAgreementTest, UndistortPointsGivesThePerspectiveRays) {
    for (const BrownConradyParameters& p : kBrownConrady) {
        forEachRayAhead(CameraPerspective(kWidth, kHeight, p), [&p](const cv::Point2d& pixel,
                                                                    const Vector3d& ray) {
            std::vector<cv::Point2d> undistorted;
            cv::undistortPoints(std::vector<cv::Point2d>{pixel}, undistorted, matrixOf(p),
                                distortionOf(p), cv::noArray(), cv::noArray(),
                                cv::TermCriteria(cv::TermCriteria::COUNT, 500, 0.0));
            const Vector3d theirs(undistorted[0].x, undistorted[0].y, 1.0);
            EXPECT_LT((ray - theirs.normalized()).norm(), 1e-10) << pixel;
        });
    }
}

TEST(OpenCvAgreementTest, ProjectPointsTakesFisheyeRaysToTheirPixels) {
    for (const FisheyeParameters& p : kFisheye) {
        forEachRayAhead(
            CameraFisheye(kWidth, kHeight, p), [&p](const cv::Point2d& pixel, const Vector3d& ray) {
                std::vector<cv::Point2d> projected;
                cv::fisheye::projectPoints(std::vector<cv::Point3d>{{ray.x(), ray.y(), ray.z()}},
                                           projected, cv::Vec3d(), cv::Vec3d(), matrixOf(p),
                                           distortionOf(p));
                EXPECT_LT(cv::norm(projected[0] - pixel), 1e-8) << pixel;
            });
    }
}

TEST(OpenCvAgreementTest, UndistortPointsGivesTheFisheyeRays) {
    for (const FisheyeParameters& p : kFisheye) {
        forEachRayAhead(CameraFisheye(kWidth, kHeight, p),
                        [&p](const cv::Point2d& pixel, const Vector3d& ray) {
                            std::vector<cv::Point2d> undistorted;
                            cv::fisheye::undistortPoints(std::vector<cv::Point2d>{pixel},
                                                         undistorted, matrixOf(p), distortionOf(p));
                            const Vector3d theirs(undistorted[0].x, undistorted[0].y, 1.0);
                            EXPECT_LT((ray - theirs.normalized()).norm(), 1e-7) << pixel;
                        });
    }
}

}  // namespace
}  // namespace marlo
