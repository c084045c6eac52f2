// SPDX-License-Identifier: BSD-3-Clause
#include "utilities/images.h"

#include <algorithm>
#include <cmath>

#include "utilities/random.h"

namespace marlo::bench {
namespace {

void addBlob(FloatImage& image, float row, float col, float sigma, float height) {
    using Eigen::Index;
    const auto reach = static_cast<Index>(4.0F * sigma);
    const auto middleRow = static_cast<Index>(row);
    const auto middleCol = static_cast<Index>(col);
    const Index firstRow = std::max<Index>(middleRow - reach, 0);
    const Index lastRow = std::min(middleRow + reach, image.rows() - 1);
    const Index firstCol = std::max<Index>(middleCol - reach, 0);
    const Index lastCol = std::min(middleCol + reach, image.cols() - 1);
    const float factor = -0.5F / (sigma * sigma);
    for (Index r = firstRow; r <= lastRow; ++r) {
        const float down = static_cast<float>(r) - row;
        for (Index c = firstCol; c <= lastCol; ++c) {
            const float right = static_cast<float>(c) - col;
            const float pixel =
                image(r, c) + height * std::exp(factor * (down * down + right * right));
            image(r, c) = std::clamp(pixel, 0.0F, 1.0F);
        }
    }
}

}  // namespace

FloatImage randomImage(Eigen::Index rows, Eigen::Index cols, std::uint32_t seed) {
    Random random(seed);
    FloatImage image(rows, cols);
    for (Eigen::Index i = 0; i < image.size(); ++i) image.data()[i] = random.next();
    return image;
}

void fillLikePhotograph(FloatImage& image, double blobsPerMegapixel, std::uint32_t seed) {
    for (Eigen::Index r = 0; r < image.rows(); ++r) {
        const float y = static_cast<float>(r);
        for (Eigen::Index c = 0; c < image.cols(); ++c) {
            const float x = static_cast<float>(c);
            // Wavelengths above 1000 pixels: no keypoints of their own.
            image(r, c) = 0.5F + 0.15F * std::sin(0.003F * x + 0.002F * y) +
                          0.1F * std::sin(0.005F * y - 0.001F * x);
        }
    }
    Random random(seed);
    const auto blobs =
        static_cast<std::int64_t>(blobsPerMegapixel * 1e-6 * static_cast<double>(image.size()));
    for (std::int64_t i = 0; i < blobs; ++i) {
        const float row = random.next() * static_cast<float>(image.rows());
        const float col = random.next() * static_cast<float>(image.cols());
        const float sigma = 1.2F / std::sqrt(1.0F - 0.97F * random.next());
        const float height = (random.next() < 0.5F ? -1.0F : 1.0F) * (0.05F + 0.3F * random.next());
        addBlob(image, row, col, sigma, height);
    }
}

}  // namespace marlo::bench
