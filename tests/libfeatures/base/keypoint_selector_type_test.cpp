// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/keypoint_selector_type.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace marlo {
namespace {

std::string refusalOfText(const QString& given) {
    try {
        (void)text::fromString<KeypointSelectorType>(given);
    } catch (const std::range_error& error) {
        return error.what();
    }
    return "accepted";
}

std::string refusalOfValue(int value) {
    try {
        (void)text::toString(static_cast<KeypointSelectorType>(value));
    } catch (const std::range_error& error) {
        return error.what();
    }
    return "accepted";
}

TEST(KeypointSelectorTypeTest, HasTheStatedValues) {
    EXPECT_EQ(static_cast<int>(KeypointSelectorType::Automatic), 0);
    EXPECT_EQ(static_cast<int>(KeypointSelectorType::CustomNumberOfKeypoints), 1);
    EXPECT_EQ(sizeof(KeypointSelectorType), 1U);
}

TEST(KeypointSelectorTypeTest, HasTheStatedTexts) {
    EXPECT_EQ(text::toString(KeypointSelectorType::Automatic), QLatin1String("Automatic"));
    EXPECT_EQ(text::toString(KeypointSelectorType::CustomNumberOfKeypoints),
              QLatin1String("CustomNumberOfKeypoints"));
}

TEST(KeypointSelectorTypeTest, ComesBackFromItsText) {
    for (const auto value :
         {KeypointSelectorType::Automatic, KeypointSelectorType::CustomNumberOfKeypoints}) {
        EXPECT_EQ(text::fromString<KeypointSelectorType>(text::toString(value)), value);
    }
}

TEST(KeypointSelectorTypeTest, RefusesOtherTexts) {
    const std::string message = "Error converting from text to KeypointSelectorType: ";
    EXPECT_EQ(refusalOfText(QStringLiteral("automatic")), message + "automatic");
    EXPECT_EQ(refusalOfText(QStringLiteral(" Automatic")), message + " Automatic");
    EXPECT_EQ(refusalOfText(QString()), message);
    EXPECT_EQ(refusalOfText(QString::fromUtf8("\xC3\xA4")), message + "\xC3\xA4");
}

TEST(KeypointSelectorTypeTest, RefusesOtherValues) {
    const std::string message = "Error converting from KeypointSelectoType to text: ";
    EXPECT_EQ(refusalOfValue(7), message + "7");
    EXPECT_EQ(refusalOfValue(255), message + "255");
}

}  // namespace
}  // namespace marlo
