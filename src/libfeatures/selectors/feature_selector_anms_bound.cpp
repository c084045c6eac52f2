// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_anms_bound.h"

#include "libfeatures/selectors/detail/anms_records.h"

namespace marlo {

std::unique_ptr<IKeypointSelector> KeypointSelectorAnmsBound::clone() const {
    return std::make_unique<KeypointSelectorAnmsBound>(*this);
}

void KeypointSelectorAnmsBound::setNumberOfKeypoints(std::uint64_t count) {
    storeNumber(count);
}

void KeypointSelectorAnmsBound::select(const std::vector<Keypoint>& in,
                                       std::vector<Keypoint>& out) {
    checkNoInPlace(in, out);
    selectBy(detail::AnmsRule::divided, in, out);
}

void KeypointSelectorAnmsBound::selectIndices(const std::vector<Keypoint>& in,
                                              std::vector<std::size_t>& out) {
    selectIndicesBy(detail::AnmsRule::divided, in, out);
}

}  // namespace marlo
