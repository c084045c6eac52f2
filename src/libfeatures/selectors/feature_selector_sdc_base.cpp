// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/selectors/feature_selector_sdc_base.h"

#include <stdexcept>

namespace marlo {

void KeypointSelectorSdcBase::setParams(int width, int height, float ek, float er) {
    // Written so that a NaN is out of range too.
    if (!(width >= 1 && height >= 1 && ek > 0.0F && er > 0.0F)) {
        throw std::out_of_range("Some of the parameters is out of range");
    }
    width_ = width;
    height_ = height;
    ek_ = ek;
    er_ = er;
}

}  // namespace marlo
