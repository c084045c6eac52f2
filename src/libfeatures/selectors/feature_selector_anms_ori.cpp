// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_anms_ori.h"

#include "libfeatures/selectors/detail/anms_records.h"

namespace marlo {

std::unique_ptr<IKeypointSelector> KeypointSelectorAnmsOri::clone() const {
    return std::make_unique<KeypointSelectorAnmsOri>(*this);
}

void KeypointSelectorAnmsOri::setNumberOfKeypoints(std::uint64_t count) {
    storeNumber(count);
}

void KeypointSelectorAnmsOri::select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) {
    checkNoInPlace(in, out);
    selectBy(detail::AnmsRule::coincident, in, out);
}

void KeypointSelectorAnmsOri::selectIndices(const std::vector<Keypoint>& in,
                                            std::vector<std::size_t>& out) {
    selectIndicesBy(detail::AnmsRule::coincident, in, out);
}

}  // namespace marlo
