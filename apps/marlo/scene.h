// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

namespace marlo::app {

/// A camera without distortion. Pixels have their centres at integers.
struct PinholeCamera {
    int width = 0;
    int height = 0;
    double focalLength = 0.0;  ///< in pixels
    Eigen::Vector2d principalPoint = Eigen::Vector2d::Zero();
    /// From the world to the camera: x right, y down, z forward.
    Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity();
    Eigen::Vector3d centre = Eigen::Vector3d::Zero();

    /// How far in front of the camera a point of the world lies, along its z axis.
    [[nodiscard]] double depth(const Eigen::Vector3d& point) const;
    /// The pixel that shows a point of the world, perhaps outside of the image; nothing if the
    /// point is not in front of the camera.
    [[nodiscard]] std::optional<Eigen::Vector2d> project(const Eigen::Vector3d& point) const;
    /// The direction in the world that a pixel looks in, of unit length.
    [[nodiscard]] Eigen::Vector3d ray(const Eigen::Vector2d& pixel) const;
};

/// A camera that sees all around: its image is a full panorama in equirectangular form, with
/// longitude along the columns, latitude along the rows and the direction straight up in row 0.
/// Pixels have their centres at integers; column width / 2 and row height / 2 show straight ahead.
struct PanoramaCamera {
    int width = 0;  ///< twice the height
    int height = 0;
    /// From the world to the camera: x right, y down, z forward.
    Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity();
    Eigen::Vector3d centre = Eigen::Vector3d::Zero();

    /// The pixel that shows a point of the world: x in [0, width), y in [0, height].
    [[nodiscard]] Eigen::Vector2d project(const Eigen::Vector3d& point) const;
    /// The direction in the world that a pixel looks in, of unit length.
    [[nodiscard]] Eigen::Vector3d ray(const Eigen::Vector2d& pixel) const;
};

/// A picture of the demonstration, and all that there is to know about it.
struct DemoView {
    std::string name;  ///< of a file: "view_01.png"
    PinholeCamera camera;
    cv::Mat image;  ///< CV_8UC3: blue, green, red
    cv::Mat depth;  ///< CV_32F, at the centres of the pixels; infinity where there is only sky
};

/// Eight overlapping pictures of one town, 1200 x 900 pixels times `scale` (0.02 or more), made by
/// ray casting: the same bits on every run and for any number of threads. The cameras stand on an
/// arc, about 12 degrees from one to the next. One is turned about its optical axis by 60 degrees,
/// one has one and a half times the focal length, one is under- and one overexposed, and one is
/// noisy.
std::vector<DemoView> renderDemoViews(double scale = 1.0);

/// Where the surface that a pixel of one view shows appears in another; nothing if it is hidden
/// there or outside of the image, and nothing for sky and for pixels outside of the first.
/// Hidden is what lies at another depth, by more than 1 %, than what the other view shows there.
std::optional<Eigen::Vector2d> transfer(const DemoView& from, const Eigen::Vector2d& pixel,
                                        const DemoView& to);

/// A panorama of the demonstration.
struct DemoPanorama {
    std::string name;  ///< of a file: "panorama_1.png"
    PanoramaCamera camera;
    cv::Mat image;     ///< CV_8UC3: blue, green, red
    cv::Mat distance;  ///< CV_32F, from the camera; infinity where there is only sky
};

/// Two panoramas of the town, 2000 x 1000 pixels times `scale`, from 3 metres apart. The second
/// camera lies on its side, so that the poles of one look at the horizon of the other.
std::vector<DemoPanorama> renderDemoPanoramas(double scale = 1.0);

/// The direction from the second camera, of unit length, to what a pixel of the first shows;
/// nothing if it is hidden from there by something at another distance, by more than 5 %, and
/// nothing for sky.
std::optional<Eigen::Vector3d> transfer(const DemoPanorama& from, const Eigen::Vector2d& pixel,
                                        const DemoPanorama& to);

}  // namespace marlo::app
