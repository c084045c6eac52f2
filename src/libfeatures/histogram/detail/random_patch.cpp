// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/histogram/detail/random_patch.h"

#include <algorithm>
#include <cmath>

namespace marlo::detail {
namespace {

// Lengths are in cells of the descriptor, 3 standard deviations of the keypoint's scale, and
// positions are from the keypoint. The numbers were fitted to 100,000 descriptors of photographs:
// with them the nearest of 1024 words is the nearest, on the mean (docs/similarity.md).
constexpr float kSpotRadius = 0.46F;       // half the width of a line
constexpr float kSpotOffset = 0.86F;       // of the spot's centre, deviation
constexpr float kSpotContrast = 0.47F;     // the other outline has 1 at most
constexpr float kOutlineRadius = 1.23F;    // at least; radii r are as frequent as 1 / r^2
constexpr float kLargestOutline = 0.035F;  // the least radius over the largest
constexpr float kOutlineOffset = 1.84F;    // of the outline from the keypoint, deviation
constexpr float kElongation = 72.0F;       // at most; most are much rounder
constexpr float kBlur = 0.93F;             // half the width of an edge
constexpr float kNoise = 0.144F;           // of a gradient component, deviation
constexpr float kNoiseSpread = 0.7F;       // patches have 0.3 to 1.7 times as much
constexpr float kWindow = 3.8F;            // weights are 0 from here on
// Directions within 32 degrees, as far off as this, count for the keypoint's own.
constexpr float kDirectionWindow = 1.6F;
constexpr float kDirectionCosine = 0.85F;

constexpr int kSamples = 16;                    // a side
constexpr float kSampleStep = 5.0F / kSamples;  // half a cell beyond the outer ones
constexpr int kDirectionSamples = 7;
constexpr float kDirectionStep = 0.5F;
constexpr int kTurns = 32;  // directions to choose the keypoint's from

struct Vector {
    float x = 0.0F;
    float y = 0.0F;
};

Vector operator+(Vector a, Vector b) {
    return {a.x + b.x, a.y + b.y};
}

Vector operator*(float factor, Vector v) {
    return {factor * v.x, factor * v.y};
}

float dot(Vector a, Vector b) {
    return a.x * b.x + a.y * b.y;
}

float length(Vector v) {
    return std::sqrt(dot(v, v));
}

// As complex numbers: turns `v` by the angle of `direction`.
Vector turned(Vector v, Vector direction) {
    return {v.x * direction.x - v.y * direction.y, v.x * direction.y + v.y * direction.x};
}

Vector conjugate(Vector v) {
    return {v.x, -v.y};
}

// (1 - (d / reach)^2)^2 up to `reach`, of a squared distance d^2: a smooth hump.
float hump(float square, float reach) {
    const float rest = std::max(0.0F, 1.0F - square / (reach * reach));
    return rest * rest;
}

// Of length 1, any as often as another: a place in a disc, without sines.
Vector anyDirection(PatchRandom& random) {
    while (true) {
        const float x = 2.0F * random.even() - 1.0F;
        const float y = 2.0F * random.even() - 1.0F;
        const float norm = length({x, y});
        if (norm > 0.1F && norm <= 1.0F) return {x / norm, y / norm};
    }
}

// A filled ellipse with a soft edge.
struct Ellipse {
    Vector centre;
    Vector axis;  // the direction of the first half axis
    float halfAxes[2];
    float contrast;

    [[nodiscard]] Vector gradientAt(Vector place) const {
        const Vector own = turned(place + -1.0F * centre, conjugate(axis));
        const Vector unit{own.x / halfAxes[0], own.y / halfAxes[1]};
        const float radius = length(unit) + 1e-6F;  // 1 on the outline
        const Vector normal{unit.x / halfAxes[0], unit.y / halfAxes[1]};
        const float slope = length(normal) + 1e-6F;
        const float distance = (radius - 1.0F) * radius / slope;  // from the outline, nearly
        // In the middle of a small spot there is no direction.
        const float size =
            contrast * hump(distance * distance, kBlur) * std::min(1.0F, 3.0F * radius);
        return turned((size / slope) * normal, axis);
    }
};

Ellipse anyEllipse(Vector centre, float halfAxis, float contrast, PatchRandom& random) {
    const float u = random.even();
    const Vector axis = anyDirection(random);
    return {centre,
            axis,
            {halfAxis, halfAxis * (1.0F + kElongation * u * u)},
            random.sign() * contrast};
}

struct Picture {
    Ellipse spot;
    Ellipse outline;

    [[nodiscard]] Vector gradientAt(Vector place) const {
        return spot.gradientAt(place) + outline.gradientAt(place);
    }
};

Picture anyPicture(PatchRandom& random) {
    const float spotRadius = kSpotRadius * (0.6F + 0.8F * random.even());
    const float x = kSpotOffset * random.normal();
    const float y = kSpotOffset * random.normal();
    const float spotContrast = kSpotContrast * (0.3F + 0.7F * random.even());
    const Ellipse spot = anyEllipse({x, y}, spotRadius, spotContrast, random);

    const float radius = kOutlineRadius / (kLargestOutline + random.even());
    const float distance = radius + kOutlineOffset * random.normal();
    const Vector centre = distance * anyDirection(random);
    const float contrast = std::sqrt(random.even());
    return {spot, anyEllipse(centre, radius, contrast, random)};
}

// One of a row of places around 0.
float placeOf(int sample, int samples, float step) {
    return (static_cast<float>(sample) - static_cast<float>(samples - 1) / 2.0F) * step;
}

// The direction in which gradients around the keypoint are the largest.
Vector mainDirection(const Picture& picture) {
    constexpr Vector kTurn{0.98078528F, 0.19509032F};  // a 32nd of a full turn
    Vector gradients[kDirectionSamples * kDirectionSamples];
    float least[kDirectionSamples * kDirectionSamples];  // that counts along a direction
    int count = 0;
    for (int i = 0; i < kDirectionSamples * kDirectionSamples; ++i) {
        const Vector place{placeOf(i % kDirectionSamples, kDirectionSamples, kDirectionStep),
                           placeOf(i / kDirectionSamples, kDirectionSamples, kDirectionStep)};
        const float weight = hump(dot(place, place), kDirectionWindow);
        if (weight == 0.0F) continue;
        gradients[count] = weight * picture.gradientAt(place);
        least[count] = kDirectionCosine * length(gradients[count]);
        ++count;
    }
    Vector best;
    float most = -1.0F;
    Vector direction{1.0F, 0.0F};
    for (int turn = 0; turn < kTurns; ++turn, direction = turned(direction, kTurn)) {
        float sum = 0.0F;
        for (int i = 0; i < count; ++i) {
            const float along = gradients[i].x * direction.x + gradients[i].y * direction.y;
            if (along > least[i]) sum += along - least[i];
        }
        if (sum > most) {
            most = sum;
            best = direction;
        }
    }
    return best;
}

// A gradient as a sum of two vectors along neighbouring directions, multiples of 45 degrees.
struct Share {
    std::size_t direction;
    float size;
};
std::array<Share, 2> sharesOf(Vector gradient) {
    constexpr float kRootOfTwo = 1.4142135F;
    const float x = std::abs(gradient.x);
    const float y = std::abs(gradient.y);
    const bool right = gradient.x >= 0.0F;
    const bool down = gradient.y >= 0.0F;
    const std::size_t axis = x >= y ? (right ? 0 : 4) : (down ? 2 : 6);
    const std::size_t diagonal = down ? (right ? 1 : 3) : (right ? 7 : 5);
    return {Share{axis, std::abs(x - y)}, Share{diagonal, kRootOfTwo * std::min(x, y)}};
}

// Linear interpolation between the centres of cells, at -1.5, -0.5, 0.5 and 1.5 in x and y.
void addSample(Vector place, Vector gradient, PatchDescriptor& descriptor) {
    const std::array<Share, 2> shares = sharesOf(gradient);
    const float left = std::floor(place.x + 1.5F);
    const float top = std::floor(place.y + 1.5F);
    for (int i = 0; i < 4; ++i) {
        const float col = left + static_cast<float>(i % 2);
        const float row = top + static_cast<float>(i / 2);
        if (col < 0.0F || col >= kPatchCells || row < 0.0F || row >= kPatchCells) continue;
        const float weight =
            (1.0F - std::abs(place.x + 1.5F - col)) * (1.0F - std::abs(place.y + 1.5F - row));
        const auto cell = static_cast<std::size_t>(row * kPatchCells + col);
        for (const Share& share : shares) {
            descriptor[cell * kPatchDirections + share.direction] += weight * share.size;
        }
    }
}

void scaleToLengthOne(PatchDescriptor& descriptor) {
    float square = 0.0F;
    for (const float value : descriptor) square += value * value;
    const float norm = std::sqrt(square);
    for (float& value : descriptor) value /= norm;
}

}  // namespace

std::uint64_t PatchRandom::next() {
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return state_ * 0x2545f4914f6cdd1dU;
}

float PatchRandom::normal() {
    const std::uint64_t bits = next();
    std::uint64_t sum = 0;
    for (int shift = 0; shift < 64; shift += 16) sum += (bits >> shift) & 0xffffU;
    constexpr float kRootOfThree = 1.7320508F;
    return (static_cast<float>(sum) * 0x1p-16F - 2.0F) * kRootOfThree;
}

PatchDescriptor randomPatchDescriptor(PatchRandom& random) {
    constexpr float kLargest = 0.2F;  // light, not things, makes single gradients steep
    const Picture picture = anyPicture(random);
    const Vector direction = mainDirection(picture);
    const float noise = kNoise * (1.0F - kNoiseSpread + 2.0F * kNoiseSpread * random.even());
    PatchDescriptor descriptor{};
    for (int row = 0; row < kSamples; ++row) {
        for (int col = 0; col < kSamples; ++col) {
            const Vector place{placeOf(col, kSamples, kSampleStep),
                               placeOf(row, kSamples, kSampleStep)};
            const Vector gradient =
                turned(picture.gradientAt(turned(place, direction)), conjugate(direction));
            const float x = noise * random.normal();
            const float y = noise * random.normal();
            const float weight = hump(dot(place, place), kWindow);
            addSample(place, weight * (gradient + Vector{x, y}), descriptor);
        }
    }
    scaleToLengthOne(descriptor);
    for (float& value : descriptor) value = std::min(value, kLargest);
    scaleToLengthOne(descriptor);
    return descriptor;
}

PatchDescriptor mirrored(const PatchDescriptor& descriptor) {
    PatchDescriptor other;
    for (int i = 0; i < static_cast<int>(descriptor.size()); ++i) {
        const int direction = i % kPatchDirections;
        const int col = i / kPatchDirections % kPatchCells;
        const int row = i / kPatchDirections / kPatchCells;
        const int from = ((kPatchCells - 1 - row) * kPatchCells + col) * kPatchDirections +
                         (kPatchDirections - direction) % kPatchDirections;
        other[static_cast<std::size_t>(i)] = descriptor[static_cast<std::size_t>(from)];
    }
    return other;
}

}  // namespace marlo::detail
