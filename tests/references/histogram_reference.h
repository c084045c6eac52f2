// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <vector>

#include "support/desc_mat.h"

/// Histograms of nearest words by brute force; see matching_reference.h.
namespace marlo::reference {

/// How many rows of `descriptors` are nearest to each row of `words`, the first of several, by
/// Hamming distance over the first cols / 8 * 8 bytes.
std::vector<std::uint32_t> countNearestByBits(const DescMat& descriptors, const DescMat& words);

/// The same by Euclidean distance. A row without any finite distance counts for the first word.
std::vector<std::uint32_t> countNearestByFloats(const DescMat& descriptors, const DescMat& words);

}  // namespace marlo::reference
