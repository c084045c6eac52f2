// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_default.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "support/log.h"

namespace marlo {
namespace {

constexpr std::size_t kFirstPassCells = 120000;
constexpr std::size_t kLowerBound = 20000;
constexpr std::size_t kUpperBound = 80000;
constexpr float kSmallestCellHeight = 3.0F;  // pixels

// Truncation toward zero. What has no 32-bit value gives the smallest one, as the x86 conversion
// does; the language leaves it undefined.
std::int32_t truncated(float value) {
    constexpr float kLimit = 2147483648.0F;
    return value >= -kLimit && value < kLimit ? static_cast<std::int32_t>(value)
                                              : std::numeric_limits<std::int32_t>::min();
}

// Rounding, not flooring, so the last cell of a grid row has the number of the first of the next.
class CellGrid {
public:
    CellGrid(int height, int width, std::size_t targetCells) {
        const auto a = static_cast<float>(height);
        const auto b = static_cast<float>(width);
        const float aspect = b / a;
        const float root = std::sqrt(static_cast<float>(targetCells) / aspect);
        const float rows = std::min(a / kSmallestCellHeight, root < 1.0F ? 1.0F : std::ceil(root));
        cols_ = static_cast<std::int32_t>(std::ceil(aspect * rows));
        cellsPerPixelX_ = static_cast<float>(cols_) / b;
        cellsPerPixelY_ = rows / a;
    }

    [[nodiscard]] std::int32_t cellOf(const Keypoint& keypoint) const {
        const std::int64_t column = truncated(keypoint.x * cellsPerPixelX_ + 0.5F);
        const std::int64_t row = truncated(keypoint.y * cellsPerPixelY_ + 0.5F);
        return static_cast<std::int32_t>(column + row * cols_);  // modulo 2^32
    }

private:
    std::int32_t cols_;
    float cellsPerPixelX_;
    float cellsPerPixelY_;
};

// The positions kept, by ascending cell and within a cell in input order.
std::vector<std::size_t> reduceToGrid(const std::vector<Keypoint>& in, const CellGrid& grid,
                                      float threshold) {
    struct Candidate {
        std::int32_t cell;
        std::size_t position;
    };
    std::vector<Candidate> candidates;
    candidates.reserve(in.size());
    for (std::size_t position = 0; position < in.size(); ++position) {
        if (in[position].response >= threshold) {
            candidates.push_back({grid.cellOf(in[position]), position});
        }
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Candidate& a, const Candidate& b) { return a.cell < b.cell; });

    std::vector<std::size_t> kept;
    std::size_t cellBegin = 0;  // where in `kept` the current cell begins
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        const bool newCell = i == 0 || candidates[i].cell != candidates[i - 1].cell;
        if (newCell) {
            cellBegin = kept.size();
            kept.push_back(candidates[i].position);
            continue;
        }
        const float response = in[candidates[i].position].response;
        const float best = in[kept[cellBegin]].response;
        if (response > best) {
            kept.resize(cellBegin);
        }
        if (response >= best) {
            kept.push_back(candidates[i].position);
        }
    }

    log::LogStreamer(log::defaultLogSource(), log::Level::Information, {},
                     {"feature_selector_default", 166})
        << "nrKey: " << kept.size();
    return kept;
}

}  // namespace

void KeypointSelectorDefault::setParams(int height, int width) {
    if (height < 1 || width < 1) {
        throw std::out_of_range("Parameters out of range");
    }
    height_ = height;
    width_ = width;
}

std::unique_ptr<IKeypointSelector> KeypointSelectorDefault::clone() const {
    return std::make_unique<KeypointSelectorDefault>(*this);
}

void KeypointSelectorDefault::setNumberOfKeypoints(std::uint64_t /*count*/) {}

void KeypointSelectorDefault::select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) {
    if (width_ < 1 || height_ < 1) {
        throw std::runtime_error("Parameters have not been set");
    }
    if (in.empty()) {
        throw std::runtime_error("Input keypoints are empty");
    }
    checkNoInPlace(in, out);

    std::vector<std::size_t> kept =
        reduceToGrid(in, CellGrid(height_, width_, kFirstPassCells), responseThreshold_);
    if (kept.size() < kLowerBound) {
        log::LogStreamer(log::defaultLogSource(), log::Level::Information)
            << "Selected: " << kept.size() << " lowerBound " << kLowerBound
            << ". Running selection without threshold...";
        kept = reduceToGrid(in, CellGrid(height_, width_, kLowerBound), 0.0F);
    } else if (kept.size() > kUpperBound) {
        log::LogStreamer(log::defaultLogSource(), log::Level::Information)
            << "Selected: " << kept.size() << " upperBound " << kUpperBound
            << ". Running selection with grid reduction...";
        kept = reduceToGrid(in, CellGrid(height_, width_, kUpperBound), 0.0F);
    }

    out.clear();
    out.reserve(kept.size());
    for (const std::size_t position : kept) {
        out.push_back(in[position]);
    }
}

void KeypointSelectorDefault::selectIndices(const std::vector<Keypoint>& /*in*/,
                                            std::vector<std::size_t>& /*out*/) {
    throw std::runtime_error("This case has not been implemented yet");
}

}  // namespace marlo
