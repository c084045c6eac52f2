// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/descriptors/ldah_codes.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "libfeatures/descriptors/detail/ldah_kernels.h"

namespace marlo {

std::string_view ldahTablesIdentifier() {
    return detail::kLdahTables.identifier;
}

void ldahRowsFromSift(const DescMat& sift, DescMat& ldah) {
    if (sift.rows != 0 && (sift.type() != DescMat::Float || sift.cols != detail::kDescriptorSize)) {
        throw std::invalid_argument("LDAH rows are made from rows of 128 floats.");
    }
    DescMat codes;  // `ldah` may hold the rows that are read
    allocateDescriptors(codes, sift.rows, false);
    const detail::LdahPanels& panels = detail::ldahPanels();
    const auto makeCodes = detail::fastest(detail::ldahKernels());
    const std::ptrdiff_t count = sift.rows;
    const std::ptrdiff_t blocks = (count + detail::kLdahBatch - 1) / detail::kLdahBatch;
#pragma omp parallel for schedule(static) if (blocks > 1)
    for (std::ptrdiff_t block = 0; block < blocks; ++block) {
        const std::ptrdiff_t first = block * detail::kLdahBatch;
        const std::ptrdiff_t size = std::min<std::ptrdiff_t>(detail::kLdahBatch, count - first);
        alignas(64) float rows[detail::kLdahBatch][detail::kDescriptorSize];
        for (std::ptrdiff_t i = 0; i < size; ++i) {
            std::memcpy(rows[i], sift.data + static_cast<std::size_t>(first + i) * sift.step,
                        sizeof rows[i]);
        }
        makeCodes(panels, rows[0], size, codes.data + static_cast<std::size_t>(first) * codes.step);
    }
    ldah = std::move(codes);
}

}  // namespace marlo
