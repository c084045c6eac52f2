// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/surfaces.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <vector>

namespace marlo::app {
namespace {

using Colour = Eigen::Array3f;
using Surface = std::function<Colour(const Eigen::Vector3d&, float footprint)>;

constexpr float kClose = 0.04F;  // metres in a pixel

House house(House::Finish finish, House::Roof roof) {
    return House({0.0, 0.0, 1.0, 0.0, 12.0, 9.0, 8.0, roof == House::Roof::flat ? 0.0 : 3.0, roof,
                  finish, 0.7F, 0.6F, 0.5F});
}

Surface wallOf(House::Finish finish, std::uint32_t seed = 1) {
    return [=](const Eigen::Vector3d& point, float footprint) {
        return houseColour(house(finish, House::Roof::gable), House::south,
                           {point.x(), -4.5, point.y()}, seed, footprint);
    };
}

Surface roofOf(House::Roof roof) {
    return [=](const Eigen::Vector3d& point, float footprint) {
        return houseColour(house(House::Finish::plaster, roof), House::roofSouth,
                           {point.x(), point.y() - 4.5, 8.0}, 1, footprint);
    };
}

std::vector<Surface> allSurfaces() {
    const Ellipsoid tree{{0.0, 0.0, 2.0}, {3.0, 3.0, 3.0}, true};
    return {wallOf(House::Finish::plaster),
            wallOf(House::Finish::stone),
            wallOf(House::Finish::brick),
            wallOf(House::Finish::cloth),
            roofOf(House::Roof::gable),
            roofOf(House::Roof::flat),
            groundColour,
            hillColour,
            [=](const Eigen::Vector3d& point, float footprint) {
                return treeColour(tree, point, 3, footprint);
            }};
}

/// Places 0.3 m apart, from 0 to 4 m in x and y.
std::vector<Eigen::Vector3d> places() {
    std::vector<Eigen::Vector3d> points;
    for (int i = 0; i < 14 * 14; ++i) points.emplace_back(0.3 * (i % 14), 0.3 * (i / 14), 0.0);
    return points;
}

TEST(SurfacesTest, ColoursAreLightThatASurfaceCanReturn) {
    for (const Surface& surface : allSurfaces()) {
        for (const Eigen::Vector3d& place : places()) {
            for (const float footprint : {kClose, 0.5F, 100.0F}) {
                const Colour colour = surface(place, footprint);
                ASSERT_GT(colour.minCoeff(), -0.1F);
                ASSERT_LT(colour.maxCoeff(), 2.0F);
            }
        }
    }
}

TEST(SurfacesTest, EverySurfaceHasATexture) {
    for (const Surface& surface : allSurfaces()) {
        float darkest = 1.0F;
        float brightest = 0.0F;
        for (const Eigen::Vector3d& place : places()) {
            const float green = surface(place, kClose)[1];
            darkest = std::min(darkest, green);
            brightest = std::max(brightest, green);
        }
        EXPECT_GT(brightest, 1.5F * darkest);
    }
}

TEST(SurfacesTest, NoTwoWallsAreTheSame) {
    int same = 0;
    for (const Eigen::Vector3d& place : places()) {
        const Colour one = wallOf(House::Finish::stone, 1)(place, kClose);
        const Colour other = wallOf(House::Finish::stone, 2)(place, kClose);
        same += (one == other).all() ? 1 : 0;
    }
    EXPECT_EQ(same, 0);
}

TEST(SurfacesTest, WallsHaveWindows) {
    // Glass is darker than any plaster.
    int dark = 0;
    for (int i = 0; i < 120; ++i) {
        const Eigen::Vector3d place(-6.0 + 0.1 * i, 1.5, 0.0);
        dark += wallOf(House::Finish::plaster)(place, kClose)[0] < 0.15F ? 1 : 0;
    }
    EXPECT_GE(dark, 5);
}

}  // namespace
}  // namespace marlo::app
