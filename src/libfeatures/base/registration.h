// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"

/// The library's own plug-ins and their keys. A host calls these once at start-up, before it
/// creates anything by name; the library never does. Calling one again changes nothing, except that
/// a key which a host has given to a plug-in of its own goes back to the library's.
namespace marlo {

/// | key      | class                   | on the | makes            |
/// |----------|-------------------------|--------|------------------|
/// | LDAH     | Features2dSiftLdah      | CPU    | LDAH descriptors |
/// | LDAHCuda | FeatureDetectorLDAHCuda | GPU    |                  |
/// | SIFT     | Features2dSiftLdah      | CPU    | SIFT descriptors |
/// | SIFTCuda | FeatureDetectorLDAHCuda | GPU    |                  |
///
/// LDAH and SIFT find the same keypoints; the two GPU keys make the same detector.
FEATURES_EXPORT void registerMainFeatureDetectors();

/// | key      | class              | makes             | from gradients of     |
/// |----------|--------------------|-------------------|-----------------------|
/// | Brief    | Brief              | Brief descriptors | (8-bit images)        |
/// | LDAH     | Features2dSiftLdah | LDAH descriptors  | the detector's levels |
/// | LDAHCuda | SiftLdahDescriptor | LDAH descriptors  | the GPU               |
/// | SIFT     | Features2dSiftLdah | SIFT descriptors  | the detector's levels |
/// | SIFTCuda | SiftLdahDescriptor | SIFT descriptors  | the GPU               |
FEATURES_EXPORT void registerMainDescriptorExtractors();

/// | key            | class                     |
/// |----------------|---------------------------|
/// | DistFrac       | DescMatcherDistFrac       |
/// | DistFracCuda   | DescMatcherDistFracCuda   |
/// | DistFracMutual | DescMatcherDistFracMutual |
/// | LeftRight      | DescMatcherLeftRight      |
FEATURES_EXPORT void registerMainDescriptorMatchers();

/// | key       | class                           |
/// |-----------|---------------------------------|
/// | ANMS      | KeypointSelectorANMS          |
/// | ANMSBound | KeypointSelectorAnmsBound     |
/// | ANMSOri   | KeypointSelectorAnmsOri       |
/// | ANMSOrig  | KeypointSelectorAnmsOriginal  |
/// | Default   | KeypointSelectorDefault       |
/// | SDC       | KeypointSelectorSdc           |
/// | SDCOri    | KeypointSelectorSdcOrientations |
/// | TOP       | KeypointSelectorTop           |
FEATURES_EXPORT void registerMainKeypointSelectors();

/// | key       | class              |
/// |-----------|--------------------|
/// | Default   | DefaultTransform   |
/// | Spherical | SphericalTransform |
FEATURES_EXPORT void registerMainTransforms();

}  // namespace marlo
