// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QString>

#include "libfeatures/features_export.h"

namespace marlo {

/// The parameters of the distance-fraction (ratio-test) matchers, mixed into their classes. A host
/// sets them through setDescriptorMatcherDistFracParams(); the type of the first argument, unsigned
/// or float, says which limit is meant. Nothing is checked: a fraction of 0, below 0 or NaN accepts
/// nothing, one above 1 everything within the limit; a limit of NaN is none.
class FEATURES_EXPORT DescMatcherDistFracBase {
public:
    virtual ~DescMatcherDistFracBase();

    /// Stores the limits for binary rows; `maxDistance` stays.
    virtual void setParams(unsigned int maxHamming, float fraction);
    /// Stores the limits for float rows; `maxHammingDistance` stays.
    virtual void setParams(float maxFloatDistance, float fraction);

    /// The largest Hamming distance, in bits, that a match of binary rows may have. Meant for rows
    /// of 128 bits: wider ones need more.
    unsigned int maxHammingDistance = 50;
    /// The largest distance that a match of float rows may have. No limit for SIFT rows, which are
    /// at most 2 apart.
    float maxDistance = 1000000.0F;
    /// A match needs nearest / second-nearest distance strictly below this.
    float distanceFraction = 0.8F;

protected:
    DescMatcherDistFracBase() = default;
    DescMatcherDistFracBase(const DescMatcherDistFracBase&) = default;
    DescMatcherDistFracBase& operator=(const DescMatcherDistFracBase&) = default;

    /// The kernel for the last matrices; match() is const and records it here.
    mutable QString kernelName_;
};

}  // namespace marlo
