// SPDX-License-Identifier: BSD-3-Clause
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <type_traits>

#include "utilities/hand_written_plug_ins.h"

namespace marlo {
namespace {

using test::DetectorAndExtractor;
using test::Journal;

TEST(CheckNoInPlaceTest, RefusesOneVectorForBoth) {
    const std::vector<Keypoint> list;
    try {
        IKeypointSelector::checkNoInPlace(list, list);
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "keypoint selectors cannot do selection in-place (in == out)");
    }
}

TEST(CheckNoInPlaceTest, AcceptsTwoEmptyVectors) {
    const std::vector<Keypoint> in;
    const std::vector<Keypoint> out;
    EXPECT_NO_THROW(IKeypointSelector::checkNoInPlace(in, out));
}

TEST(PlugInInterfacesTest, OneObjectIsReachableThroughBothInterfaces) {
    Journal journal;
    DetectorAndExtractor object("both", journal);
    IKeypointDetector* const detector = &object;
    auto* const extractor = dynamic_cast<IDescriptorExtractor*>(detector);
    ASSERT_NE(extractor, nullptr);
    EXPECT_EQ(dynamic_cast<IKeypointDetector*>(extractor), detector);
    EXPECT_NE(static_cast<void*>(extractor), static_cast<void*>(detector));
}

TEST(PlugInInterfacesTest, DestroyingThroughEitherInterfaceDestroysOnce) {
    Journal journal;
    std::unique_ptr<IKeypointDetector>(std::make_unique<DetectorAndExtractor>("first", journal))
        .reset();
    std::unique_ptr<IDescriptorExtractor>(std::make_unique<DetectorAndExtractor>("second", journal))
        .reset();
    EXPECT_EQ(journal, (Journal{"first destroyed", "second destroyed"}));
}

// An interface that could be copied would be sliced.
template <typename Interface>
constexpr bool kCannotBeSliced =
    std::is_abstract_v<Interface>&& std::has_virtual_destructor_v<Interface> &&
    !std::is_copy_assignable_v<Interface>;

TEST(PlugInInterfacesTest, AreAbstractWithoutDataAndCannotBeSliced) {
    EXPECT_TRUE(kCannotBeSliced<IKeypointDetector>);
    EXPECT_TRUE(kCannotBeSliced<IDescriptorExtractor>);
    EXPECT_TRUE(kCannotBeSliced<IKeypointSelector>);
    EXPECT_TRUE(kCannotBeSliced<ITransform>);
    EXPECT_TRUE(kCannotBeSliced<IDescriptorMatcher>);
    EXPECT_EQ(sizeof(IKeypointDetector), sizeof(void*));
    EXPECT_EQ(sizeof(IDescriptorExtractor), sizeof(void*));
    EXPECT_EQ(sizeof(IKeypointSelector), sizeof(void*));
    EXPECT_EQ(sizeof(ITransform), sizeof(void*));
    EXPECT_EQ(sizeof(IDescriptorMatcher), sizeof(void*));
}

}  // namespace
}  // namespace marlo
