// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QString>
#include <vector>

#include "libfeatures/base/d_match.h"
#include "libfeatures/matchers/desc_matcher_dist_frac_base.h"
#include "support/desc_mat.h"
#include "support/system.h"

namespace marlo::detail {

/// Whether both matrices can hold rows of 128 bits. (The type of `train` is that of `query`, or its
/// first bytes count.)
bool isLdah(const DescMat& query, const DescMat& train);

/// The name of the kernel for matrices that are not empty; `before` where there is none.
QString distFracKernelName(const DescMat& query, const DescMat& train, system::popcnt_t popcnt,
                           const QString& before);

/// Matches rows of N 64-bit words with the kernels for a way of counting bits. Both matrices must
/// have rows of that many bytes. Sets the OpenMP thread count, see DescMatcherDistFrac.
template <system::popcnt_t P, int N>
std::vector<DMatch> distFracHamming(const DescMat& query, const DescMat& train,
                                    const DescMatcherDistFracBase& parameters);

/// distFracHamming<PopcntX86, 2>() for callers that have not looked at the matrices.
/// @throws std::runtime_error unless `query` holds bytes and both matrices have 16 columns.
std::vector<DMatch> distFracHamming128(const DescMat& query, const DescMat& train,
                                       const DescMatcherDistFracBase& parameters);

/// Matches rows of floats of the same width.
std::vector<DMatch> distFracFloats(const DescMat& query, const DescMat& train,
                                   const DescMatcherDistFracBase& parameters);

}  // namespace marlo::detail
