// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/registration.h"

#include <memory>

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

template <typename Interface, typename Implementation>
void registerPlugIn(const char* key) {
    extensibleFactoryInstance<Interface>().registerType(
        key, [] { return std::make_unique<Implementation>(); });
}

}  // namespace

void registerMainFeatureDetectors() {
    auto& factory = extensibleFactoryInstance<IKeypointDetector>();
    factory.registerType("LDAH", Features2dSiftLdah::createDetectorLDAH);
    factory.registerType("SIFT", Features2dSiftLdah::createDetectorSIFT);
    registerPlugIn<IKeypointDetector, FeatureDetectorLDAHCuda>("LDAHCuda");
    registerPlugIn<IKeypointDetector, FeatureDetectorLDAHCuda>("SIFTCuda");
}

void registerMainDescriptorExtractors() {
    auto& factory = extensibleFactoryInstance<IDescriptorExtractor>();
    factory.registerType("LDAH", Features2dSiftLdah::createDescriptorLDAH);
    factory.registerType("LDAHCuda", SiftLdahDescriptor::createDescriptorLDAH);
    factory.registerType("SIFT", Features2dSiftLdah::createDescriptorSIFT);
    factory.registerType("SIFTCuda", SiftLdahDescriptor::createDescriptorSIFT);
    registerPlugIn<IDescriptorExtractor, Brief>("Brief");
}

void registerMainDescriptorMatchers() {
    registerPlugIn<IDescriptorMatcher, DescMatcherLeftRight>("LeftRight");
    registerPlugIn<IDescriptorMatcher, DescMatcherDistFrac>("DistFrac");
    registerPlugIn<IDescriptorMatcher, DescMatcherDistFracCuda>("DistFracCuda");
    registerPlugIn<IDescriptorMatcher, DescMatcherDistFracMutual>("DistFracMutual");
}

void registerMainKeypointSelectors() {
    registerPlugIn<IKeypointSelector, KeypointSelectorSdc>("SDC");
    registerPlugIn<IKeypointSelector, KeypointSelectorSdcOrientations>("SDCOri");
    registerPlugIn<IKeypointSelector, KeypointSelectorANMS>("ANMS");
    registerPlugIn<IKeypointSelector, KeypointSelectorAnmsBound>("ANMSBound");
    registerPlugIn<IKeypointSelector, KeypointSelectorAnmsOri>("ANMSOri");
    registerPlugIn<IKeypointSelector, KeypointSelectorAnmsOriginal>("ANMSOrig");
    registerPlugIn<IKeypointSelector, KeypointSelectorTop>("TOP");
    registerPlugIn<IKeypointSelector, KeypointSelectorDefault>("Default");
}

void registerMainTransforms() {
    registerPlugIn<ITransform, DefaultTransform>("Default");
    registerPlugIn<ITransform, SphericalTransform>("Spherical");
}

}  // namespace marlo
