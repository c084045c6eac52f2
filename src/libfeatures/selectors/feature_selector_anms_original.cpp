// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_anms_original.h"

#include "libfeatures/selectors/detail/anms_records.h"

namespace marlo {

std::unique_ptr<IKeypointSelector> KeypointSelectorAnmsOriginal::clone() const {
    return std::make_unique<KeypointSelectorAnmsOriginal>(*this);
}

void KeypointSelectorAnmsOriginal::setNumberOfKeypoints(std::uint64_t count) {
    storeNumber(count);
}

void KeypointSelectorAnmsOriginal::select(const std::vector<Keypoint>& in,
                                          std::vector<Keypoint>& out) {
    checkNoInPlace(in, out);
    selectBy(detail::AnmsRule::rounded, in, out);
}

void KeypointSelectorAnmsOriginal::selectIndices(const std::vector<Keypoint>& in,
                                                 std::vector<std::size_t>& out) {
    selectIndicesBy(detail::AnmsRule::rounded, in, out);
}

}  // namespace marlo
