// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_top.h"

#include <algorithm>
#include <stdexcept>

#include "libfeatures/selectors/detail/sort_strongest_first.h"
#include "support/log.h"

namespace marlo {

std::unique_ptr<IKeypointSelector> KeypointSelectorTop::clone() const {
    return std::make_unique<KeypointSelectorTop>(*this);
}

void KeypointSelectorTop::setNumberOfKeypoints(std::uint64_t count) {
    numberOfKeypoints_ = count;
}

void KeypointSelectorTop::select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) {
    checkNoInPlace(in, out);
    log::LogStreamer(log::defaultLogSource(), log::Level::Detail, {}, {"feature_selector_top", 29})
        << "FeatureSelectorTOP::select " << in.size()
        << " keypoints as input and you want to select " << numberOfKeypoints_;

    const auto count = std::min<std::uint64_t>(numberOfKeypoints_, in.size());
    if (count == 0) {
        throw std::runtime_error(
            "Number of keypoints to select or the number of input keypoints is 0");
    }
    std::vector<Keypoint> sorted = in;
    detail::sortStrongestFirst(sorted);
    out.assign(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(count));
}

void KeypointSelectorTop::selectIndices(const std::vector<Keypoint>& /*in*/,
                                        std::vector<std::size_t>& /*out*/) {
    throw std::runtime_error("Not implemented yet");
}

}  // namespace marlo
