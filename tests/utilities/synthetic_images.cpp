// SPDX-License-Identifier: BSD-3-Clause
#include "utilities/synthetic_images.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace marlo::test {

using Eigen::Index;

FloatImage noiseImage(Index rows, Index cols, std::uint32_t seed, float low, float high) {
    Random random(seed);
    FloatImage image(rows, cols);
    for (Index i = 0; i < image.size(); ++i) {
        image.data()[i] = random.uniform(low, high);
    }
    return image;
}

void addBlob(FloatImage& image, double centreRow, double centreCol, double sigma, double contrast) {
    const double reach = 8.0 * sigma;
    const auto first = [&](double centre) {
        return std::max<Index>(0, static_cast<Index>(std::floor(centre - reach)));
    };
    const auto end = [&](double centre, Index count) {
        return std::min<Index>(count, static_cast<Index>(std::ceil(centre + reach)) + 1);
    };
    for (Index r = first(centreRow); r < end(centreRow, image.rows()); ++r) {
        for (Index c = first(centreCol); c < end(centreCol, image.cols()); ++c) {
            const double dr = static_cast<double>(r) - centreRow;
            const double dc = static_cast<double>(c) - centreCol;
            const double value = contrast * std::exp(-0.5 * (dr * dr + dc * dc) / (sigma * sigma));
            image(r, c) += static_cast<float>(value);
        }
    }
}

FloatImage photographLikeImage(Index rows, Index cols, std::uint32_t seed) {
    Random random(seed);
    const auto height = static_cast<float>(rows);
    const auto width = static_cast<float>(cols);
    FloatImage image(rows, cols);

    // Shading, and three half planes with edges of their own softness.
    struct Edge {
        float normalRow, normalCol, distance, softness, contrast;
    };
    std::array<Edge, 3> edges{};
    for (Edge& edge : edges) {
        const float direction = random.uniform(0.0F, 6.28F);
        edge.normalRow = std::sin(direction);
        edge.normalCol = std::cos(direction);
        edge.distance = edge.normalRow * random.uniform(0.2F, 0.8F) * height +
                        edge.normalCol * random.uniform(0.2F, 0.8F) * width;
        edge.softness = random.uniform(0.3F, 3.0F);
        edge.contrast = random.uniform(-0.2F, 0.2F);
    }
    for (Index r = 0; r < rows; ++r) {
        for (Index c = 0; c < cols; ++c) {
            float value = 0.5F + 0.1F * (static_cast<float>(r) / height - 0.5F) +
                          0.1F * (static_cast<float>(c) / width - 0.5F);
            for (const Edge& edge : edges) {
                const float distance = edge.normalRow * static_cast<float>(r) +
                                       edge.normalCol * static_cast<float>(c) - edge.distance;
                value += edge.contrast * std::tanh(distance / edge.softness);
            }
            image(r, c) = value;
        }
    }

    const auto numberOfBlobs = 5 + rows * cols / 40;
    for (Index i = 0; i < numberOfBlobs; ++i) {
        const float smallness = random.uniform(0.0F, 1.0F);
        const double sigma =
            0.6 + 8.0 * static_cast<double>(smallness * smallness * smallness * smallness);
        const auto row = static_cast<double>(random.uniform(0.0F, height));
        const auto col = static_cast<double>(random.uniform(0.0F, width));
        addBlob(image, row, col, sigma, static_cast<double>(random.uniform(-0.4F, 0.4F)));
    }
    for (Index i = 0; i < image.size(); ++i) {
        float& pixel = image.data()[i];
        pixel = std::clamp(pixel + random.uniform(-0.01F, 0.01F), 0.0F, 1.0F);
    }
    return image;
}

FloatImage fadingImage(Index rows, Index cols, std::uint32_t seed) {
    FloatImage image = photographLikeImage(rows, cols, seed);
    // 1 in the middle, 0 in the outer fifth, a smooth step between.
    const auto fade = [](Index position, Index count) {
        const double middle = 0.5 * static_cast<double>(count - 1);
        const double outwards = std::abs(static_cast<double>(position) - middle) / middle;
        const double step = std::clamp((0.8 - outwards) / 0.4, 0.0, 1.0);
        return step * step * (3.0 - 2.0 * step);
    };
    for (Index r = 0; r < rows; ++r) {
        for (Index c = 0; c < cols; ++c) {
            const double weight = fade(r, rows) * fade(c, cols);
            image(r, c) = 0.5F + static_cast<float>(weight) * (image(r, c) - 0.5F);
        }
    }
    return image;
}

FloatImage turnedLeft(const FloatImage& image) {
    FloatImage turned(image.cols(), image.rows());
    for (Index r = 0; r < turned.rows(); ++r) {
        for (Index c = 0; c < turned.cols(); ++c) {
            turned(r, c) = image(c, image.cols() - 1 - r);
        }
    }
    return turned;
}

bool sameBits(const FloatImage& a, const FloatImage& b) {
    return a.rows() == b.rows() && a.cols() == b.cols() &&
           (a.size() == 0 || std::memcmp(a.data(), b.data(),
                                         static_cast<std::size_t>(a.size()) * sizeof(float)) == 0);
}

}  // namespace marlo::test
