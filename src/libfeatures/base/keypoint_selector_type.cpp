// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/keypoint_selector_type.h"

#include <stdexcept>
#include <string>

namespace marlo::text {
namespace {

constexpr char kAutomatic[] = "Automatic";
constexpr char kCustomNumberOfKeypoints[] = "CustomNumberOfKeypoints";

}  // namespace

template <>
KeypointSelectorType fromString<KeypointSelectorType>(const QString& text) {
    if (text == QLatin1String(kAutomatic)) {
        return KeypointSelectorType::Automatic;
    }
    if (text == QLatin1String(kCustomNumberOfKeypoints)) {
        return KeypointSelectorType::CustomNumberOfKeypoints;
    }
    throw std::range_error("Error converting from text to KeypointSelectorType: " +
                           text.toStdString());
}

template <>
QString toString<KeypointSelectorType>(const KeypointSelectorType& value) {
    switch (value) {
        case KeypointSelectorType::Automatic:
            return QLatin1String(kAutomatic);
        case KeypointSelectorType::CustomNumberOfKeypoints:
            return QLatin1String(kCustomNumberOfKeypoints);
    }
    // "Selecto" is how this message has always been spelled; hosts compare it.
    throw std::range_error("Error converting from KeypointSelectoType to text: " +
                           std::to_string(static_cast<int>(value)));
}

}  // namespace marlo::text
