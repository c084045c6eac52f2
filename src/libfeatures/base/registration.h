// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"

/// The library's own plug-ins and their keys. A host calls these once at start-up, before it
/// creates anything by name; the library never does. Calling one again changes nothing, except that
/// a key which a host has given to a plug-in of its own goes back to the library's.
namespace marlo {

/// | key  | class              | makes            |
/// |------|--------------------|------------------|
/// | LDAH | Features2dSiftLdah | LDAH descriptors; not yet |
/// | SIFT | Features2dSiftLdah | SIFT descriptors |
///
/// The two find the same keypoints.
FEATURES_EXPORT void registerMainFeatureDetectors();

/// | key      | class              | makes                                |
/// |----------|--------------------|--------------------------------------|
/// | LDAH     | Features2dSiftLdah | LDAH descriptors, from the detector's own scale space; not yet
/// | | LDAHCuda | SiftLdahDescriptor | LDAH descriptors, with gradients from the GPU; not yet | |
/// SIFT     | Features2dSiftLdah | SIFT descriptors, from the detector's own scale space | |
/// SIFTCuda | SiftLdahDescriptor | SIFT descriptors, with gradients from the GPU |
FEATURES_EXPORT void registerMainDescriptorExtractors();

/// The library has no matcher of its own yet.
FEATURES_EXPORT void registerMainDescriptorMatchers();

/// | key     | class                   |
/// |---------|-------------------------|
/// | TOP     | KeypointSelectorTop     |
/// | Default | KeypointSelectorDefault |
FEATURES_EXPORT void registerMainKeypointSelectors();

/// | key     | class            |
/// |---------|------------------|
/// | Default | DefaultTransform |
FEATURES_EXPORT void registerMainTransforms();

}  // namespace marlo
