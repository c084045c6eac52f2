// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/detail/describe_keypoints.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "libfeatures/descriptors/detail/descriptor_kernels.h"
#include "libfeatures/descriptors/detail/ldah_kernels.h"

namespace marlo::detail {
namespace {

constexpr float kMostAngle = 50.0F;  // of keypoints whose angle is taken as it stands
// Beyond any image, and small enough that sums of a few are integers of 32 bits.
constexpr float kFarAway = 5.0e8F;
constexpr std::ptrdiff_t kPiece = 16;  // keypoints that a thread takes at a time

// The part of centre - radius ... centre + radius that lies in [0, length), from the centre.
struct Reach {
    std::ptrdiff_t first;
    std::ptrdiff_t last;
};
Reach clipped(std::ptrdiff_t centre, std::ptrdiff_t radius, std::ptrdiff_t length) {
    return {std::max(-radius, -centre), std::min(radius, length - 1 - centre)};
}

// Brings an angle into a range in which it takes a few turns to meet any direction.
float boundedAngle(float angle) {
    return std::fabs(angle) > kMostAngle ? std::remainder(angle, kTwoPi) : angle;
}

// How many turns bring `theta` down to 2 pi or up to 0; a NaN needs none.
int turnsDown(float theta) {
    int turns = 0;
    for (; theta > kTwoPi; theta -= kTwoPi) ++turns;
    return turns;
}
int turnsUp(float theta) {
    int turns = 0;
    for (; theta < 0.0F; theta += kTwoPi) ++turns;
    return turns;
}

// The window of a keypoint at (row, col) with scale sigma, in pixels of the octave.
DescriptorWindow windowOf(float row, float col, float sigma, float keypointAngle,
                          float mostDirection, const GradientSource& gradients) {
    DescriptorWindow window;
    // NaN, too, is nowhere: its window stays empty.
    if (!(std::fabs(row) < kFarAway && std::fabs(col) < kFarAway)) return window;
    const float angle = boundedAngle(keypointAngle);
    const float c = std::cos(angle);
    const float s = std::sin(angle);
    const float inverse = 1.0F / (3.0F * sigma);
    const float radius = 3.0F * sigma * 1.4142137F * 5.0F * 0.5F + 0.5F;
    // A finite scale may still be so large that the radius overflows, which is all of the image.
    if (!std::isfinite(sigma) || std::isnan(radius)) return window;
    const auto r0 = static_cast<std::ptrdiff_t>(row + 0.5F);
    const auto c0 = static_cast<std::ptrdiff_t>(col + 0.5F);
    const auto pixels = static_cast<std::ptrdiff_t>(std::clamp(radius, -1.0F, 4.0F * kFarAway));
    const Reach rows = clipped(r0, pixels, gradients.rows);
    const Reach cols = clipped(c0, pixels, gradients.cols);
    window.centreRow = r0;
    window.centreCol = c0;
    window.firstRow = rows.first;
    window.lastRow = rows.last;
    window.firstCol = cols.first;
    window.lastCol = cols.last;
    window.cosScaled = c * inverse;
    window.sinScaled = s * inverse;
    window.rowShift = -(row - static_cast<float>(r0)) * inverse;
    window.colShift = -(col - static_cast<float>(c0)) * inverse;
    window.angle = angle;
    window.turnsDown = turnsDown(mostDirection - angle);
    window.turnsUp = turnsUp(-mostDirection - angle);
    return window;
}

// Asks for the pixels of a window ahead of their use. A window that is much larger than usual is
// left to the processor.
void prefetch(const GradientSource& gradients, const DescriptorWindow& window) {
    constexpr std::ptrdiff_t kMostRows = 128;
    if (window.lastRow - window.firstRow > kMostRows) return;
    gradients.prefetch(window.centreRow + window.firstRow, window.centreRow + window.lastRow,
                       window.centreCol + window.firstCol, window.centreCol + window.lastCol);
}

DescriptorWindow windowOf(const LevelGradients& level, const Keypoint& keypoint, float imageScale) {
    const float f = level.octaveFactor;
    return windowOf(keypoint.y * imageScale / f, keypoint.x * imageScale / f,
                    imageScale * keypoint.scale / f, keypoint.angle, level.mostDirection,
                    level.gradients);
}

// One keypoint to describe. In the order of the keys, neighbours read the same pixels.
struct Task {
    std::uint64_t key;
    std::uint32_t keypoint;
    std::uint32_t level;
};

std::vector<Task> tasksFor(const std::vector<LevelGradients>& levels,
                           const std::vector<Keypoint>& keypoints, float imageScale) {
    std::vector<Task> tasks;
    tasks.reserve(keypoints.size());
    for (std::size_t i = 0; i < keypoints.size(); ++i) {
        const Keypoint& keypoint = keypoints[i];
        const auto level = std::find_if(levels.begin(), levels.end(), [&](const LevelGradients& l) {
            return l.octave == keypoint.octave && l.layer == keypoint.layer;
        });
        if (level == levels.end()) continue;
        const auto bounded = [&](float x) {
            return static_cast<std::uint64_t>(std::clamp(x > 0.0F ? x : 0.0F, 0.0F, 1.6e7F));
        };
        const auto levelIndex = static_cast<std::uint32_t>(level - levels.begin());
        const std::uint64_t key =
            readingOrder(levelIndex, bounded(keypoint.y * imageScale / level->octaveFactor),
                         bounded(keypoint.x * imageScale / level->octaveFactor));
        tasks.push_back({key, static_cast<std::uint32_t>(i), levelIndex});
    }
    std::sort(tasks.begin(), tasks.end(),
              [](const Task& a, const Task& b) { return a.key < b.key; });
    return tasks;
}

// Copies row i at `rows` to the row of the keypoint of task i.
template <typename Element, std::size_t kColumns>
void copyRows(const Element (*rows)[kColumns], const Task* tasks, std::ptrdiff_t count,
              DescMat& descriptors) {
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        std::memcpy(descriptors.data + tasks[i].keypoint * descriptors.step, rows[i],
                    sizeof rows[i]);
    }
}

}  // namespace

int rowCount(const std::vector<Keypoint>& keypoints) {
    if (keypoints.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        throw std::length_error("Too many keypoints for one descriptor matrix.");
    }
    return static_cast<int>(keypoints.size());
}

void describeKeypoints(const std::vector<LevelGradients>& levels,
                       const std::vector<Keypoint>& keypoints, float imageScale,
                       DescriptorType type, DescMat& descriptors) {
    const std::vector<Task> tasks = tasksFor(levels, keypoints, imageScale);
    const auto count = static_cast<std::ptrdiff_t>(tasks.size());
    const std::ptrdiff_t pieces = (count + kPiece - 1) / kPiece;
    DescriptorFunction* const describe = fastest(descriptorKernels());
    LdahFunction* const makeCodes = fastest(ldahKernels());
    const LdahPanels& panels = ldahPanels();
    const auto windowOfTask = [&](const Task& task) {
        return windowOf(levels[task.level], keypoints[task.keypoint], imageScale);
    };
#pragma omp parallel for schedule(dynamic) if (pieces > 1)
    for (std::ptrdiff_t piece = 0; piece < pieces; ++piece) {
        const std::ptrdiff_t begin = piece * kPiece;
        const std::ptrdiff_t size = std::min(kPiece, count - begin);
        const Task* const some = tasks.data() + begin;
        alignas(64) float rows[kPiece][kDescriptorSize];
        DescriptorWindow next = windowOfTask(some[0]);
        for (std::ptrdiff_t i = 0; i < size; ++i) {
            const DescriptorWindow window = next;
            if (i + 1 < size) {
                next = windowOfTask(some[i + 1]);
                prefetch(levels[some[i + 1].level].gradients, next);
            }
            describe(levels[some[i].level].gradients, window, rows[i]);
        }
        if (type == DescriptorType::SIFT) {
            copyRows(rows, some, size, descriptors);
        } else {
            unsigned char codes[kPiece][kLdahBytes];
            makeCodes(panels, rows[0], size, codes[0]);
            copyRows(codes, some, size, descriptors);
        }
    }
}

}  // namespace marlo::detail
