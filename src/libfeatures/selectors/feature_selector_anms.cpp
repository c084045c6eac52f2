// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_anms.h"

#include "libfeatures/selectors/detail/anms_records.h"

namespace marlo {

std::unique_ptr<IKeypointSelector> KeypointSelectorANMS::clone() const {
    return std::make_unique<KeypointSelectorANMS>(*this);
}

void KeypointSelectorANMS::setNumberOfKeypoints(std::uint64_t count) {
    storeNumber(count);
}

void KeypointSelectorANMS::select(const std::vector<Keypoint>& in, std::vector<Keypoint>& out) {
    checkNoInPlace(in, out);
    selectBy(detail::AnmsRule::multiplied, in, out);
}

void KeypointSelectorANMS::selectIndices(const std::vector<Keypoint>& in,
                                         std::vector<std::size_t>& out) {
    selectIndicesBy(detail::AnmsRule::multiplied, in, out);
}

}  // namespace marlo
