// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/registration.h"

#include <memory>

#include "libfeatures/base/extensible_factory.h"
#include "libfeatures/selectors/feature_selector_default.h"
#include "libfeatures/selectors/feature_selector_top.h"
#include "libfeatures/transforms/default_transform.h"

namespace marlo {
namespace {

template <typename Interface, typename Implementation>
void registerPlugIn(const char* key) {
    extensibleFactoryInstance<Interface>().registerType(
        key, [] { return std::make_unique<Implementation>(); });
}

}  // namespace

void registerMainFeatureDetectors() {}

void registerMainDescriptorExtractors() {}

void registerMainDescriptorMatchers() {}

void registerMainKeypointSelectors() {
    registerPlugIn<IKeypointSelector, KeypointSelectorTop>("TOP");
    registerPlugIn<IKeypointSelector, KeypointSelectorDefault>("Default");
}

void registerMainTransforms() {
    registerPlugIn<ITransform, DefaultTransform>("Default");
}

}  // namespace marlo
