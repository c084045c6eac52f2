// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "libfeatures/base/keypoint.h"
#include "libfeatures/features_export.h"

namespace marlo {

namespace detail {
enum class AnmsRule;
}

/// What the selectors by adaptive non-maximal suppression share. Each keypoint gets a radius, the
/// distance to the nearest keypoint that is clearly stronger, and those with the largest radii are
/// kept (M. Brown, R. Szeliski and S. Winder, Multi-image matching using multi-scale oriented
/// patches, CVPR 2005). Keypoints that are selected so cover the image, and exactly as many as
/// asked for are kept.
///
/// Squared distances are computed in single precision, cut off to whole pixels^2 and kept in 32
/// bits; one that has no 64-bit value, as of a coordinate that is not a number, counts as 0.
/// Keypoints of equal radius are ordered by response; of these, those of earlier calls come first,
/// and then those that Keypoint::operator> puts first.
///
/// The time is that of sorting, about n log n, for keypoints that are spread over most of their
/// extent or share places. It grows with the square of their number where most of them crowd in a
/// small part of it, some pixels apart, and where the order by strength says nothing: with
/// responses that are not a number, a robustness that is not positive and finite, coordinates that
/// are not finite or more than 65535 pixels apart, and on an object that has records of an earlier
/// call.
///
/// An object keeps the records of its calls: keypoints of earlier ones take part in the suppression
/// of later ones and are selected with them. Use a new object, or a clone of an unused one, for
/// each image, unless that is what you want.
class FEATURES_EXPORT KeypointSelectorAnmsBase {
public:
    /// Stores c, without any check: a keypoint suppresses a weaker one only if it is stronger by
    /// the factor 1 / c.
    void setRobustness(float c) noexcept { robustness_ = c; }
    [[nodiscard]] float robustness() const noexcept { return robustness_; }

    /// A keypoint that has been given its radius.
    struct SelectionRecord {
        std::uint64_t position = 0;       ///< among the sorted keypoints, or 0
        std::uint32_t squaredRadius = 0;  ///< pixels^2; the largest value: nothing is stronger
        Keypoint keypoint;
    };

protected:
    KeypointSelectorAnmsBase() = default;
    KeypointSelectorAnmsBase(const KeypointSelectorAnmsBase&) = default;
    KeypointSelectorAnmsBase& operator=(const KeypointSelectorAnmsBase&) = default;
    ~KeypointSelectorAnmsBase() = default;

    FEATURES_HIDDEN void storeNumber(std::uint64_t count) noexcept { numberOfKeypoints_ = count; }
    /// What select() and selectIndices() of the classes do.
    FEATURES_HIDDEN void selectBy(detail::AnmsRule rule, const std::vector<Keypoint>& in,
                                  std::vector<Keypoint>& out);
    FEATURES_HIDDEN void selectIndicesBy(detail::AnmsRule rule, const std::vector<Keypoint>& in,
                                         std::vector<std::size_t>& out);

private:
    [[nodiscard]] FEATURES_HIDDEN std::size_t wanted(
        const std::vector<Keypoint>& in) const noexcept;
    // Makes and sorts the records. Returns how many are wanted.
    FEATURES_HIDDEN std::size_t makeRecords(detail::AnmsRule rule, const std::vector<Keypoint>& in);

    float robustness_ = 0.8F;
    std::uint64_t numberOfKeypoints_ = 0;
    std::vector<Keypoint> sortedKeypoints_;
    std::vector<SelectionRecord> records_;
};

}  // namespace marlo
