// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/extensible_factory.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>
#include <thread>

#include "libfeatures/selectors/feature_selector_top.h"
#include "libfeatures/transforms/default_transform.h"
#include "utilities/hand_written_plug_ins.h"

namespace marlo {
namespace {

using test::PlainDetector;

template <typename T>
std::string refusal(const ExtensibleFactory<T>& factory, const std::string& key) {
    try {
        (void)factory.create(key);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "created";
}

ExtensibleFactory<IKeypointDetector>::Creator detectorWithOrientations(bool orientations) {
    return [orientations] {
        auto detector = std::make_unique<PlainDetector>();
        detector->orientations = orientations;
        return detector;
    };
}

TEST(ExtensibleFactoryTest, CreatesWhatIsRegisteredUnderTheKey) {
    ExtensibleFactory<IKeypointDetector> factory;
    factory.registerType("with", detectorWithOrientations(true));
    factory.registerType("without", detectorWithOrientations(false));
    EXPECT_TRUE(factory.create("with")->hasOrientations());
    EXPECT_FALSE(factory.create("without")->hasOrientations());
}

TEST(ExtensibleFactoryTest, MakesANewObjectAtEveryCall) {
    ExtensibleFactory<IKeypointDetector> factory;
    factory.registerType("one", detectorWithOrientations(true));
    const auto first = factory.create("one");
    const auto second = factory.create("one");
    EXPECT_NE(first.get(), second.get());
}

TEST(ExtensibleFactoryTest, LastRegistrationOfAKeyWins) {
    ExtensibleFactory<IKeypointDetector> factory;
    factory.registerType("one", detectorWithOrientations(true));
    factory.registerType("one", detectorWithOrientations(false));
    EXPECT_FALSE(factory.create("one")->hasOrientations());
}

TEST(ExtensibleFactoryTest, RefusesAnUnknownKeyNamingInterfaceAndKey) {
    EXPECT_EQ(refusal(ExtensibleFactory<IKeypointDetector>(), "ORB"),
              "marlo::IKeypointDetector - The type (ORB) is not registered");
    EXPECT_EQ(refusal(ExtensibleFactory<IDescriptorExtractor>(), ""),
              "marlo::IDescriptorExtractor - The type () is not registered");
    EXPECT_EQ(refusal(ExtensibleFactory<IDescriptorMatcher>(), "x"),
              "marlo::IDescriptorMatcher - The type (x) is not registered");
    EXPECT_EQ(refusal(ExtensibleFactory<IKeypointSelector>(), "x"),
              "marlo::IKeypointSelector - The type (x) is not registered");
    EXPECT_EQ(refusal(ExtensibleFactory<ITransform>(), "x"),
              "marlo::ITransform - The type (x) is not registered");
}

TEST(ExtensibleFactoryTest, KeysAreCaseSensitive) {
    ExtensibleFactory<IKeypointDetector> factory;
    factory.registerType("LDAH", detectorWithOrientations(true));
    EXPECT_NE(factory.create("LDAH"), nullptr);
    EXPECT_EQ(refusal(factory, "ldah"),
              "marlo::IKeypointDetector - The type (ldah) is not registered");
}

TEST(ExtensibleFactoryTest, RefusesAnEmptyCreatorAndKeepsTheOldOne) {
    ExtensibleFactory<IKeypointDetector> factory;
    factory.registerType("one", detectorWithOrientations(true));
    EXPECT_THROW(factory.registerType("one", {}), std::invalid_argument);
    EXPECT_NE(factory.create("one"), nullptr);
}

TEST(ExtensibleFactoryInstanceTest, IsOneForTheProcessAndInterface) {
    std::array<const void*, 8> seen{};
    std::array<std::thread, 8> threads;
    for (std::size_t i = 0; i < threads.size(); ++i) {
        threads[i] =
            std::thread([&seen, i] { seen[i] = &extensibleFactoryInstance<IDescriptorMatcher>(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const void* const instance : seen) {
        EXPECT_EQ(instance, &extensibleFactoryInstance<IDescriptorMatcher>());
    }
}

TEST(ExtensibleFactoryInstanceTest, OneKeyMayMeanSomethingElseInEachRegistry) {
    extensibleFactoryInstance<IKeypointSelector>().registerType(
        "same key", [] { return std::make_unique<KeypointSelectorTop>(); });
    extensibleFactoryInstance<ITransform>().registerType(
        "same key", [] { return std::make_unique<DefaultTransform>(); });
    const auto selector = extensibleFactoryInstance<IKeypointSelector>().create("same key");
    const auto transform = extensibleFactoryInstance<ITransform>().create("same key");
    EXPECT_NE(dynamic_cast<KeypointSelectorTop*>(selector.get()), nullptr);
    EXPECT_NE(dynamic_cast<DefaultTransform*>(transform.get()), nullptr);
}

}  // namespace
}  // namespace marlo
