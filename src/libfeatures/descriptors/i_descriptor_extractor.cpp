// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/i_descriptor_extractor.h"

namespace marlo {

IDescriptorExtractor::~IDescriptorExtractor() = default;

}  // namespace marlo
