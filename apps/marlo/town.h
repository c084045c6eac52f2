// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <vector>

#include "marlo/solids.h"

namespace marlo::app {

/// A small town at the foot of hills, lit by the sun, the same on every machine. Metres; x to the
/// east, y to the north, z up; the market place is around the origin. Threads may share one.
class Town {
public:
    Town();

    static constexpr int kGround = -1;
    static constexpr int kSky = -2;

    /// What a ray meets first.
    struct Sight {
        double distance = 0.0;  ///< infinity for the sky
        int solid = kSky;
        int face = 0;  ///< of that solid
        bool isSunlit = false;

        /// Whether both are of the same smooth surface, and both in the sun or both in the shade.
        [[nodiscard]] bool isLike(const Sight& other) const {
            return solid == other.solid && face == other.face && isSunlit == other.isSunlit;
        }
    };

    /// The solids that may be met by rays from the same origin whose angle with `axis` has a sine
    /// of at most `sine`: few, so that a search for each of these rays takes little time.
    [[nodiscard]] std::vector<int> solidsNear(const Ray& axis, double sine) const;

    /// What the ray meets first among the ground and those solids.
    [[nodiscard]] Sight look(const Ray& ray, const std::vector<int>& solids) const;

    /// The light that comes back along the ray from there: red, green, blue, about 1 for sunlit
    /// white. Detail too fine for pixels of that angle, in radians, is left out.
    [[nodiscard]] Eigen::Array3f light(const Ray& ray, const Sight& sight, double pixelAngle) const;

private:
    void plantTrees();
    void listShadows();
    [[nodiscard]] bool isHouse(int solid) const;
    [[nodiscard]] const House& house(int solid) const;
    [[nodiscard]] const Ellipsoid& ellipsoid(int solid) const;
    [[nodiscard]] std::optional<Chord> chord(int solid, const Ray& ray) const;
    [[nodiscard]] Eigen::Vector3d normal(const Sight& sight, const Eigen::Vector3d& point) const;
    [[nodiscard]] bool isShadowed(const Eigen::Vector3d& point) const;

    std::vector<House> houses_;
    std::vector<Ellipsoid> ellipsoids_;  ///< numbered after the houses
    std::vector<Sphere> bounds_;         ///< of all solids
    /// The solids that may lie between the sun and a square of the ground, row by row.
    std::vector<std::vector<int>> shadows_;
};

}  // namespace marlo::app
