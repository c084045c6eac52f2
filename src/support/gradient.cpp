// SPDX-License-Identifier: BSD-3-Clause
#include "support/gradient.h"

#include <algorithm>
#include <stdexcept>

#include "support/detail/gradient_kernels.h"

namespace marlo {
namespace {

constexpr Eigen::Index kWorthThreads = 1 << 16;  // pixels; fewer are done before threads are up

}  // namespace

void gradOriImages(const FloatImage& src, FloatImage& magnitude, FloatImage& orientation) {
    const auto differs = [&](const FloatImage& image) {
        return image.rows() != src.rows() || image.cols() != src.cols();
    };
    if (differs(magnitude) || differs(orientation)) {
        throw std::invalid_argument("Gradient images must have the size of their source.");
    }
    if (src.size() == 0) return;
    detail::GradientFunction* gradient = detail::fastest(detail::gradientKernels());
    const auto row = [&](Eigen::Index r) { return src.data() + r * src.cols(); };
    const Eigen::Index lastRow = src.rows() - 1;
#pragma omp parallel for schedule(static) if (src.size() > kWorthThreads)
    for (Eigen::Index r = 0; r <= lastRow; ++r) {
        gradient({row(std::max<Eigen::Index>(r - 1, 0)), row(r), row(std::min(r + 1, lastRow)),
                  src.cols()},
                 &magnitude(r, 0), &orientation(r, 0));
    }
}

}  // namespace marlo
