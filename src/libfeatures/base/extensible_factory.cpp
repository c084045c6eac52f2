// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/base/extensible_factory.h"

#include <cxxabi.h>

#include <cstdlib>
#include <stdexcept>
#include <typeinfo>
#include <utility>

namespace marlo {
namespace {

std::string demangledName(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    return status == 0 ? name.get() : type.name();
}

}  // namespace

template <typename T>
void ExtensibleFactory<T>::registerType(const std::string& key, Creator creator) {
    if (!creator) {
        throw std::invalid_argument(demangledName(typeid(T)) + " - The creator of (" + key +
                                    ") is empty");
    }
    creators_.insert_or_assign(key, std::move(creator));
}

template <typename T>
std::unique_ptr<T> ExtensibleFactory<T>::create(const std::string& key) const {
    const auto entry = creators_.find(key);
    if (entry == creators_.end()) {
        throw std::runtime_error(demangledName(typeid(T)) + " - The type (" + key +
                                 ") is not registered");
    }
    return entry->second();
}

template <typename T>
ExtensibleFactory<T>& extensibleFactoryInstance() {
    static ExtensibleFactory<T> factory;
    return factory;
}

template class ExtensibleFactory<IKeypointDetector>;
template class ExtensibleFactory<IDescriptorExtractor>;
template class ExtensibleFactory<IDescriptorMatcher>;
template class ExtensibleFactory<IKeypointSelector>;
template class ExtensibleFactory<ITransform>;

template ExtensibleFactory<IKeypointDetector>& extensibleFactoryInstance();
template ExtensibleFactory<IDescriptorExtractor>& extensibleFactoryInstance();
template ExtensibleFactory<IDescriptorMatcher>& extensibleFactoryInstance();
template ExtensibleFactory<IKeypointSelector>& extensibleFactoryInstance();
template ExtensibleFactory<ITransform>& extensibleFactoryInstance();

}  // namespace marlo
