// SPDX-License-Identifier: BSD-3-Clause
// How long the way from keypoints to rays takes and how exact the rays are, beside OpenCV's
// undistortPoints: rays_bench [KEYPOINTS], 100000 if no number is given. One thread.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "libfeatures/base/keypoint_utils.h"
#include "support/cameras/calib_camera.h"
#include "support/cameras/camera_fisheye.h"
#include "support/cameras/camera_perspective.h"
#include "support/cameras/camera_spherical.h"
#include "support/log.h"
#include "utilities/machine.h"
#include "utilities/random.h"
#include "utilities/timing.h"

#if defined(FEATURES_BENCH_WITH_OPENCV)
#include <opencv2/calib3d.hpp>
#endif

namespace marlo::bench {
namespace {

constexpr int kWidth = 4000;
constexpr int kHeight = 3000;
constexpr int kRepeats = 15;

constexpr BrownConradyParameters kMild = {3000.0, 3000.0, 1999.5,  1499.5, -0.05,
                                          0.01,   0.0003, -0.0002, 0.0};
constexpr BrownConradyParameters kBarrel = {2900.5, 2895.25, 2011.25, 1488.5, -0.28,
                                            0.09,   0.0007,  -0.0004, -0.012};
constexpr BrownConradyParameters kPincushion = {2500.0, 2500.0, 1999.5, 1499.5, 0.35,
                                                0.2,    -0.003, 0.0025, 0.05};
constexpr FisheyeParameters kFisheye = {1700.5,  1699.75, 2011.25, 1488.5,
                                        -0.0126, 0.0041,  -0.0035, 0.0005};

std::vector<Keypoint> someKeypoints(std::size_t count) {
    Random random(7);
    std::vector<Keypoint> keypoints;
    keypoints.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        keypoints.emplace_back(kWidth * random.next(), kHeight * random.next());
    }
    return keypoints;
}

void print(const std::string& name, double nanoseconds, double ofLibrary, double error) {
    std::printf("%-44s %8.1f ns  %6.2f  %9.1e px\n", name.c_str(), nanoseconds,
                nanoseconds / ofLibrary, error);
}

// The time of this library for one keypoint, in nanoseconds.
double measureLibrary(const std::string& name, const std::vector<Keypoint>& keypoints,
                      const AbstractCamera& internals) {
    const auto camera = std::make_shared<CalibCamera>(internals);
    std::vector<Eigen::Vector3d> rays;
    const double seconds =
        leastSecondsOf(kRepeats, [&] { keypoint::keypointsToHomPoints(keypoints, camera, rays); });
    double error = 0.0;
    for (std::size_t i = 0; i < keypoints.size(); ++i) {
        Eigen::Vector2d pixel;
        transform(*camera, rays[i], pixel);
        const Eigen::Vector2d wanted = keypoint2p2(keypoints[i]).cast<double>();
        error = std::max(error, internals.pixelDifference(pixel, wanted).norm());
    }
    const double nanoseconds = 1e9 * seconds / static_cast<double>(keypoints.size());
    print(name, nanoseconds, nanoseconds, error);
    return nanoseconds;
}

#if defined(FEATURES_BENCH_WITH_OPENCV)
cv::Matx33d matrixOf(const AbstractCamera& camera) {
    const Eigen::Matrix3d k = camera.calibrationMatrix();
    return {k(0, 0), 0.0, k(0, 2), 0.0, k(1, 1), k(1, 2), 0.0, 0.0, 1.0};
}

// `undistort(pixels, points)` is one of OpenCV's functions.
template <typename Undistort>
void measureOpenCv(const std::string& name, const std::vector<Keypoint>& keypoints,
                   const AbstractCamera& camera, double ofLibrary, const Undistort& undistort) {
    std::vector<cv::Point2d> pixels;
    for (const Keypoint& keypoint : keypoints) pixels.emplace_back(keypoint.x, keypoint.y);
    std::vector<cv::Point2d> points;
    const double seconds = leastSecondsOf(kRepeats, [&] { undistort(pixels, points); });
    double error = 0.0;
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        Eigen::Vector2d pixel;
        camera.project({points[i].x, points[i].y, 1.0}, pixel);
        error = std::max(error, std::hypot(pixel.x() - pixels[i].x, pixel.y() - pixels[i].y));
    }
    print(name, 1e9 * seconds / static_cast<double>(keypoints.size()), ofLibrary, error);
}

void measurePerspective(const std::string& name, const std::vector<Keypoint>& keypoints,
                        const BrownConradyParameters& p) {
    const CameraPerspective camera(kWidth, kHeight, p);
    const double ofLibrary = measureLibrary(name, keypoints, camera);
    const cv::Vec<double, 5> distortion(p.k1, p.k2, p.p1, p.p2, p.k3);
    using Points = std::vector<cv::Point2d>;
    measureOpenCv("  OpenCV, 5 iterations", keypoints, camera, ofLibrary,
                  [&](const Points& in, Points& out) {
                      cv::undistortPoints(in, out, matrixOf(camera), distortion);
                  });
    measureOpenCv(
        "  OpenCV, to 1e-9 px", keypoints, camera, ofLibrary, [&](const Points& in, Points& out) {
            using cv::TermCriteria;
            cv::undistortPoints(in, out, matrixOf(camera), distortion, cv::noArray(), cv::noArray(),
                                TermCriteria(TermCriteria::COUNT | TermCriteria::EPS, 1000, 1e-9));
        });
}

void measureFisheye(const std::string& name, const std::vector<Keypoint>& keypoints,
                    const FisheyeParameters& p) {
    const CameraFisheye camera(kWidth, kHeight, p);
    const double ofLibrary = measureLibrary(name, keypoints, camera);
    measureOpenCv("  OpenCV, fisheye", keypoints, camera, ofLibrary,
                  [&](const std::vector<cv::Point2d>& in, std::vector<cv::Point2d>& out) {
                      cv::fisheye::undistortPoints(in, out, matrixOf(camera),
                                                   cv::Vec4d(p.k1, p.k2, p.k3, p.k4));
                  });
}
#else
void measurePerspective(const std::string& name, const std::vector<Keypoint>& keypoints,
                        const BrownConradyParameters& p) {
    measureLibrary(name, keypoints, CameraPerspective(kWidth, kHeight, p));
}

void measureFisheye(const std::string& name, const std::vector<Keypoint>& keypoints,
                    const FisheyeParameters& p) {
    measureLibrary(name, keypoints, CameraFisheye(kWidth, kHeight, p));
}
#endif

void measure(std::size_t count) {
    const std::vector<Keypoint> keypoints = someKeypoints(count);
    std::printf("%zu keypoints, %d x %d\n%-44s %11s  %6s  %12s\n", count, kWidth, kHeight, "",
                "a keypoint", "ratio", "worst return");
    measurePerspective("perspective, no distortion", keypoints, {3000.0, 3000.0, 1999.5, 1499.5});
    measurePerspective("perspective, mild", keypoints, kMild);
    measurePerspective("perspective, strong barrel", keypoints, kBarrel);
    measurePerspective("perspective, strong pincushion", keypoints, kPincushion);
    measureFisheye("fisheye", keypoints, kFisheye);
    measureLibrary("spherical", keypoints, CameraSpherical(kWidth, kHeight));
}

}  // namespace
}  // namespace marlo::bench

int main(int argc, char** argv) {
    marlo::log::defaultLogSource().setSink([](const marlo::log::Line&) {});
    std::printf("%s, %s %s\n", marlo::bench::processorName().c_str(),
                marlo::bench::compilerName().c_str(), marlo::bench::compilerFlags().c_str());
#if defined(FEATURES_BENCH_WITH_OPENCV)
    cv::setNumThreads(1);
#endif
    marlo::bench::measure(argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 100000);
    return 0;
}
