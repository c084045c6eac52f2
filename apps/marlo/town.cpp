// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/town.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "marlo/surfaces.h"
#include "marlo/value_noise.h"

namespace marlo::app {
namespace {

using Finish = House::Finish;
using Roof = House::Roof;

constexpr House::Plan kPlans[] = {
    // Around the market place.
    {-18.5, 18.0, 0.96, 0.28, 11.0, 9.0, 8.8, 3.6, Roof::gable, Finish::plaster, .72F, .5F, .22F},
    {-6.0, 21.0, 1.0, 0.0, 10.0, 8.5, 11.8, 3.4, Roof::gable, Finish::plaster, .74F, .66F, .5F},
    {4.5, 22.5, 1.0, 0.0, 5.6, 5.6, 19.0, 6.5, Roof::pyramid, Finish::stone, .62F, .55F, .44F},
    {14.5, 22.5, 1.0, 0.0, 14.0, 9.0, 8.0, 4.8, Roof::gable, Finish::stone, .66F, .58F, .45F},
    {-22.0, 4.0, 0.28, 0.96, 12.0, 8.5, 6.4, 3.0, Roof::gable, Finish::brick, .55F, .28F, .18F},
    {22.0, 6.0, 0.28, -0.96, 11.0, 9.0, 9.2, 3.2, Roof::gable, Finish::plaster, .66F, .38F, .27F},
    // Behind.
    {-26.0, 33.0, 0.96, -0.28, 12.0, 9.0, 8.5, 3.4, Roof::gable, Finish::stone, .56F, .5F, .42F},
    {-11.0, 36.0, 0.96, 0.28, 11.0, 10.0, 14.6, 0.0, Roof::flat, Finish::brick, .6F, .33F, .22F},
    {4.0, 39.0, 1.0, 0.0, 12.0, 9.0, 11.6, 3.8, Roof::gable, Finish::plaster, .5F, .56F, .6F},
    {20.0, 37.0, 0.96, -0.28, 11.0, 9.0, 11.6, 3.2, Roof::gable, Finish::plaster, .76F, .6F, .36F},
    {34.0, 27.0, 0.8, -0.6, 11.0, 9.0, 8.8, 3.6, Roof::gable, Finish::brick, .5F, .3F, .22F},
    {-38.0, 17.0, 0.8, 0.6, 10.0, 8.5, 5.9, 3.0, Roof::gable, Finish::plaster, .78F, .72F, .62F},
    {38.0, 9.0, 0.28, 0.96, 10.0, 9.0, 6.0, 3.2, Roof::pyramid, Finish::stone, .6F, .52F, .4F},
    // In front.
    {-25.0, -11.0, 0.96, -0.28, 9.0, 7.0, 5.8, 2.6, Roof::gable, Finish::plaster, .7F, .62F, .4F},
    {26.0, -9.0, 0.96, 0.28, 9.0, 7.5, 5.8, 2.8, Roof::pyramid, Finish::brick, .56F, .34F, .24F},
    {-11.0, -17.0, 0.96, 0.28, 7.0, 5.5, 3.2, 2.2, Roof::gable, Finish::stone, .58F, .52F, .42F},
    {12.0, -18.0, 0.8, -0.6, 7.5, 5.5, 3.2, 2.2, Roof::gable, Finish::plaster, .74F, .56F, .42F},
    {1.5, -23.0, 0.96, 0.28, 9.0, 0.6, 1.5, 0.0, Roof::flat, Finish::stone, .6F, .54F, .46F},
    {-19.0, -24.0, 0.96, -0.28, 12.0, 0.6, 1.7, 0.0, Roof::flat, Finish::stone, .62F, .56F, .44F},
    {22.0, -24.0, 0.96, 0.28, 11.0, 0.6, 1.6, 0.0, Roof::flat, Finish::stone, .56F, .5F, .44F},
    // The market: a well, stalls and crates.
    {0.0, 3.0, 0.8, 0.6, 2.2, 2.2, 1.3, 0.8, Roof::pyramid, Finish::stone, .6F, .56F, .5F},
    {-6.0, -2.0, 0.96, 0.28, 3.4, 2.6, 2.2, 1.1, Roof::pyramid, Finish::cloth, .8F, .25F, .2F},
    {5.5, -3.5, 0.96, -0.28, 3.6, 2.4, 2.1, 1.0, Roof::gable, Finish::cloth, .85F, .8F, .6F},
    {-4.5, 9.0, 1.0, 0.0, 3.2, 2.6, 2.2, 1.0, Roof::pyramid, Finish::cloth, .2F, .4F, .6F},
    {7.5, 6.5, 0.8, 0.6, 3.6, 2.6, 2.3, 1.1, Roof::gable, Finish::cloth, .85F, .6F, .15F},
    {-0.5, -7.0, 0.8, 0.6, 1.5, 1.1, 1.0, 0.0, Roof::flat, Finish::brick, .6F, .45F, .28F},
    {1.6, -7.8, 0.96, -0.28, 1.2, 1.2, 0.8, 0.0, Roof::flat, Finish::cloth, .6F, .45F, .3F},
    // Chimneys, which stand on the ground inside of their houses.
    {-20.5, 19.0, 0.96, 0.28, 1.0, 0.8, 12.9, 0.0, Roof::flat, Finish::brick, .5F, .26F, .18F},
    {-3.0, 19.6, 1.0, 0.0, 1.0, 1.0, 15.6, 0.0, Roof::flat, Finish::brick, .55F, .3F, .2F},
    {-21.4, 7.0, 0.28, 0.96, 0.9, 0.8, 10.2, 0.0, Roof::flat, Finish::stone, .55F, .5F, .45F},
    {22.6, 3.0, 0.28, -0.96, 1.0, 0.8, 13.2, 0.0, Roof::flat, Finish::brick, .5F, .3F, .22F},
    {7.0, 38.0, 1.0, 0.0, 1.1, 0.9, 16.2, 0.0, Roof::flat, Finish::brick, .52F, .28F, .2F},
    {-26.5, -10.0, 0.96, -0.28, 0.8, 0.8, 9.0, 0.0, Roof::flat, Finish::brick, .5F, .3F, .2F},
};

constexpr std::uint32_t kTreePlaces = 2001;
constexpr std::size_t kNumberOfTrees = 100;

// From the south-west, behind the cameras' left shoulders.
const Eigen::Vector3d kTowardsSun = Eigen::Vector3d(-0.55, -0.45, 0.7).normalized();
const Eigen::Array3f kSunlight(1.02F, 0.95F, 0.8F);
const Eigen::Array3f kSkylight(0.16F, 0.2F, 0.26F);
constexpr double kOutside = 1e-6;  // metres: what a ray meets closer to its origin is its own face
constexpr double kHorizon = 4000.0;  // metres: the ground ends in haze
// The squares of the ground that know what shades them.
constexpr double kSquare = 4.0;
constexpr std::size_t kSquaresPerRow = 48;

/// Where the line from the sun through a point meets the ground.
Eigen::Vector2d shadowOf(const Eigen::Vector3d& point) {
    const double slide = point.z() / kTowardsSun.z();
    return {point.x() - slide * kTowardsSun.x(), point.y() - slide * kTowardsSun.y()};
}

/// The row or column of squares of a place, whose x or y that is.
std::size_t squareAt(double coordinate) {
    const double square = coordinate / kSquare + 0.5 * static_cast<double>(kSquaresPerRow);
    return static_cast<std::size_t>(
        std::clamp(square, 0.0, static_cast<double>(kSquaresPerRow - 1)));
}

Eigen::Array3f skyColour(const Eigen::Vector3d& direction) {
    const float up = clampToUnit(static_cast<float>(direction.z()) * 2.0F);
    const Eigen::Array3f horizon(0.72F, 0.78F, 0.84F);
    const Eigen::Array3f zenith(0.16F, 0.32F, 0.62F);
    return horizon + (zenith - horizon) * (up * (2.0F - up));
}

}  // namespace

Town::Town() : houses_(std::begin(kPlans), std::end(kPlans)) {
    plantTrees();
    ellipsoids_.push_back({{20.0, 165.0, -12.0}, {110.0, 60.0, 44.0}, false});
    ellipsoids_.push_back({{-135.0, 120.0, -10.0}, {80.0, 75.0, 46.0}, false});
    ellipsoids_.push_back({{150.0, 110.0, -12.0}, {75.0, 80.0, 40.0}, false});
    for (const House& house : houses_) bounds_.push_back(house.bounds());
    for (const Ellipsoid& ellipsoid : ellipsoids_) bounds_.push_back(ellipsoid.bounds());
    listShadows();
}

// Slender and round ones, wherever there is room between and behind the houses.
void Town::plantTrees() {
    for (int i = 0; ellipsoids_.size() < kNumberOfTrees; ++i) {
        const auto random = [i](int which) {
            return static_cast<double>(unitFloat(latticeHash(i, which, kTreePlaces)));
        };
        const bool isSlender = random(0) < 0.4;
        const double radius = isSlender ? 0.9 + 0.5 * random(1) : 0.8 + 1.4 * random(1);
        const double halfHeight =
            isSlender ? 3.0 + 2.0 * random(2) : radius * (0.8 + 0.4 * random(2));
        const Eigen::Vector2d place(-65.0 + 130.0 * random(3), -26.0 + 115.0 * random(4));
        const auto isInTheWay = [&](const House& house) {
            const Sphere bounds = house.bounds();
            const double reach = radius + 0.5 * std::max(house.plan().length, house.plan().width);
            return (place - bounds.centre.head<2>()).norm() < reach + 0.5;
        };
        if (place.norm() < 14.0 || std::any_of(houses_.begin(), houses_.end(), isInTheWay))
            continue;
        ellipsoids_.push_back(
            {{place.x(), place.y(), 0.85 * halfHeight}, {radius, radius, halfHeight}, true});
    }
}

// A solid shades a square only if its bounding sphere does. Hills shade nothing but themselves:
// the sun is on the side of the town.
void Town::listShadows() {
    shadows_.resize(kSquaresPerRow * kSquaresPerRow);
    const std::size_t count = houses_.size() + kNumberOfTrees;
    for (std::size_t solid = 0; solid < count; ++solid) {
        const Eigen::Vector2d centre = shadowOf(bounds_[solid].centre);
        const double reach = bounds_[solid].radius / kTowardsSun.z();
        const std::size_t lastRow = squareAt(centre.y() + reach);
        const std::size_t lastColumn = squareAt(centre.x() + reach);
        for (std::size_t row = squareAt(centre.y() - reach); row <= lastRow; ++row) {
            for (std::size_t column = squareAt(centre.x() - reach); column <= lastColumn;
                 ++column) {
                shadows_[row * kSquaresPerRow + column].push_back(static_cast<int>(solid));
            }
        }
    }
}

bool Town::isHouse(int solid) const {
    return solid >= 0 && solid < static_cast<int>(houses_.size());
}

const House& Town::house(int solid) const {
    return houses_[static_cast<std::size_t>(solid)];
}

const Ellipsoid& Town::ellipsoid(int solid) const {
    return ellipsoids_[static_cast<std::size_t>(solid) - houses_.size()];
}

std::optional<Chord> Town::chord(int solid, const Ray& ray) const {
    return isHouse(solid) ? house(solid).chord(ray) : ellipsoid(solid).chord(ray);
}

Eigen::Vector3d Town::normal(const Sight& sight, const Eigen::Vector3d& point) const {
    if (sight.solid == kGround) return Eigen::Vector3d::UnitZ();
    return isHouse(sight.solid) ? house(sight.solid).normal(sight.face)
                                : ellipsoid(sight.solid).normal(point);
}

std::vector<int> Town::solidsNear(const Ray& axis, double sine) const {
    std::vector<int> solids;
    for (std::size_t i = 0; i < bounds_.size(); ++i) {
        const Eigen::Vector3d towards = bounds_[i].centre - axis.origin;
        const double reach = bounds_[i].radius + sine * (towards.norm() + bounds_[i].radius);
        if (towards.cross(axis.direction).squaredNorm() <= reach * reach) {
            solids.push_back(static_cast<int>(i));
        }
    }
    return solids;
}

Town::Sight Town::look(const Ray& ray, const std::vector<int>& solids) const {
    Sight sight;
    sight.distance = std::numeric_limits<double>::infinity();
    const double toGround = -ray.origin.z() / ray.direction.z();
    if (ray.direction.z() < 0.0 && toGround < kHorizon) {
        sight.distance = toGround;
        sight.solid = kGround;
    }
    for (const int solid : solids) {
        const std::optional<Chord> met = chord(solid, ray);
        if (met && met->enter > kOutside && met->enter < sight.distance) {
            sight.distance = met->enter;
            sight.solid = solid;
            sight.face = met->face;
        }
    }
    if (sight.solid == kSky) return sight;
    const Eigen::Vector3d point = ray.origin + sight.distance * ray.direction;
    sight.isSunlit = normal(sight, point).dot(kTowardsSun) > 0.0 && !isShadowed(point);
    return sight;
}

bool Town::isShadowed(const Eigen::Vector3d& point) const {
    const Eigen::Vector2d place = shadowOf(point);
    const std::size_t square = squareAt(place.y()) * kSquaresPerRow + squareAt(place.x());
    return std::any_of(shadows_[square].begin(), shadows_[square].end(), [&](int solid) {
        const std::optional<Chord> met = chord(solid, {point, kTowardsSun});
        return met && met->leave > kOutside;
    });
}

Eigen::Array3f Town::light(const Ray& ray, const Sight& sight, double pixelAngle) const {
    if (sight.solid == kSky) return skyColour(ray.direction);
    const Eigen::Vector3d point = ray.origin + sight.distance * ray.direction;
    const Eigen::Vector3d outwards = normal(sight, point);
    // A pixel covers more of a slanted surface, though only in one direction.
    const double slant = std::max(0.05, -outwards.dot(ray.direction));
    const auto footprint = static_cast<float>(pixelAngle * sight.distance / std::sqrt(slant));
    const auto seed = static_cast<std::uint32_t>(100 * (sight.solid + 1));
    Eigen::Array3f colour;
    if (sight.solid == kGround) {
        colour = groundColour(point, footprint);
    } else if (isHouse(sight.solid)) {
        colour = houseColour(house(sight.solid), sight.face, point, seed, footprint);
    } else if (ellipsoid(sight.solid).isTree) {
        colour = treeColour(ellipsoid(sight.solid), point, seed, footprint);
    } else {
        colour = hillColour(point, footprint);
    }
    const auto sun = sight.isSunlit ? static_cast<float>(outwards.dot(kTowardsSun)) : 0.0F;
    const float sky = 0.75F + 0.25F * static_cast<float>(outwards.z());
    const Eigen::Array3f reflected = colour * (kSunlight * sun + kSkylight * sky);
    const auto distance = static_cast<float>(sight.distance);
    const float haze = distance / (distance + 1500.0F);
    return reflected + haze * (skyColour(Eigen::Vector3d::UnitX()) - reflected);
}

}  // namespace marlo::app
