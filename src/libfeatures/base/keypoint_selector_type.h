// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>

#include "libfeatures/features_export.h"
#include "support/text.h"

namespace marlo {

/// How the number of keypoints to keep is decided.
enum class KeypointSelectorType : std::uint8_t {
    Automatic = 0,                ///< by the program
    CustomNumberOfKeypoints = 1,  ///< by a number that the user gives
};

namespace text {

/// The value named "Automatic" or "CustomNumberOfKeypoints".
/// @throws std::range_error "Error converting from text to KeypointSelectorType: " and the text,
///         for any other text.
template <>
FEATURES_EXPORT KeypointSelectorType fromString<KeypointSelectorType>(const QString& text);

/// @throws std::range_error "Error converting from KeypointSelectoType to text: " and the stored
///         number, for a value that is not an enumerator.
template <>
FEATURES_EXPORT QString toString<KeypointSelectorType>(const KeypointSelectorType& value);

}  // namespace text
}  // namespace marlo
