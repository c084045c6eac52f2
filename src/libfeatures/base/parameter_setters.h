// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QString>

#include "libfeatures/descriptors/i_descriptor_extractor.h"
#include "libfeatures/detectors/i_keypoint_detector.h"
#include "libfeatures/features_export.h"
#include "libfeatures/matchers/i_descriptor_matcher.h"
#include "libfeatures/selectors/i_keypoint_selector.h"

/// Parameters for plug-ins that a host holds by their interface only.
///
/// Each setter hands its values on unchanged if the object is of the class that has these
/// parameters, and otherwise (null included) throws std::runtime_error with a fixed message.
namespace marlo {

/// Sets the factor by which the host has resized the image; see SiftLdahBaseParams.
/// @throws std::runtime_error "This operation is only implemented for LDAH feature detectors"
FEATURES_EXPORT void setFeaDetSiftLdahParams(IKeypointDetector* detector, float imageScale);

/// Sets the same factor for an extractor.
/// @throws std::runtime_error "This operation is only implemented for LDAH feature descriptors"
FEATURES_EXPORT void setDescSiftLdahParams(IDescriptorExtractor* extractor, float imageScale);

/// Sets the limits for binary rows; see DescMatcherDistFracBase. The types of the arguments tell
/// the two functions apart, so pass 50U here and 0.7F below: an int or a double fits neither.
/// @throws std::runtime_error "Operation only implemented for the DistFract Descriptor Matcher"
FEATURES_EXPORT void setDescriptorMatcherDistFracParams(IDescriptorMatcher* matcher,
                                                        unsigned int maxHammingDistance,
                                                        float distanceFraction);
/// Sets the limits for float rows.
/// @throws std::runtime_error "Operation only implemented for the DistFract Descriptor Matcher"
FEATURES_EXPORT void setDescriptorMatcherDistFracParams(IDescriptorMatcher* matcher,
                                                        float maxDistance, float distanceFraction);

/// Sets the factor c of adaptive non-maximal suppression; see KeypointSelectorAnmsBase.
/// @throws std::runtime_error "This operation is only implemented by ANMS Keypoint Selectors"
FEATURES_EXPORT void setAnmsRobustness(IKeypointSelector* selector, float c);

/// Sets image size and tolerances of disc covering; see KeypointSelectorSdcBase.
/// @throws std::runtime_error "This operation is only implemented for the SDC Keypoint Selectors",
///         std::out_of_range as KeypointSelectorSdcBase::setParams().
FEATURES_EXPORT void setSdcParams(IKeypointSelector* selector, int width, int height, float ek,
                                  float er);

/// Sets the image size; see KeypointSelectorDefault. The height comes first.
/// @throws std::runtime_error "This operation is only implemented by The Default Keypoint
///         Selector", std::out_of_range as KeypointSelectorDefault::setParams().
FEATURES_EXPORT void setSelectorDefaultParams(IKeypointSelector* selector, int height, int width);

// The setters below belong to plug-ins of other libraries. They are here so that a host written
// against those still links, and always throw.

/// @throws std::runtime_error "This operation is only implemented for the OpenCV Brief descriptor
///         extractor"
FEATURES_EXPORT void setDescExtCvBriefParams(IDescriptorExtractor* extractor, int bytes);
/// @throws std::runtime_error "This operation is only implemented for the OpenCV ORB descriptor
///         extractor"
FEATURES_EXPORT void setDescExtCvOrbParams(IDescriptorExtractor* extractor, int numberOfFeatures);
/// @throws std::runtime_error "This operation is only implemented for the OpenCV FAST Feature
///         detector"
FEATURES_EXPORT void setFeaDetCvFastParams(IKeypointDetector* detector, int threshold,
                                           bool nonmaxSuppression);
/// @throws std::runtime_error "This operation is only implemented for the OpenCV ORB Feature
///         detector"
FEATURES_EXPORT void setFeaDetCvOrbParams(IKeypointDetector* detector, int numberOfFeatures,
                                          int levels, float scaleFactor, int edgeThreshold,
                                          int firstLevel, int pointsPerComparison, int scoreType,
                                          int patchSize);
FEATURES_EXPORT void setFeaDetCvOrbParams(IKeypointDetector* detector, const QString& parameters);
/// @throws std::runtime_error "This operation is only implemented for the OpenCV BRISK Feature
///         detector"
FEATURES_EXPORT void setFeaDetCvBriskParams(IKeypointDetector* detector, int threshold, int octaves,
                                            float patternScale);

}  // namespace marlo
