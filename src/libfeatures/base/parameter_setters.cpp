// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/parameter_setters.h"

#include <stdexcept>

#include "libfeatures/base/sift_ldah_base_params.h"
#include "libfeatures/matchers/desc_matcher_dist_frac_base.h"
#include "libfeatures/selectors/feature_selector_anms_base.h"
#include "libfeatures/selectors/feature_selector_default.h"
#include "libfeatures/selectors/feature_selector_sdc_base.h"

namespace marlo {
namespace {

template <typename Params, typename PlugIn>
Params& paramsOf(PlugIn* plugIn, const char* messageOtherwise) {
    auto* const params = dynamic_cast<Params*>(plugIn);
    if (params == nullptr) {
        throw std::runtime_error(messageOtherwise);
    }
    return *params;
}

constexpr char kOnlyDistFrac[] = "Operation only implemented for the DistFract Descriptor Matcher";
constexpr char kOnlyCvOrbDetector[] =
    "This operation is only implemented for the OpenCV ORB Feature detector";

}  // namespace

void setFeaDetSiftLdahParams(IKeypointDetector* detector, float imageScale) {
    paramsOf<SiftLdahBaseParams>(detector,
                                 "This operation is only implemented for LDAH feature detectors")
        .setParams(imageScale);
}

void setDescSiftLdahParams(IDescriptorExtractor* extractor, float imageScale) {
    paramsOf<SiftLdahBaseParams>(extractor,
                                 "This operation is only implemented for LDAH feature descriptors")
        .setParams(imageScale);
}

void setDescriptorMatcherDistFracParams(IDescriptorMatcher* matcher,
                                        unsigned int maxHammingDistance, float distanceFraction) {
    paramsOf<DescMatcherDistFracBase>(matcher, kOnlyDistFrac)
        .setParams(maxHammingDistance, distanceFraction);
}

void setDescriptorMatcherDistFracParams(IDescriptorMatcher* matcher, float maxDistance,
                                        float distanceFraction) {
    paramsOf<DescMatcherDistFracBase>(matcher, kOnlyDistFrac)
        .setParams(maxDistance, distanceFraction);
}

void setAnmsRobustness(IKeypointSelector* selector, float c) {
    paramsOf<KeypointSelectorAnmsBase>(
        selector, "This operation is only implemented by ANMS Keypoint Selectors")
        .setRobustness(c);
}

void setSdcParams(IKeypointSelector* selector, int width, int height, float ek, float er) {
    paramsOf<KeypointSelectorSdcBase>(
        selector, "This operation is only implemented for the SDC Keypoint Selectors")
        .setParams(width, height, ek, er);
}

void setSelectorDefaultParams(IKeypointSelector* selector, int height, int width) {
    paramsOf<KeypointSelectorDefault>(
        selector, "This operation is only implemented by The Default Keypoint Selector")
        .setParams(height, width);
}

void setDescExtCvBriefParams(IDescriptorExtractor* /*extractor*/, int /*bytes*/) {
    throw std::runtime_error(
        "This operation is only implemented for the OpenCV Brief descriptor extractor");
}

void setDescExtCvOrbParams(IDescriptorExtractor* /*extractor*/, int /*numberOfFeatures*/) {
    throw std::runtime_error(
        "This operation is only implemented for the OpenCV ORB descriptor extractor");
}

void setFeaDetCvFastParams(IKeypointDetector* /*detector*/, int /*threshold*/,
                           bool /*nonmaxSuppression*/) {
    throw std::runtime_error(
        "This operation is only implemented for the OpenCV FAST Feature detector");
}

void setFeaDetCvOrbParams(IKeypointDetector* /*detector*/, int /*numberOfFeatures*/, int /*levels*/,
                          float /*scaleFactor*/, int /*edgeThreshold*/, int /*firstLevel*/,
                          int /*pointsPerComparison*/, int /*scoreType*/, int /*patchSize*/) {
    throw std::runtime_error(kOnlyCvOrbDetector);
}

void setFeaDetCvOrbParams(IKeypointDetector* /*detector*/, const QString& /*parameters*/) {
    throw std::runtime_error(kOnlyCvOrbDetector);
}

void setFeaDetCvBriskParams(IKeypointDetector* /*detector*/, int /*threshold*/, int /*octaves*/,
                            float /*patternScale*/) {
    throw std::runtime_error(
        "This operation is only implemented for the OpenCV BRISK Feature detector");
}

}  // namespace marlo
