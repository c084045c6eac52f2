// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_sdc_base.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>

#include "libfeatures/selectors/detail/sort_strongest_first.h"
#include "support/log.h"

namespace marlo {
namespace {

// In whole pixels; 0 if none fits. The low 32 bits of the 64-bit integer, and 0 for what has none,
// as the x86 conversion gives them: an ek beyond reason may end the search.
std::uint32_t cellSizeOf(float radius, float ek) {
    constexpr double kSquareRootOf2 = 1.4142135623730951;
    constexpr double kLimit = 9223372036854775808.0;
    const double size =
        std::floor(static_cast<double>(radius) * static_cast<double>(ek) / kSquareRootOf2 + 0.5);
    if (!(size >= 1.0 && size < kLimit)) {  // a NaN, too: 0 times infinity
        return 0;
    }
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(size));
}

}  // namespace

void KeypointSelectorSdcBase::setParams(int width, int height, float ek, float er) {
    // Written so that a NaN is out of range too.
    if (!(width >= 1 && height >= 1 && ek > 0.0F && er > 0.0F)) {
        throw std::out_of_range("Some of the parameters is out of range");
    }
    width_ = width;
    height_ = height;
    ek_ = ek;
    er_ = er;
}

void KeypointSelectorSdcBase::prepare(const std::vector<Keypoint>& in) {
    numberOfKeypoints_ = std::min<std::uint64_t>(numberOfKeypoints_, in.size());
    if (numberOfKeypoints_ == 0) {
        throw std::runtime_error("Keypoints to select or the number of input keypoints is 0");
    }
    if (width_ == 0 || height_ == 0) {
        throw std::runtime_error("parameters have not been set");
    }
    sorted_ = in;
    detail::sortStrongestFirst(sorted_);
    taken_.clear();  // a call that ran out of memory may have left some
    taken_.reserve(in.size());
    takenByCellSize_.clear();
    radius_ = static_cast<float>(width_);
    step_ = radius_ * 0.5F;
}

bool KeypointSelectorSdcBase::search(const Pass& pass) {
    const std::uint64_t requested = numberOfKeypoints_;
    log::LogStreamer(log::defaultLogSource(), log::Level::Information, {},
                     {"feature_selector_sdc_base", 74})
        << "KeypointSelectorSdc::select " << sorted_.size() << " keypoints as input and "
        << requested << " will be selected."
        << " Width: " << width_ << " Height: " << height_ << " e_k: " << ek_ << ", e_r: " << er_;

    const float mostAccepted = (1.0F + er_) * static_cast<float>(requested);
    for (;;) {
        const std::uint64_t count = taken_.size();
        if (requested <= count && static_cast<float>(count) <= mostAccepted) {
            return true;
        }
        const float radius = count < requested ? radius_ - step_ : radius_ + step_;
        step_ *= 0.5F;
        // The step has become too small to move the radius, and will only become smaller. Another
        // pass would take the same keypoints: with too many of them the repeated cell size would
        // end the search, with too few it would go on for ever. That takes a rare radius. On the
        // way down from too few keypoints the radius approaches either 0, and with it the cell
        // size, or the radius of the last pass that took too many, whose cell size then repeats -
        // unless it stays one rounding step above, where the cell size already differs.
        // So no search has more passes than a float has binary places from 2^30 down to 0: 180.
        if (radius == radius_) {
            return true;
        }
        const std::uint32_t cellSize = cellSizeOf(radius, ek_);
        if (cellSize == 0) {
            return false;
        }
        pass(cellSize, static_cast<std::uint32_t>(radius / static_cast<float>(cellSize)));
        const auto earlier = takenByCellSize_.find(cellSize);
        if (earlier != takenByCellSize_.end() && earlier->second > requested) {
            return true;
        }
        radius_ = radius;
        takenByCellSize_[cellSize] = taken_.size();
    }
}

std::vector<Keypoint> KeypointSelectorSdcBase::readTaken(const std::vector<Keypoint>& source,
                                                         std::uint64_t count) {
    std::vector<Keypoint> keypoints;
    keypoints.reserve(std::min<std::uint64_t>(count, taken_.size()));
    for (std::size_t i = 0; i < taken_.size() && i < count; ++i) {
        keypoints.push_back(source[taken_[i]]);
    }
    taken_.clear();
    taken_.shrink_to_fit();
    return keypoints;
}

std::vector<std::size_t> KeypointSelectorSdcBase::readTakenPositions(std::uint64_t count) {
    taken_.resize(std::min<std::uint64_t>(count, taken_.size()));
    std::vector<std::size_t> positions(taken_.begin(), taken_.end());
    taken_.clear();
    return positions;
}

}  // namespace marlo
