// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_anms_base.h"

#include <algorithm>
#include <stdexcept>

#include "libfeatures/selectors/detail/anms_records.h"
#include "libfeatures/selectors/detail/sort_strongest_first.h"
#include "support/log.h"

namespace marlo {

std::size_t KeypointSelectorAnmsBase::wanted(const std::vector<Keypoint>& in) const noexcept {
    return static_cast<std::size_t>(std::min<std::uint64_t>(numberOfKeypoints_, in.size()));
}

std::size_t KeypointSelectorAnmsBase::makeRecords(detail::AnmsRule rule,
                                                  const std::vector<Keypoint>& in) {
    const std::size_t count = wanted(in);
    if (count == 0) {
        throw std::runtime_error(
            "Number of keypoints to select or the number of input keypoints is 0");
    }
    sortedKeypoints_ = in;
    detail::sortStrongestFirst(sortedKeypoints_);
    log::LogStreamer(log::defaultLogSource(), log::Level::Detail, {},
                     {"feature_selector_anms_base", 78})
        << "FeatureSelectorAnms::select " << in.size() << " keypoints as input and "
        << numberOfKeypoints_ << " will be selected."
        << " cRobust: " << robustness_;
    const std::size_t before = records_.size();
    try {
        detail::appendAnmsRecords(rule, robustness_, sortedKeypoints_, records_);
        detail::sortLargestRadiusFirst(records_);
    } catch (...) {
        records_.resize(before);  // a call that fails leaves nothing for later ones
        throw;
    }
    return count;
}

void KeypointSelectorAnmsBase::selectBy(detail::AnmsRule rule, const std::vector<Keypoint>& in,
                                        std::vector<Keypoint>& out) {
    out.reserve(wanted(in));  // before there are records that a failure would leave behind
    const std::size_t count = makeRecords(rule, in);
    out.resize(count);
    std::transform(records_.begin(), records_.begin() + static_cast<std::ptrdiff_t>(count),
                   out.begin(), [](const SelectionRecord& record) { return record.keypoint; });
}

void KeypointSelectorAnmsBase::selectIndicesBy(detail::AnmsRule rule,
                                               const std::vector<Keypoint>& in,
                                               std::vector<std::size_t>& out) {
    out.reserve(wanted(in));  // before there are records that a failure would leave behind
    const std::size_t count = makeRecords(rule, in);
    out.resize(count);
    std::transform(
        records_.begin(), records_.begin() + static_cast<std::ptrdiff_t>(count), out.begin(),
        [](const SelectionRecord& record) { return static_cast<std::size_t>(record.position); });
}

}  // namespace marlo
