// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/i_descriptor_matcher.h"

namespace marlo {

IDescriptorMatcher::~IDescriptorMatcher() = default;

}  // namespace marlo
