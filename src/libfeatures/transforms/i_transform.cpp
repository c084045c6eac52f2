// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/transforms/i_transform.h"

namespace marlo {

ITransform::~ITransform() = default;

}  // namespace marlo
