// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "libfeatures/descriptors/i_descriptor_extractor.h"
#include "libfeatures/detectors/i_keypoint_detector.h"
#include "libfeatures/features_export.h"
#include "libfeatures/matchers/i_descriptor_matcher.h"
#include "libfeatures/selectors/i_keypoint_selector.h"
#include "libfeatures/transforms/i_transform.h"

namespace marlo {

/// Creates plug-ins by name. T is one of the five interfaces: IKeypointDetector,
/// IDescriptorExtractor, IDescriptorMatcher, IKeypointSelector, ITransform.
///
/// Keys are case-sensitive. The factory is not locked: register from one thread, before creating
/// from several.
template <typename T>
class ExtensibleFactory {
public:
    /// Makes a new, default-configured object at every call.
    using Creator = std::function<std::unique_ptr<T>()>;

    /// Stores the creator under the key, in place of one that was there before.
    /// @throws std::invalid_argument if the creator is empty; nothing changes then.
    void registerType(const std::string& key, Creator creator);

    /// A new object made by the creator under the key.
    /// @throws std::runtime_error if the key is not registered: the interface's name,
    ///         " - The type (", the key, ") is not registered".
    [[nodiscard]] std::unique_ptr<T> create(const std::string& key) const;

private:
    std::map<std::string, Creator> creators_;
};

/// The factory of the process for an interface, empty until plug-ins are registered. The first
/// call is safe from any thread. See registration.h for the library's own plug-ins.
template <typename T>
ExtensibleFactory<T>& extensibleFactoryInstance();

// Defined once, in the library: an instance made in a host's own code would be a second registry.
#define MARLO_DECLARE_FACTORY(Interface)                                \
    extern template class FEATURES_EXPORT ExtensibleFactory<Interface>; \
    extern template FEATURES_EXPORT ExtensibleFactory<Interface>&       \
    extensibleFactoryInstance<Interface>()

MARLO_DECLARE_FACTORY(IKeypointDetector);
MARLO_DECLARE_FACTORY(IDescriptorExtractor);
MARLO_DECLARE_FACTORY(IDescriptorMatcher);
MARLO_DECLARE_FACTORY(IKeypointSelector);
MARLO_DECLARE_FACTORY(ITransform);

#undef MARLO_DECLARE_FACTORY

}  // namespace marlo
