// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/surfaces.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "marlo/value_noise.h"

namespace marlo::app {
namespace {

using Colour = Eigen::Array3f;

// Seeds of what is there only once.
constexpr std::uint32_t kFields = 1001;
constexpr std::uint32_t kPath = 1002;
constexpr std::uint32_t kCobbles = 1003;
constexpr std::uint32_t kTufts = 1004;
constexpr std::uint32_t kSoil = 1020;
constexpr std::uint32_t kRock = 1040;

const Colour kShutters[] = {
    {0.14F, 0.3F, 0.16F}, {0.16F, 0.26F, 0.42F}, {0.34F, 0.18F, 0.1F}, {0.4F, 0.42F, 0.4F}};

Colour blend(const Colour& a, const Colour& b, float share) {
    return a + share * (b - a);
}

/// Independent random numbers from 0 to 1 of one cell, stone or window.
float random(std::uint32_t hash, int which) {
    return unitFloat(latticeHash(which, 7, hash));
}

/// From 0 to 1 around distance 0, inside being negative, over the width of a pixel.
float inside(float distance, float footprint) {
    return clampToUnit(0.5F - distance / footprint);
}

/// How far a place lies outside of a rectangle, negative if inside.
float outsideRectangle(float u, float v, float halfWidth, float halfHeight) {
    return std::max(std::abs(u) - halfWidth, std::abs(v) - halfHeight);
}

Colour masonry(float u, float v, std::uint32_t seed, const Colour& colour, float footprint) {
    const float bend = 0.08F * valueNoise(u / 0.7F, v / 0.7F, seed + 1U);
    const Cell stone = cellAt((u + bend) / 0.62F, (v + bend) / 0.42F, seed);
    const float shade = 0.5F + 0.8F * random(stone.hash, 0);
    const Colour tint(1.0F, 0.93F + 0.1F * random(stone.hash, 1),
                      0.8F + 0.3F * random(stone.hash, 2));
    const float joint = inside(0.42F * stone.toBorder - 0.025F, footprint);
    return colour * mix(shade, 0.4F, joint) * tint;
}

Colour bricks(float u, float v, std::uint32_t seed, const Colour& colour, float footprint) {
    constexpr float kHeight = 0.3F;
    constexpr float kLength = 0.66F;
    const int course = floorToInt(v / kHeight);
    const float shifted = u / kLength + 3.0F * unitFloat(latticeHash(course, 0, seed));
    const int brick = floorToInt(shifted);
    const std::uint32_t hash = latticeHash(brick, course, seed + 1U);
    const float fromMiddleU = (shifted - static_cast<float>(brick) - 0.5F) * kLength;
    const float fromMiddleV = v - (static_cast<float>(course) + 0.5F) * kHeight;
    const float joint =
        1.0F - inside(outsideRectangle(fromMiddleU, fromMiddleV, 0.5F * kLength - 0.02F,
                                       0.5F * kHeight - 0.02F),
                      footprint);
    const float shade = 0.45F + 0.9F * random(hash, 0);
    const Colour tint(1.0F, 0.8F + 0.35F * random(hash, 1), 0.8F + 0.35F * random(hash, 2));
    return blend(colour * shade * tint, Colour(0.5F, 0.47F, 0.42F), 0.7F * joint);
}

/// Plaster that has come off in places and shows the stones below.
Colour plaster(float u, float v, std::uint32_t seed, const Colour& colour, float footprint) {
    const float stains = fractalNoise(u, v, seed, {3.2F, 0.1F, 0.9F}, footprint);
    const float cover = fractalNoise(u, v, seed + 20U, {2.4F, 0.15F, 0.65F}, footprint);
    Colour coat = colour * (1.0F + 0.3F * stains);
    const float bare = smoothStep(0.52F, 0.62F, cover);
    if (bare <= 0.0F) return coat;
    return blend(coat, masonry(u, v, seed + 40U, Colour(0.42F, 0.34F, 0.26F), footprint), bare);
}

/// Stripes of different widths, bleached and patched.
Colour cloth(float u, float v, std::uint32_t seed, const Colour& colour, float footprint) {
    const Cell stripe = cellAt(u / 0.45F, 0.5F, seed);
    const Colour white(0.8F, 0.76F, 0.66F);
    const float worn = fractalNoise(u, v, seed + 1U, {1.6F, 0.1F, 0.85F}, footprint);
    return blend(random(stripe.hash, 0) < 0.5F ? white : colour, Colour(0.5F, 0.45F, 0.4F),
                 smoothStep(0.3F, 0.6F, worn)) *
           (0.7F + 0.4F * random(stripe.hash, 1)) * (1.0F + 0.35F * worn);
}

/// Puts the window, if there is one, of that place of a wall over `wall`.
Colour withWindow(const Colour& wall, float u, float v, float width, float height,
                  std::uint32_t seed, float footprint) {
    constexpr float kStorey = 2.9F;
    constexpr float kBay = 2.3F;
    const int storey = floorToInt(v / kStorey);
    const float margin = 0.5F * (width - kBay * static_cast<float>(floorToInt(width / kBay)));
    const int bay = floorToInt((u - margin) / kBay);
    const bool fits = u > margin && u < width - margin &&
                      static_cast<float>(storey + 1) * kStorey < height + 0.4F;
    const std::uint32_t hash = latticeHash(bay, storey, seed);
    if (!fits || random(hash, 0) < 0.2F) return wall;

    const float fromMiddleU =
        u - margin - (static_cast<float>(bay) + 0.5F) * kBay - 0.5F * (random(hash, 1) - 0.5F);
    const float halfWidth = 0.32F + 0.25F * random(hash, 2);
    const float halfHeight = storey == 0 && random(hash, 3) < 0.4F ? 1.05F  // a door
                                                                   : 0.5F + 0.3F * random(hash, 4);
    const float middle = halfHeight > 1.0F ? 1.05F : 1.5F + 0.3F * (random(hash, 5) - 0.5F);
    const float fromMiddleV = v - static_cast<float>(storey) * kStorey - middle;
    const auto within = [&](float shiftU, float shiftV, float halfU, float halfV) {
        return inside(outsideRectangle(fromMiddleU - shiftU, fromMiddleV - shiftV, halfU, halfV),
                      footprint);
    };

    const float frameShade = 0.35F + 0.6F * random(hash, 6);
    Colour colour = blend(wall, Colour(1.0F, 0.95F, 0.85F) * frameShade,
                          within(0.0F, 0.0F, halfWidth + 0.11F, halfHeight + 0.11F));
    const Colour shutter = kShutters[static_cast<std::size_t>(3.999F * random(hash, 7))] *
                           (0.6F + 0.8F * random(hash, 8));
    for (const float side : {-1.0F, 1.0F}) {
        if (random(hash, side < 0.0F ? 10 : 11) < 0.45F) continue;
        const float slats = valueNoise(0.0F, v / 0.16F, hash);
        colour = blend(colour, shutter * (1.0F + 0.5F * slats * visibleShare(0.16F, footprint)),
                       within(side * (halfWidth + 0.28F), 0.0F, 0.22F, halfHeight));
    }
    const float sky = 0.04F + 0.3F * random(hash, 12) * smoothStep(-1.0F, 1.0F, fromMiddleV);
    const float curtain = within((random(hash, 13) - 0.5F) * halfWidth, 0.3F * halfHeight,
                                 0.45F * halfWidth, 0.6F * halfHeight);
    Colour glass = blend(Colour(0.9F, 1.0F, 1.15F) * sky, Colour(0.7F, 0.66F, 0.55F),
                         random(hash, 14) < 0.5F ? 0.6F * curtain : 0.0F);
    if (halfHeight > 1.0F) glass = shutter * (0.8F + 0.4F * valueNoise(u / 0.2F, v / 0.9F, hash));
    colour = blend(colour, glass, within(0.0F, 0.0F, halfWidth, halfHeight));
    const float bar = (random(hash, 15) - 0.5F) * halfHeight;
    colour = blend(colour, Colour::Constant(frameShade), within(0.0F, bar, halfWidth, 0.035F));
    if (random(hash, 16) < 0.45F) {  // flowers on the sill
        const Cell flower = cellAt(u / 0.2F, v / 0.2F, hash);
        const Colour petals(0.25F + 0.7F * random(flower.hash, 0), 0.3F * random(flower.hash, 1),
                            0.4F * random(flower.hash, 2));
        colour = blend(
            colour, petals,
            within(0.0F, -halfHeight - 0.05F, halfWidth, 0.16F) * visibleShare(0.2F, footprint));
    }
    return colour;
}

Colour wallColour(const House& house, float u, float v, float width, std::uint32_t seed,
                  float footprint) {
    const House::Plan& plan = house.plan();
    const Colour paint(plan.red, plan.green, plan.blue);
    const auto height = static_cast<float>(plan.wallHeight);
    Colour colour;
    switch (plan.finish) {
        case House::Finish::plaster:
            colour = plaster(u, v, seed, paint, footprint);
            break;
        case House::Finish::stone:
            colour = masonry(u, v, seed, paint, footprint);
            break;
        case House::Finish::brick:
            colour = bricks(u, v, seed, paint, footprint);
            break;
        case House::Finish::cloth:
            return cloth(u, v, seed, paint, footprint);
    }
    colour = withWindow(colour, u, v, width, height, seed + 60U, footprint);
    // Water runs down and splashes up.
    const float streaks = valueNoise(u / 0.35F, v / 3.5F, seed + 70U);
    const float splashes = smoothStep(1.3F, 0.0F, v + 0.5F * valueNoise(u, v, seed + 71U));
    return colour * (1.0F + 0.12F * streaks) * (1.0F - 0.35F * splashes);
}

Colour roofColour(float u, float v, std::uint32_t seed, float footprint) {
    constexpr float kRow = 0.42F;
    constexpr float kTile = 0.36F;
    const float sag = 0.07F * valueNoise(u / 1.5F, v / 1.5F, seed);
    const int row = floorToInt((v + sag) / kRow);
    const float shifted = u / kTile + 2.0F * unitFloat(latticeHash(row, 1, seed));
    const int tile = floorToInt(shifted);
    const std::uint32_t hash = latticeHash(tile, row, seed + 1U);
    const float acrossTile = shifted - static_cast<float>(tile) - 0.5F;
    const float alongTile = (v + sag) / kRow - static_cast<float>(row);
    const float relief = (0.75F + 0.4F * smoothStep(0.0F, 0.5F, alongTile)) *
                         (1.1F - 1.2F * acrossTile * acrossTile);
    const float edge = std::max(kTile * (std::abs(acrossTile) - 0.5F) + 0.02F,
                                kRow * (std::abs(alongTile - 0.5F) - 0.5F) + 0.02F);
    const float shade = (0.5F + 0.75F * random(hash, 0)) *
                        mix(1.0F, relief, visibleShare(kRow, footprint)) *
                        (0.55F + 0.45F * inside(edge, footprint));
    const Colour clay(0.55F, 0.24F + 0.14F * random(hash, 1), 0.13F + 0.12F * random(hash, 2));
    const float age = fractalNoise(u, v, seed + 2U, {3.2F, 0.2F, 0.75F}, footprint);
    const Colour lichen(0.42F, 0.4F, 0.26F);
    return blend(clay * shade, lichen * (0.6F + 0.5F * shade), smoothStep(0.1F, 0.7F, age)) *
           (1.0F + 0.25F * age);
}

Colour gravel(float u, float v, std::uint32_t seed, float footprint) {
    const float rough = fractalNoise(u, v, seed, {3.2F, 0.1F, 0.85F}, footprint);
    const Cell patch = cellAt(u / 1.7F, v / 1.7F, seed + 10U);
    return Colour(0.46F, 0.42F, 0.36F) * (0.7F + 0.5F * random(patch.hash, 0)) *
           (1.0F + 0.4F * rough);
}

Colour cobbles(float x, float y, float footprint) {
    const Cell stone = cellAt(x / 0.55F, y / 0.55F, kCobbles);
    const float visible = visibleShare(0.55F, footprint);
    const float shade = mix(0.75F, 0.4F + 0.7F * random(stone.hash, 0), visible);
    const float joint = visible * inside(0.55F * stone.toBorder - 0.03F, footprint);
    const Colour tint(1.0F, 0.92F + 0.08F * random(stone.hash, 1),
                      0.78F + 0.2F * random(stone.hash, 2));
    return Colour(0.62F, 0.58F, 0.52F) * mix(shade, 0.35F, joint) * tint;
}

/// Grass and bare soil with tufts, stones and flowers in it.
Colour meadow(float x, float y, float soil, float footprint) {
    const float fields = fractalNoise(x, y, kFields, {40.0F, 10.0F, 0.7F}, footprint);
    const Colour grass = blend(Colour(0.2F, 0.27F, 0.07F), Colour(0.42F, 0.38F, 0.15F),
                               clampToUnit(0.5F + 0.6F * fields));
    Colour colour =
        blend(grass, Colour(0.5F, 0.38F, 0.24F), smoothStep(0.05F, 0.5F, soil + 0.4F * fields)) *
        (1.0F + 0.45F * soil);
    const Cell tuft = cellAt(x / 0.9F, y / 0.9F, kTufts);
    const float radius = 0.08F + 0.3F * random(tuft.hash, 0) * random(tuft.hash, 1);
    const float there = smoothStep(radius, 0.6F * radius, 0.9F * tuft.toCentre) *
                        visibleShare(1.6F * radius, footprint);
    const Colour stone = Colour(0.7F, 0.65F, 0.56F) * (0.6F + 0.6F * random(tuft.hash, 3));
    const Colour bush = Colour(0.1F, 0.15F, 0.05F) * (0.6F + 0.9F * random(tuft.hash, 3));
    return blend(colour, random(tuft.hash, 2) < 0.5F ? stone : bush, 0.85F * there);
}

}  // namespace

Colour groundColour(const Eigen::Vector3d& point, float footprint) {
    const auto x = static_cast<float>(point.x());
    const auto y = static_cast<float>(point.y());
    const float wander = fractalNoise(x, y, kPath, {30.0F, 3.0F, 0.5F}, footprint);
    // The market place, and paths where the wandering noise is near 0.
    const float market = std::sqrt(x * x + (y - 2.0F) * (y - 2.0F)) - 13.0F + 4.0F * wander;
    const float path = 14.0F * (std::abs(wander) - 0.11F);
    const float paved = smoothStep(0.4F, -0.4F, std::min(market, path));
    const float soil = fractalNoise(x, y, kSoil, {3.2F, 0.1F, 0.85F}, footprint);
    if (paved <= 0.0F) return meadow(x, y, soil, footprint);
    const Colour stones = cobbles(x, y, footprint) * (1.0F + 0.3F * soil);
    return paved < 1.0F ? blend(meadow(x, y, soil, footprint), stones, paved) : stones;
}

Colour houseColour(const House& house, int face, const Eigen::Vector3d& point, std::uint32_t seed,
                   float footprint) {
    const Eigen::Vector2d place = house.onFace(face, point);
    const auto u = static_cast<float>(place.x());
    const auto v = static_cast<float>(place.y());
    const House::Plan& plan = house.plan();
    const std::uint32_t faceSeed = latticeHash(face, 3, seed);
    if (face <= House::east) {
        const bool isLong = face == House::south || face == House::north;
        const auto width = static_cast<float>(isLong ? plan.length : plan.width);
        return wallColour(house, u, v, width, faceSeed, footprint);
    }
    if (plan.finish == House::Finish::cloth) {
        return cloth(u, v, faceSeed, Colour(plan.red, plan.green, plan.blue), footprint);
    }
    return plan.roof == House::Roof::flat ? gravel(u, v, faceSeed, footprint)
                                          : roofColour(u, v, faceSeed, footprint);
}

Colour treeColour(const Ellipsoid& tree, const Eigen::Vector3d& point, std::uint32_t seed,
                  float footprint) {
    const Eigen::Vector3f p = (point - tree.centre).cast<float>();
    const float leaves = fractalNoise(p.x(), p.y(), p.z(), seed, {1.0F, 0.12F, 1.05F}, footprint);
    const Colour green(0.13F + 0.07F * random(seed, 0), 0.165F + 0.05F * random(seed, 1), 0.06F);
    return green * (0.2F + 1.7F * smoothStep(-0.9F, 1.1F, leaves));
}

Colour hillColour(const Eigen::Vector3d& point, float footprint) {
    const auto x = static_cast<float>(point.x());
    const auto y = static_cast<float>(point.y());
    const auto z = static_cast<float>(point.z());
    const float rock = fractalNoise(x, y, z, kRock, {24.0F, 0.4F, 0.8F}, footprint);
    Colour slope = blend(Colour(0.3F, 0.29F, 0.13F), Colour(0.52F, 0.45F, 0.36F),
                         smoothStep(0.0F, 0.5F, rock)) *
                   (1.0F + 0.5F * rock);
    // Tree tops, from above nearly round; more of them where there is less rock.
    constexpr float kSpacing = 3.0F;
    const Cell tree = cellAt(x / kSpacing, y / kSpacing, kRock + 20U);
    if (random(tree.hash, 1) < 0.45F + 0.9F * rock) return slope;
    const float radius = 0.2F + 0.4F * random(tree.hash, 0);
    const float grain = fractalNoise(x, y, kRock + 30U, {1.6F, 0.4F, 0.9F}, footprint);
    const float there = inside(kSpacing * (tree.toCentre - radius) + 0.5F * grain, footprint);
    const Colour leaves = Colour(0.13F, 0.18F, 0.06F) * (0.5F + 1.1F * random(tree.hash, 2)) *
                          (1.2F - tree.toCentre) * (1.0F + 0.7F * grain);
    return blend(slope, leaves, 0.9F * there);
}

}  // namespace marlo::app
