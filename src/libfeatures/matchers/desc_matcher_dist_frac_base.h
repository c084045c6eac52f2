// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QString>

#include "libfeatures/features_export.h"

namespace marlo {

/// The parameters of the distance-fraction (ratio-test) matchers, mixed into their classes. A host
/// sets them through setDescriptorMatcherDistFracParams().
class FEATURES_EXPORT DescMatcherDistFracBase {
public:
    virtual ~DescMatcherDistFracBase();

    /// Stores the limits for binary rows. Nothing is checked; `maxDistance` stays.
    virtual void setParams(unsigned int maxHamming, float fraction);
    /// Stores the limits for float rows. Nothing is checked; `maxHammingDistance` stays.
    virtual void setParams(float maxFloatDistance, float fraction);

    /// The largest Hamming distance, in bits, that a match of binary rows may have.
    unsigned int maxHammingDistance = 50;
    /// The largest distance that a match of float rows may have.
    float maxDistance = 1000000.0F;
    /// A match needs nearest / second-nearest distance strictly below this.
    float distanceFraction = 0.8F;

protected:
    DescMatcherDistFracBase() = default;
    DescMatcherDistFracBase(const DescMatcherDistFracBase&) = default;
    DescMatcherDistFracBase& operator=(const DescMatcherDistFracBase&) = default;

    /// The kernel that the last match() used; match() is const and records it here.
    mutable QString kernelName_;
};

}  // namespace marlo
