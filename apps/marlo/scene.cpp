// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/scene.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <utility>

#include "marlo/town.h"
#include "marlo/value_noise.h"

namespace marlo::app {
namespace {

/// How light becomes grey values.
struct Exposure {
    float gain;
    float midtones;  ///< lifts or, if negative, presses down the middle tones, as a gamma would
    float noise;     ///< standard deviation at full brightness, in grey values
};

/// Where a picture is taken from, and how.
struct Station {
    Eigen::Vector3d centre;
    Eigen::Vector3d target;  ///< in the middle of the picture
    double zoom;             ///< factor of the focal length
    bool isTurned;           ///< by 60 degrees about the optical axis
    Exposure exposure;
};

const Station kStations[] = {
    {{-40.1, -44.6, 19.0}, {-1.0, 6.0, 3.5}, 1.0, false, {1.0F, 0.0F, 1.5F}},
    {{-27.0, -46.8, 17.0}, {-1.0, 6.0, 3.5}, 1.0, false, {0.42F, -0.25F, 1.5F}},
    {{-18.5, -57.1, 21.0}, {0.0, 6.0, 3.0}, 1.0, true, {1.0F, 0.0F, 1.5F}},
    {{-6.7, -63.6, 23.0}, {0.0, 6.0, 4.0}, 1.0, false, {1.0F, 0.0F, 1.5F}},
    {{8.2, -77.6, 27.0}, {0.0, 6.0, 5.0}, 1.5, false, {1.0F, 0.0F, 1.5F}},
    {{17.9, -55.2, 20.0}, {0.0, 6.0, 3.5}, 1.0, false, {1.0F, 0.0F, 1.5F}},
    {{26.5, -45.9, 17.0}, {1.0, 6.0, 3.5}, 1.0, false, {2.0F, 0.2F, 1.5F}},
    {{40.1, -44.6, 21.0}, {1.0, 6.0, 3.5}, 1.0, false, {1.0F, 0.0F, 9.0F}},
};

constexpr int kWidth = 1200;
constexpr int kHeight = 900;
constexpr double kFocalLength = 1250.0;  // of these pixels: 51 degrees from left to right
constexpr double kDepthTolerance = 0.01;
constexpr int kPanoramaHeight = 1000;
constexpr double kDistanceTolerance = 0.05;
constexpr int kBlock = 8;  // pixels: rays of a square of that size share the search for solids
// On a turned grid, each in its own row and column.
const Eigen::Vector2d kSamples[] = {
    {-0.375, -0.125}, {0.125, -0.375}, {0.375, 0.125}, {-0.125, 0.375}};

PinholeCamera cameraAt(const Station& station, double scale) {
    PinholeCamera camera;
    camera.width = static_cast<int>(std::lround(kWidth * scale));
    camera.height = static_cast<int>(std::lround(kHeight * scale));
    camera.focalLength = kFocalLength * station.zoom * scale;
    camera.principalPoint = 0.5 * Eigen::Vector2d(camera.width - 1, camera.height - 1);
    camera.centre = station.centre;
    const Eigen::Vector3d forward = (station.target - station.centre).normalized();
    const Eigen::Vector3d right = forward.cross(Eigen::Vector3d::UnitZ()).normalized();
    const Eigen::Vector3d down = forward.cross(right);
    const double cosine = station.isTurned ? 0.5 : 1.0;
    const double sine = station.isTurned ? std::sqrt(0.75) : 0.0;
    camera.rotation.row(0) = cosine * right + sine * down;
    camera.rotation.row(1) = cosine * down - sine * right;
    camera.rotation.row(2) = forward;
    return camera;
}

/// Nearly normally distributed, with a standard deviation of 1: the sum of four even distributions.
float noiseAt(int x, int y, std::uint32_t seed) {
    const std::uint32_t first = latticeHash(x, y, seed);
    const std::uint32_t second = latticeHash(y, x, first);
    const std::uint32_t sum =
        (first & 0xFFFFU) + (first >> 16) + (second & 0xFFFFU) + (second >> 16);
    constexpr float kDeviation = 37837.0F;  // sqrt(4 / 12) times 65536
    return (static_cast<float>(sum) - 131070.0F) / kDeviation;
}

/// The grey value that the camera writes.
unsigned char exposed(float light, const Exposure& exposure, float noise) {
    // The root is about the transfer curve of a display.
    const float tone = std::sqrt(std::max(0.0F, exposure.gain * light));
    const float curved = tone + exposure.midtones * tone * (1.0F - std::min(1.0F, tone));
    const float deviation = exposure.noise * (0.5F + 0.5F * std::min(1.0F, curved));
    const float grey = 255.0F * curved + deviation * noise;
    return static_cast<unsigned char>(std::lround(std::min(255.0F, std::max(0.0F, grey))));
}

/// Some pixels, and the solids that rays through them may meet.
struct Block {
    cv::Rect pixels;
    std::vector<int> solids;
};

/// The angle between pixels in the middle of an image, in radians.
double pixelAngle(const PinholeCamera& camera) {
    return 1.0 / camera.focalLength;
}
double pixelAngle(const PanoramaCamera& camera) {
    return std::numbers::pi / camera.height;
}

/// How much of the distance along a direction counts as depth.
double depthOfUnit(const PinholeCamera& camera, const Eigen::Vector3d& direction) {
    const Eigen::RowVector3d forward = camera.rotation.row(2);
    return forward.dot(direction);
}
double depthOfUnit(const PanoramaCamera& /*camera*/, const Eigen::Vector3d& /*direction*/) {
    return 1.0;
}

/// Makes one image. All memory is there before the first ray, so nothing throws in a parallel loop.
template <typename Camera>
class Rendering {
public:
    Rendering(const Town& town, const Camera& camera, const Exposure& exposure, std::uint32_t seed)
        : town_(town),
          camera_(camera),
          exposure_(exposure),
          seed_(seed),
          pixelAngle_(pixelAngle(camera)),
          image_(camera.height, camera.width, CV_8UC3),
          depth_(camera.height, camera.width, CV_32F),
          sights_(static_cast<std::size_t>(depth_.total())) {
        const cv::Rect all({0, 0}, depth_.size());
        for (int y = 0; y < all.height; y += kBlock) {
            for (int x = 0; x < all.width; x += kBlock) {
                const Ray middle = rayThrough({x + 0.5 * kBlock, y + 0.5 * kBlock});
                blocks_.push_back({cv::Rect(x, y, kBlock, kBlock) & all,
                                   town.solidsNear(middle, kBlock * pixelAngle_)});
            }
        }
    }

    [[nodiscard]] const cv::Mat& image() const { return image_; }
    [[nodiscard]] const cv::Mat& depth() const { return depth_; }

    void run() {
        const int count = static_cast<int>(blocks_.size());
#pragma omp parallel
        {
#pragma omp for schedule(dynamic)
            for (int i = 0; i < count; ++i) look(blocks_[static_cast<std::size_t>(i)]);
#pragma omp for schedule(dynamic)
            for (int i = 0; i < count; ++i) expose(blocks_[static_cast<std::size_t>(i)]);
        }
    }

private:
    [[nodiscard]] Ray rayThrough(const Eigen::Vector2d& pixel) const {
        return {camera_.centre, camera_.ray(pixel)};
    }

    /// What the middle of a pixel shows; of the nearest one, if it lies outside of the image.
    Town::Sight& sight(int x, int y) {
        const int column = std::clamp(x, 0, depth_.cols - 1);
        const int row = std::clamp(y, 0, depth_.rows - 1);
        return sights_[static_cast<std::size_t>(row) * static_cast<std::size_t>(depth_.cols) +
                       static_cast<std::size_t>(column)];
    }

    void look(const Block& block) {
        for (int y = block.pixels.y; y < block.pixels.br().y; ++y) {
            for (int x = block.pixels.x; x < block.pixels.br().x; ++x) {
                const Ray ray = rayThrough({x, y});
                sight(x, y) = town_.look(ray, block.solids);
                depth_.at<float>(y, x) =
                    static_cast<float>(sight(x, y).distance * depthOfUnit(camera_, ray.direction));
            }
        }
    }

    /// The patterns of a surface are smooth enough for one ray. Pixels on the border of a surface
    /// or of a shadow take several.
    Eigen::Array3f lightAt(const Block& block, int x, int y) {
        const Town::Sight& here = sight(x, y);
        const Eigen::Vector2d pixel(x, y);
        if (here.isLike(sight(x - 1, y)) && here.isLike(sight(x + 1, y)) &&
            here.isLike(sight(x, y - 1)) && here.isLike(sight(x, y + 1))) {
            return town_.light(rayThrough(pixel), here, pixelAngle_);
        }
        Eigen::Array3f sum = Eigen::Array3f::Zero();
        for (const Eigen::Vector2d& sample : kSamples) {
            const Ray ray = rayThrough(pixel + sample);
            sum += town_.light(ray, town_.look(ray, block.solids), pixelAngle_);
        }
        return 0.25F * sum;
    }

    void expose(const Block& block) {
        for (int y = block.pixels.y; y < block.pixels.br().y; ++y) {
            for (int x = block.pixels.x; x < block.pixels.br().x; ++x) {
                const Eigen::Array3f light = lightAt(block, x, y);
                auto& bgr = image_.at<cv::Vec3b>(y, x);
                for (int channel = 0; channel < 3; ++channel) {
                    const float noise = noiseAt(x, y, seed_ + static_cast<std::uint32_t>(channel));
                    bgr[channel] = exposed(light[2 - channel], exposure_, noise);
                }
            }
        }
    }

    const Town& town_;
    const Camera& camera_;
    const Exposure& exposure_;
    std::uint32_t seed_;
    double pixelAngle_;
    cv::Mat image_;
    cv::Mat depth_;
    std::vector<Block> blocks_;
    std::vector<Town::Sight> sights_;  ///< row by row
};

bool isInside(const PinholeCamera& camera, const Eigen::Vector2d& pixel) {
    return pixel.x() >= 0.0 && pixel.y() >= 0.0 && pixel.x() <= camera.width - 1 &&
           pixel.y() <= camera.height - 1;
}

/// The inverse of the depth of the surface that the nearest pixel shows, at a place of the image;
/// 0 for sky.
/// On a plane it is an affine function of the place. At the edge of a surface the difference on one
/// side is large, so the smaller is taken.
double inverseDepth(const DemoView& view, const Eigen::Vector2d& place) {
    const cv::Point nearest(static_cast<int>(std::lround(place.x())),
                            static_cast<int>(std::lround(place.y())));
    const double middle = 1.0 / static_cast<double>(view.depth.at<float>(nearest));
    if (middle <= 0.0) return 0.0;  // sky
    const auto slope = [&](const cv::Point& step) {
        double smallest = std::numeric_limits<double>::infinity();
        for (const int side : {-1, 1}) {
            const cv::Point neighbour = nearest + side * step;
            if (!cv::Rect({0, 0}, view.depth.size()).contains(neighbour)) continue;
            const double there = 1.0 / static_cast<double>(view.depth.at<float>(neighbour));
            const double difference = side * (there - middle);
            if (std::abs(difference) < std::abs(smallest)) smallest = difference;
        }
        return smallest;
    };
    return middle + slope({1, 0}) * (place.x() - nearest.x) +
           slope({0, 1}) * (place.y() - nearest.y);
}

}  // namespace

double PinholeCamera::depth(const Eigen::Vector3d& point) const {
    return rotation.row(2).dot(point - centre);
}

std::optional<Eigen::Vector2d> PinholeCamera::project(const Eigen::Vector3d& point) const {
    const Eigen::Vector3d inCamera = rotation * (point - centre);
    if (inCamera.z() <= 0.0) return std::nullopt;
    return focalLength / inCamera.z() * inCamera.head<2>() + principalPoint;
}

Eigen::Vector3d PinholeCamera::ray(const Eigen::Vector2d& pixel) const {
    const double x = (pixel.x() - principalPoint.x()) / focalLength;
    const double y = (pixel.y() - principalPoint.y()) / focalLength;
    const double scale = 1.0 / std::sqrt(x * x + y * y + 1.0);
    const auto along = [&](int axis) {
        return scale * (x * rotation(0, axis) + y * rotation(1, axis) + rotation(2, axis));
    };
    return {along(0), along(1), along(2)};
}

Eigen::Vector2d PanoramaCamera::project(const Eigen::Vector3d& point) const {
    const Eigen::Vector3d direction = rotation * (point - centre);
    const double longitude = std::atan2(direction.x(), direction.z());
    const double latitude = std::atan2(direction.y(), std::hypot(direction.x(), direction.z()));
    const double x = (longitude / std::numbers::pi + 1.0) * 0.5 * width;
    return {x < width ? x : 0.0, (latitude / std::numbers::pi + 0.5) * height};
}

Eigen::Vector3d PanoramaCamera::ray(const Eigen::Vector2d& pixel) const {
    const double longitude = (2.0 * pixel.x() / width - 1.0) * std::numbers::pi;
    const double latitude = (pixel.y() / height - 0.5) * std::numbers::pi;
    const Eigen::Vector3d inCamera(std::sin(longitude) * std::cos(latitude), std::sin(latitude),
                                   std::cos(longitude) * std::cos(latitude));
    return rotation.transpose() * inCamera;
}

std::vector<DemoView> renderDemoViews(double scale) {
    const Town town;
    std::vector<DemoView> views;
    for (const Station& station : kStations) {
        const std::size_t number = views.size() + 1;
        DemoView view;
        view.name = "view_0" + std::to_string(number) + ".png";
        view.camera = cameraAt(station, scale);
        const auto seed = static_cast<std::uint32_t>(10 * number);
        Rendering<PinholeCamera> rendering(town, view.camera, station.exposure, seed);
        rendering.run();
        view.image = rendering.image();
        view.depth = rendering.depth();
        views.push_back(std::move(view));
    }
    return views;
}

std::optional<Eigen::Vector2d> transfer(const DemoView& from, const Eigen::Vector2d& pixel,
                                        const DemoView& to) {
    if (!isInside(from.camera, pixel)) return std::nullopt;
    const double inverse = inverseDepth(from, pixel);
    if (inverse <= 0.0) return std::nullopt;
    const Eigen::Vector3d direction = from.camera.ray(pixel);
    const double along = from.camera.rotation.row(2).dot(direction);
    const Eigen::Vector3d point = from.camera.centre + direction / (inverse * along);
    std::optional<Eigen::Vector2d> seen = to.camera.project(point);
    if (!seen || !isInside(to.camera, *seen)) return std::nullopt;
    // Deeper than what is seen there: hidden. Less deep: missed by the nearest ray.
    const double ratio = to.camera.depth(point) * inverseDepth(to, *seen);
    if (std::abs(ratio - 1.0) > kDepthTolerance) return std::nullopt;
    return seen;
}

std::vector<DemoPanorama> renderDemoPanoramas(double scale) {
    const Town town;
    const Exposure exposure{1.0F, 0.0F, 1.5F};
    // Both look north, over the market place; the second has the east below it.
    Eigen::Matrix3d rotations[2];
    rotations[0] << 1, 0, 0, 0, 0, -1, 0, 1, 0;
    rotations[1] << 0, 0, 1, 1, 0, 0, 0, 1, 0;
    const Eigen::Vector3d centres[2] = {{-2.0, -8.0, 9.0}, {0.0, -6.0, 8.0}};
    std::vector<DemoPanorama> panoramas(2);
    for (std::size_t i = 0; i < panoramas.size(); ++i) {
        DemoPanorama& panorama = panoramas[i];
        panorama.name = "panorama_" + std::to_string(i + 1) + ".png";
        panorama.camera.height = static_cast<int>(std::lround(kPanoramaHeight * scale));
        panorama.camera.width = 2 * panorama.camera.height;
        panorama.camera.rotation = rotations[i];
        panorama.camera.centre = centres[i];
        const auto seed = static_cast<std::uint32_t>(1000 + 10 * i);
        Rendering<PanoramaCamera> rendering(town, panorama.camera, exposure, seed);
        rendering.run();
        panorama.image = rendering.image();
        panorama.distance = rendering.depth();
    }
    return panoramas;
}

std::optional<Eigen::Vector3d> transfer(const DemoPanorama& from, const Eigen::Vector2d& pixel,
                                        const DemoPanorama& to) {
    const auto distanceAt = [](const DemoPanorama& panorama, const Eigen::Vector2d& place) {
        const auto col = static_cast<int>(std::lround(place.x())) % panorama.camera.width;
        const auto row = static_cast<int>(std::lround(place.y()));
        return static_cast<double>(panorama.distance.at<float>(
            std::clamp(row, 0, panorama.camera.height - 1), std::max(0, col)));
    };
    const double distance = distanceAt(from, pixel);
    if (!std::isfinite(distance)) return std::nullopt;
    const Eigen::Vector3d point = from.camera.centre + distance * from.camera.ray(pixel);
    const Eigen::Vector3d direction = point - to.camera.centre;
    const double ratio = direction.norm() / distanceAt(to, to.camera.project(point));
    if (!(std::abs(ratio - 1.0) <= kDistanceTolerance)) return std::nullopt;
    return direction.normalized();
}

}  // namespace marlo::app
