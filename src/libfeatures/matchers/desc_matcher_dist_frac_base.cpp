// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/matchers/desc_matcher_dist_frac_base.h"

namespace marlo {

DescMatcherDistFracBase::~DescMatcherDistFracBase() = default;

void DescMatcherDistFracBase::setParams(unsigned int maxHamming, float fraction) {
    maxHammingDistance = maxHamming;
    distanceFraction = fraction;
}

void DescMatcherDistFracBase::setParams(float maxFloatDistance, float fraction) {
    maxDistance = maxFloatDistance;
    distanceFraction = fraction;
}

}  // namespace marlo
