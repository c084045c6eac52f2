// SPDX-License-Identifier: BSD-3-Clause
#include "support/sift_distance.h"

#include <stdexcept>

#include "support/detail/sift_distance_kernels.h"

namespace marlo {

float cvSiftDistance(const DescMat& row1, const DescMat& row2) {
    const auto isRow = [](const DescMat& row) {
        return row.rows == 1 && row.type() == DescMat::Float;
    };
    if (!isRow(row1) || !isRow(row2) || row1.cols != row2.cols) {
        throw std::invalid_argument("cvSiftDistance: not two rows of floats of the same width");
    }
    static const auto distance = detail::fastest(detail::siftDistanceKernels());
    return distance(reinterpret_cast<const float*>(row1.data),
                    reinterpret_cast<const float*>(row2.data), row1.cols);
}

}  // namespace marlo
