// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/version.h"

namespace marlo {

const char* libraryVersion() noexcept {
    return FEATURES_VERSION;
}

}  // namespace marlo
