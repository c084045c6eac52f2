// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <optional>
#include <vector>

/// What the town of the demonstration is built from. Metres, z up, the ground at z = 0.
namespace marlo::app {

struct Ray {
    Eigen::Vector3d origin;
    Eigen::Vector3d direction;  ///< of unit length
};

/// The part of a ray that lies inside a solid, as distances from its origin.
struct Chord {
    double enter = 0.0;  ///< negative if the origin is inside or the solid behind it
    double leave = 0.0;
    int face = 0;  ///< through which it enters
};

struct Sphere {
    Eigen::Vector3d centre;
    double radius = 0.0;
};

/// Walls on a rectangle, turned about the vertical, with a roof on top.
class House {
public:
    enum class Finish : std::uint8_t { plaster, stone, brick, cloth };
    enum class Roof : std::uint8_t { flat, gable, pyramid };
    enum Face : int { south, north, west, east, roofSouth, roofNorth, roofWest, roofEast };

    struct Plan {
        double x, y;           ///< of the centre
        double cosine, sine;   ///< of the angle by which it is turned
        double length, width;  ///< the ridge of a gable roof runs along its length
        double wallHeight;
        double roofHeight;  ///< above the walls; 0 for a flat roof
        Roof roof;
        Finish finish;
        float red, green, blue;  ///< of the walls, 0 to 1
    };

    explicit House(const Plan& plan);

    [[nodiscard]] const Plan& plan() const { return plan_; }
    /// Of a flat roof, roofSouth is the only one.
    [[nodiscard]] Eigen::Vector3d normal(int face) const;
    /// On the face, in metres: to the right from its corner, and up along it from its lower edge.
    [[nodiscard]] Eigen::Vector2d onFace(int face, const Eigen::Vector3d& point) const;
    [[nodiscard]] std::optional<Chord> chord(const Ray& ray) const;
    [[nodiscard]] Sphere bounds() const;

private:
    /// Plain numbers, since unoptimised builds spend most of their time with them.
    struct Plane {
        double x, y, z;  ///< normal, outwards, of unit length
        double offset;   ///< normal times any of its points
    };
    void addFace(double towardsX, double towardsY, double rise, double distance, double height);

    Plan plan_;
    Eigen::Vector3d along_;   ///< own x axis
    Eigen::Vector3d across_;  ///< own y axis
    std::vector<Plane> planes_;
};

/// A tree or a hill.
struct Ellipsoid {
    Eigen::Vector3d centre;
    Eigen::Vector3d radii;
    bool isTree = false;

    [[nodiscard]] Eigen::Vector3d normal(const Eigen::Vector3d& point) const;
    [[nodiscard]] std::optional<Chord> chord(const Ray& ray) const;
    [[nodiscard]] Sphere bounds() const;
};

}  // namespace marlo::app
