// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/registration.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <typeinfo>

#include "libfeatures/base/extensible_factory.h"
#include "libfeatures/descriptors/descriptor_brief.h"
#include "libfeatures/descriptors/sift_ldah_descriptor.h"
#include "libfeatures/detectors/feature_detector_ldah_cuda.h"
#include "libfeatures/detectors/features_2d_sift_ldah.h"
#include "libfeatures/matchers/desc_matcher_dist_frac.h"
#include "libfeatures/matchers/desc_matcher_dist_frac_cuda.h"
#include "libfeatures/matchers/desc_matcher_dist_frac_mutual.h"
#include "libfeatures/matchers/desc_matcher_left_right.h"
#include "libfeatures/selectors/feature_selector_anms.h"
#include "libfeatures/selectors/feature_selector_anms_bound.h"
#include "libfeatures/selectors/feature_selector_anms_ori.h"
#include "libfeatures/selectors/feature_selector_anms_original.h"
#include "libfeatures/selectors/feature_selector_default.h"
#include "libfeatures/selectors/feature_selector_sdc.h"
#include "libfeatures/selectors/feature_selector_sdc_orientations.h"
#include "libfeatures/selectors/feature_selector_top.h"
#include "libfeatures/transforms/default_transform.h"
#include "libfeatures/transforms/spherical_transform.h"

namespace marlo {
namespace {

template <typename Implementation, typename Interface>
bool creates(const char* key) {
    const std::unique_ptr<Interface> plugIn = extensibleFactoryInstance<Interface>().create(key);
    const Interface& object = *plugIn;
    return typeid(object) == typeid(Implementation);
}

template <typename Interface>
bool makesSift(const char* key) {
    const std::unique_ptr<Interface> plugIn = extensibleFactoryInstance<Interface>().create(key);
    return dynamic_cast<SiftLdahBaseParams&>(*plugIn).useSift;
}

class RegistrationTest : public testing::Test {
protected:
    static void registerAll() {
        registerMainFeatureDetectors();
        registerMainDescriptorExtractors();
        registerMainDescriptorMatchers();
        registerMainKeypointSelectors();
        registerMainTransforms();
    }
};

// First in the file: the registries of this process are still as they start.
TEST_F(RegistrationTest, NothingIsRegisteredUntilTheHostAsks) {
    EXPECT_THROW((void)extensibleFactoryInstance<IKeypointDetector>().create("SIFT"),
                 std::runtime_error);
    EXPECT_THROW((void)extensibleFactoryInstance<IDescriptorExtractor>().create("SIFT"),
                 std::runtime_error);
    EXPECT_THROW((void)extensibleFactoryInstance<IDescriptorMatcher>().create("DistFrac"),
                 std::runtime_error);
    EXPECT_THROW((void)extensibleFactoryInstance<IKeypointSelector>().create("TOP"),
                 std::runtime_error);
    EXPECT_THROW((void)extensibleFactoryInstance<ITransform>().create("Default"),
                 std::runtime_error);
}

TEST_F(RegistrationTest, KeysCreateTheirClasses) {
    registerAll();
    EXPECT_TRUE((creates<Features2dSiftLdah, IKeypointDetector>("LDAH")));
    EXPECT_TRUE((creates<Features2dSiftLdah, IKeypointDetector>("SIFT")));
    EXPECT_TRUE((creates<FeatureDetectorLDAHCuda, IKeypointDetector>("LDAHCuda")));
    EXPECT_TRUE((creates<FeatureDetectorLDAHCuda, IKeypointDetector>("SIFTCuda")));
    EXPECT_TRUE((creates<Features2dSiftLdah, IDescriptorExtractor>("LDAH")));
    EXPECT_TRUE((creates<Features2dSiftLdah, IDescriptorExtractor>("SIFT")));
    EXPECT_TRUE((creates<Brief, IDescriptorExtractor>("Brief")));
    EXPECT_TRUE((creates<SiftLdahDescriptor, IDescriptorExtractor>("LDAHCuda")));
    EXPECT_TRUE((creates<SiftLdahDescriptor, IDescriptorExtractor>("SIFTCuda")));
    EXPECT_TRUE((creates<DescMatcherDistFrac, IDescriptorMatcher>("DistFrac")));
    EXPECT_TRUE((creates<DescMatcherDistFracCuda, IDescriptorMatcher>("DistFracCuda")));
    EXPECT_TRUE((creates<DescMatcherDistFracMutual, IDescriptorMatcher>("DistFracMutual")));
    EXPECT_TRUE((creates<DescMatcherLeftRight, IDescriptorMatcher>("LeftRight")));
    EXPECT_TRUE((creates<KeypointSelectorSdc, IKeypointSelector>("SDC")));
    EXPECT_TRUE((creates<KeypointSelectorSdcOrientations, IKeypointSelector>("SDCOri")));
    EXPECT_TRUE((creates<KeypointSelectorANMS, IKeypointSelector>("ANMS")));
    EXPECT_TRUE((creates<KeypointSelectorAnmsBound, IKeypointSelector>("ANMSBound")));
    EXPECT_TRUE((creates<KeypointSelectorAnmsOri, IKeypointSelector>("ANMSOri")));
    EXPECT_TRUE((creates<KeypointSelectorAnmsOriginal, IKeypointSelector>("ANMSOrig")));
    EXPECT_TRUE((creates<KeypointSelectorTop, IKeypointSelector>("TOP")));
    EXPECT_TRUE((creates<KeypointSelectorDefault, IKeypointSelector>("Default")));
    EXPECT_TRUE((creates<DefaultTransform, ITransform>("Default")));
    EXPECT_TRUE((creates<SphericalTransform, ITransform>("Spherical")));
}

TEST_F(RegistrationTest, KeysSayWhichRowsAreMade) {
    registerAll();
    EXPECT_FALSE(makesSift<IKeypointDetector>("LDAH"));
    EXPECT_TRUE(makesSift<IKeypointDetector>("SIFT"));
    EXPECT_FALSE(makesSift<IDescriptorExtractor>("LDAH"));
    EXPECT_TRUE(makesSift<IDescriptorExtractor>("SIFT"));
    EXPECT_FALSE(makesSift<IDescriptorExtractor>("LDAHCuda"));
    EXPECT_TRUE(makesSift<IDescriptorExtractor>("SIFTCuda"));
    // The GPU detector is the same for both.
    EXPECT_FALSE(makesSift<IKeypointDetector>("LDAHCuda"));
    EXPECT_FALSE(makesSift<IKeypointDetector>("SIFTCuda"));
}

TEST_F(RegistrationTest, KeysAreCaseSensitive) {
    registerAll();
    EXPECT_THROW((void)extensibleFactoryInstance<IKeypointDetector>().create("ldah"),
                 std::runtime_error);
    EXPECT_THROW((void)extensibleFactoryInstance<IKeypointDetector>().create("LDAHcuda"),
                 std::runtime_error);
    EXPECT_THROW((void)extensibleFactoryInstance<IKeypointSelector>().create("top"),
                 std::runtime_error);
}

TEST_F(RegistrationTest, RegisteringAgainLeavesKeysAndClasses) {
    registerAll();
    registerAll();
    EXPECT_TRUE((creates<Features2dSiftLdah, IKeypointDetector>("LDAH")));
    EXPECT_TRUE((creates<FeatureDetectorLDAHCuda, IKeypointDetector>("LDAHCuda")));
    EXPECT_TRUE((creates<SiftLdahDescriptor, IDescriptorExtractor>("SIFTCuda")));
    EXPECT_TRUE((creates<DescMatcherDistFracCuda, IDescriptorMatcher>("DistFracCuda")));
    EXPECT_TRUE((creates<KeypointSelectorTop, IKeypointSelector>("TOP")));
    EXPECT_TRUE((creates<KeypointSelectorDefault, IKeypointSelector>("Default")));
    EXPECT_TRUE((creates<DefaultTransform, ITransform>("Default")));
}

TEST_F(RegistrationTest, RegisteringAgainTakesAKeyBackFromTheHost) {
    registerAll();
    extensibleFactoryInstance<IKeypointSelector>().registerType(
        "TOP", [] { return std::make_unique<KeypointSelectorDefault>(); });
    registerMainKeypointSelectors();
    EXPECT_TRUE((creates<KeypointSelectorTop, IKeypointSelector>("TOP")));
}

}  // namespace
}  // namespace marlo
