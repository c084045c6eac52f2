// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/detail/brief_rows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <span>

#include "libfeatures/descriptors/detail/box_means.h"
#include "libfeatures/descriptors/detail/brief_pattern.h"

namespace marlo::detail {
namespace {

using Eigen::Index;

constexpr int kRowBytes = 64;
constexpr std::size_t kPoints = 1024;
constexpr Index kReach = kBriefReach;
constexpr std::size_t kPositions = 2 * kBriefReach + 1;  // of boxes in one direction
// Pixels. The boxes of a tile, 304 x 304 bytes, stay in the second-level cache; smaller tiles
// compute more boxes twice, and larger ones more that are not needed where keypoints are few.
constexpr Index kTileSide = 256;

// Bytes from some box to those of a pattern: the first and the second of each pair in turn.
using Offsets = std::array<std::int32_t, kPoints>;

// From offset(dx, dy) of each point of the pattern.
template <typename Offset>
Offsets offsetsOf(const Brief::Pattern& pattern, const Offset& offset) {
    Offsets offsets;
    std::int32_t* out = offsets.data();
    for (const Brief::PatternEntry& entry : pattern) {
        *out++ = static_cast<std::int32_t>(offset(entry.dx1, entry.dy1));
        *out++ = static_cast<std::int32_t>(offset(entry.dx2, entry.dy2));
    }
    return offsets;
}

void compareBoxes(const unsigned char* means, const Offsets& offsets, unsigned char* row) {
    const std::int32_t* pair = offsets.data();
    for (int b = 0; b < kRowBytes; ++b) {
        unsigned bits = 0;
        for (int k = 0; k < 8; ++k, pair += 2) {
            bits |= static_cast<unsigned>(means[pair[0]] > means[pair[1]]) << k;
        }
        row[b] = static_cast<unsigned char>(bits);
    }
}

// Whether `coordinate` is in an image of `length` pixels and its boxes lie at d + its whole part.
// They lie elsewhere where rounding takes a sum to the next whole number. Below 2^22, where floats
// are 1/2 apart or less, it does so if no more is missing than half the distance between floats,
// which is greatest at the largest sum: so no sum is taken up if that is not.
bool hasRegularBoxes(float coordinate, Index length) {
    if (!(coordinate >= 0.0F && coordinate < 0x1p22F)) return false;
    const auto whole = static_cast<Index>(coordinate);
    return whole < length &&
           coordinate + static_cast<float>(kReach) < static_cast<float>(whole + kReach + 1);
}

// Where the boxes lie, d + coordinate for d from -24 on: added in single precision, rounded down,
// and no farther out than boxes differ.
std::array<Index, kPositions> boxPositions(float coordinate, Index length) {
    constexpr float kBeyondAnyImage = 0x1p62F;
    const BoxRange all = differentBoxes(length);
    std::array<Index, kPositions> positions{};
    for (std::size_t i = 0; i < positions.size(); ++i) {
        const float d = static_cast<float>(i) - static_cast<float>(kReach);
        const float position = std::floor(d + coordinate);
        if (!(position > static_cast<float>(all.first))) {  // a NaN, too
            positions[i] = all.first;
        } else if (position >= kBeyondAnyImage) {
            positions[i] = all.last;
        } else {
            positions[i] = std::min(static_cast<Index>(position), all.last);
        }
    }
    return positions;
}

void extend(BoxRange& range, Index whole) {
    range.first = std::min(range.first, whole - kReach);
    range.last = std::max(range.last, whole + kReach);
}

// Describes the keypoints tile by tile of the image: the boxes around those of a tile are computed
// together, and read while they are in cache.
class Describer {
public:
    Describer(const ByteImage& image, const std::vector<Keypoint>& keypoints,
              const std::vector<Brief::Pattern>& patterns,
              const std::vector<std::uint8_t>& rotations, DescMat& rows)
        : image_(image),
          keypoints_(keypoints),
          patterns_(patterns),
          rotations_(rotations),
          rows_(rows),
          tilesAcross_((image.cols() - 1) / kTileSide + 1),
          tiles_(static_cast<std::size_t>(tilesAcross_ * ((image.rows() - 1) / kTileSide + 1))),
          means_(image, kTileSide + 2 * kReach),
          offsets_(patterns.size()) {}

    void run() {
        // Numbers of keypoints, sorted by tile; those without regular boxes come last.
        std::vector<std::uint32_t> ends(tiles_ + 2);
        for (const Keypoint& keypoint : keypoints_) ++ends[tileOf(keypoint) + 1];
        for (std::size_t tile = 1; tile < ends.size(); ++tile) ends[tile] += ends[tile - 1];
        std::vector<std::uint32_t> sorted(keypoints_.size());
        for (std::size_t i = 0; i < keypoints_.size(); ++i) {
            sorted[ends[tileOf(keypoints_[i])]++] = static_cast<std::uint32_t>(i);
        }

        std::uint32_t done = 0;
        for (std::size_t tile = 0; tile < tiles_; ++tile) {
            if (done < ends[tile]) describeTogether({&sorted[done], ends[tile] - done});
            done = ends[tile];
        }
        for (; done < sorted.size(); ++done) describeAlone(sorted[done]);
    }

private:
    [[nodiscard]] std::size_t tileOf(const Keypoint& k) const {
        if (!hasRegularBoxes(k.x, image_.cols()) || !hasRegularBoxes(k.y, image_.rows())) {
            return tiles_;
        }
        return static_cast<std::size_t>(static_cast<Index>(k.y) / kTileSide * tilesAcross_ +
                                        static_cast<Index>(k.x) / kTileSide);
    }

    [[nodiscard]] unsigned char* rowOf(std::size_t i) const { return rows_.data + i * rows_.step; }

    void describeTogether(std::span<const std::uint32_t> numbers) {
        BoxRange rows{std::numeric_limits<Index>::max(), 0};
        BoxRange cols = rows;
        for (const std::uint32_t i : numbers) {
            extend(rows, static_cast<Index>(keypoints_[i].y));
            extend(cols, static_cast<Index>(keypoints_[i].x));
        }
        means_.compute(rows, cols);
        for (const std::uint32_t i : numbers) {
            const Keypoint& k = keypoints_[i];
            compareBoxes(means_.at(static_cast<Index>(k.y), static_cast<Index>(k.x)),
                         regularOffsets(rotations_[i]), rowOf(i));
        }
    }

    void describeAlone(std::size_t i) {
        const auto rows = boxPositions(keypoints_[i].y, image_.rows());
        const auto cols = boxPositions(keypoints_[i].x, image_.cols());
        means_.compute({rows.front(), rows.back()}, {cols.front(), cols.back()});
        const unsigned char* const first = means_.at(rows.front(), cols.front());
        const auto offset = [&](int dx, int dy) {
            const auto row = static_cast<std::size_t>(dy + kReach);
            const auto col = static_cast<std::size_t>(dx + kReach);
            return means_.at(rows[row], cols[col]) - first;
        };
        compareBoxes(first, offsetsOf(patterns_[rotations_[i]], offset), rowOf(i));
    }

    // From the box at the keypoint. Made for the rotations that occur.
    const Offsets& regularOffsets(std::size_t rotation) {
        std::unique_ptr<Offsets>& offsets = offsets_[rotation];
        if (!offsets) {
            const std::ptrdiff_t stride = means_.stride();
            offsets = std::make_unique<Offsets>(offsetsOf(
                patterns_[rotation], [stride](int dx, int dy) { return dy * stride + dx; }));
        }
        return *offsets;
    }

    const ByteImage& image_;
    const std::vector<Keypoint>& keypoints_;
    const std::vector<Brief::Pattern>& patterns_;
    const std::vector<std::uint8_t>& rotations_;
    DescMat& rows_;
    Index tilesAcross_;
    std::size_t tiles_;
    BoxMeans means_;
    std::vector<std::unique_ptr<Offsets>> offsets_;  // by rotation
};

}  // namespace

void computeBriefRows(const ByteImage& image, const std::vector<Keypoint>& keypoints,
                      const std::vector<Brief::Pattern>& patterns,
                      const std::vector<std::uint8_t>& rotations, DescMat& rows) {
    Describer(image, keypoints, patterns, rotations, rows).run();
}

}  // namespace marlo::detail
