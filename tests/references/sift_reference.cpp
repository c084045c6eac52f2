// SPDX-License-Identifier: BSD-3-Clause
#include "references/sift_reference.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

namespace marlo::reference {
namespace {

using Eigen::Index;

// The pixel that stands at `position` when a line of `count` pixels is mirrored at both ends.
Index mirrored(Index position, Index count) {
    const Index inPeriod = ((position % (2 * count)) + 2 * count) % (2 * count);
    return inPeriod < count ? inPeriod : 2 * count - 1 - inPeriod;
}

std::vector<double> gaussianWeights(double sigma) {
    const int radius = static_cast<int>(std::ceil(4.0 * sigma));
    std::vector<double> weights;
    double sum = 0.0;
    for (int i = -radius; i <= radius; ++i) {
        weights.push_back(std::exp(-0.5 * (i / sigma) * (i / sigma)));
        sum += weights.back();
    }
    for (double& weight : weights) {
        weight /= sum;
    }
    return weights;
}

using Vector3 = std::array<float, 3>;
using Matrix3 = std::array<Vector3, 3>;

// Gaussian elimination with partial pivoting. A singular matrix gives infinities and NaN.
Vector3 solve(Matrix3 a, Vector3 b) {
    for (std::size_t k = 0; k < 3; ++k) {
        std::size_t pivot = k;
        for (std::size_t i = k + 1; i < 3; ++i) {
            if (std::abs(a[i][k]) > std::abs(a[pivot][k])) {
                pivot = i;
            }
        }
        std::swap(a[k], a[pivot]);
        std::swap(b[k], b[pivot]);
        for (std::size_t i = k + 1; i < 3; ++i) {
            const float factor = a[i][k] / a[k][k];
            for (std::size_t j = k + 1; j < 3; ++j) {
                a[i][j] -= factor * a[k][j];
            }
            b[i] -= factor * b[k];
        }
    }
    Vector3 x{};
    x[2] = b[2] / a[2][2];
    x[1] = (b[1] - a[1][2] * x[2]) / a[1][1];
    x[0] = (b[0] - a[0][1] * x[1] - a[0][2] * x[2]) / a[0][0];
    return x;
}

// Fits a quadric to the 27 differences around (level, row, col) and sets offsets and value.
void fit(const Differences& d, Extremum& e) {
    const auto s = static_cast<std::size_t>(e.level);
    const auto at = [&](int ds, int dr, int dc) {
        return d[s + static_cast<std::size_t>(ds)](e.row + dr, e.col + dc);
    };
    const float centre = at(0, 0, 0);
    const Vector3 g = {(at(1, 0, 0) - at(-1, 0, 0)) * 0.5F, (at(0, 1, 0) - at(0, -1, 0)) * 0.5F,
                       (at(0, 0, 1) - at(0, 0, -1)) * 0.5F};
    const float ss = at(1, 0, 0) + at(-1, 0, 0) - 2.0F * centre;
    const float rr = at(0, 1, 0) + at(0, -1, 0) - 2.0F * centre;
    const float cc = at(0, 0, 1) + at(0, 0, -1) - 2.0F * centre;
    const float sr = ((at(1, 1, 0) - at(1, -1, 0)) - (at(-1, 1, 0) - at(-1, -1, 0))) * 0.25F;
    const float sc = ((at(1, 0, 1) - at(1, 0, -1)) - (at(-1, 0, 1) - at(-1, 0, -1))) * 0.25F;
    const float rc = ((at(0, 1, 1) - at(0, 1, -1)) - (at(0, -1, 1) - at(0, -1, -1))) * 0.25F;
    const Vector3 x = solve({{{ss, sr, sc}, {sr, rr, rc}, {sc, rc, cc}}}, {-g[0], -g[1], -g[2]});
    e.levelOffset = x[0];
    e.rowOffset = x[1];
    e.colOffset = x[2];
    e.value = centre + 0.5F * (g[0] * x[0] + g[1] * x[1] + g[2] * x[2]);
}

}  // namespace

FloatImage exactGaussianBlur(const FloatImage& image, double sigma) {
    if (sigma == 0.0 || image.size() == 0) {
        return image;
    }
    const std::vector<double> weights = gaussianWeights(sigma);
    const auto radius = static_cast<Index>(weights.size() / 2);
    Matrix<double> vertical = Matrix<double>::Zero(image.rows(), image.cols());
    for (Index r = 0; r < image.rows(); ++r) {
        for (Index i = -radius; i <= radius; ++i) {
            const Index source = mirrored(r + i, image.rows());
            const double weight = weights[static_cast<std::size_t>(i + radius)];
            for (Index c = 0; c < image.cols(); ++c) {
                vertical(r, c) += weight * static_cast<double>(image(source, c));
            }
        }
    }
    FloatImage blurred(image.rows(), image.cols());
    for (Index r = 0; r < image.rows(); ++r) {
        for (Index c = 0; c < image.cols(); ++c) {
            double sum = 0.0;
            for (Index i = -radius; i <= radius; ++i) {
                sum += weights[static_cast<std::size_t>(i + radius)] *
                       vertical(r, mirrored(c + i, image.cols()));
            }
            blurred(r, c) = static_cast<float>(sum);
        }
    }
    return blurred;
}

Gradient gradient(const FloatImage& image, Index row, Index col) {
    // Half the difference of both neighbours, or the whole one to the only neighbour.
    const auto derivative = [](Index position, Index count, auto value) {
        const Index before = std::max<Index>(position - 1, 0);
        const Index after = std::min<Index>(position + 1, count - 1);
        const float difference = value(after) - value(before);
        return after - before == 2 ? difference * 0.5F : difference;
    };
    // Adding 0 makes a positive zero of a negative one.
    const float dx = derivative(col, image.cols(), [&](Index c) { return image(row, c); }) + 0.0F;
    const float down = derivative(row, image.rows(), [&](Index r) { return image(r, col); });
    const float dy = -down + 0.0F;
    return {std::sqrt(dx * dx + dy * dy), std::atan2(dy, dx)};
}

void gradients(const FloatImage& image, FloatImage& magnitude, FloatImage& orientation) {
    for (Index r = 0; r < image.rows(); ++r) {
        for (Index c = 0; c < image.cols(); ++c) {
            const Gradient here = gradient(image, r, c);
            magnitude(r, c) = here.magnitude;
            orientation(r, c) = here.orientation;
        }
    }
}

GaussianPyramid gaussianPyramid(const FloatImage& image, const Blur& blur) {
    GaussianPyramid pyramid;
    pyramid[0][0] = image;
    blur(pyramid[0][0], static_cast<double>(1.5198685F));
    for (std::size_t o = 0; o < kOctaves; ++o) {
        auto& levels = pyramid[o];
        float sigma = 1.6F;
        for (std::size_t i = 0; i < 5; ++i) {
            levels[i + 1] = levels[i];
            blur(levels[i + 1], static_cast<double>(0.766421F * sigma));
            sigma = sigma * 1.2599211F;
        }
        if (o + 1 < kOctaves) {
            FloatImage& half = pyramid[o + 1][0];
            half.resize(levels[3].rows() / 2, levels[3].cols() / 2);
            for (Index r = 0; r < half.rows(); ++r) {
                for (Index c = 0; c < half.cols(); ++c) {
                    half(r, c) = levels[3](2 * r, 2 * c);
                }
            }
        }
    }
    return pyramid;
}

Differences differences(const std::array<FloatImage, 6>& levels) {
    Differences result;
    for (std::size_t j = 0; j < result.size(); ++j) {
        result[j] = levels[j] - levels[j + 1];
    }
    return result;
}

float Extremum::sigma() const {
    return 1.6F * std::pow(2.0F, (static_cast<float>(level) + levelOffset) / 3.0F);
}

bool isExtremumIn(const FloatImage& difference, float value, Index row, Index col) {
    for (Index r = row - 1; r <= row + 1; ++r) {
        for (Index c = col - 1; c <= col + 1; ++c) {
            const float other = difference(r, c);
            if (value > 0.0F ? other > value : other < value) {
                return false;
            }
        }
    }
    return true;
}

bool refine(const Differences& differences, Extremum& e) {
    const Index rows = differences[0].rows();
    const Index cols = differences[0].cols();
    for (;;) {
        fit(differences, e);
        Index row = e.row;
        Index col = e.col;
        if (e.rowOffset > 0.6F && row < rows - 3) {
            ++row;
        }
        if (e.rowOffset < -0.6F && row >= 4) {
            --row;
        }
        if (e.colOffset > 0.6F && col < cols - 3) {
            ++col;
        }
        if (e.colOffset < -0.6F && col >= 4) {
            --col;
        }
        if (e.moves == 5 || (row == e.row && col == e.col)) {
            break;
        }
        e.row = row;
        e.col = col;
        ++e.moves;
    }
    return std::abs(e.value) > 0.0001F && std::abs(e.levelOffset) <= 1.5F &&
           std::abs(e.rowOffset) <= 1.5F && std::abs(e.colOffset) <= 1.5F;
}

std::vector<Extremum> acceptedExtrema(const Differences& differences) {
    std::vector<Extremum> accepted;
    const Index rows = differences[0].rows();
    const Index cols = differences[0].cols();
    for (std::size_t s = 1; s <= 3; ++s) {
        for (Index r = 5; r <= rows - 6; ++r) {
            for (Index c = 5; c <= cols - 6; ++c) {
                const float value = differences[s](r, c);
                if (!isExtremumIn(differences[s], value, r, c) ||
                    !isExtremumIn(differences[s - 1], value, r, c) ||
                    !isExtremumIn(differences[s + 1], value, r, c)) {
                    continue;
                }
                Extremum extremum;
                extremum.level = static_cast<int>(s);
                extremum.row = extremum.candidateRow = r;
                extremum.col = extremum.candidateCol = c;
                if (refine(differences, extremum)) {
                    accepted.push_back(extremum);
                }
            }
        }
    }
    return accepted;
}

std::vector<Extremum> firstOfEachPixel(const std::vector<Extremum>& extrema, Index rows,
                                       Index cols) {
    std::vector<Extremum> first;
    Matrix<bool> taken = Matrix<bool>::Constant(rows, cols, false);
    for (const Extremum& extremum : extrema) {
        bool& mark = taken(extremum.row, extremum.col);
        if (!mark) {
            mark = true;
            first.push_back(extremum);
        }
    }
    return first;
}

OrientationBins rawOrientationHistogram(const FloatImage& magnitude, const FloatImage& orientation,
                                        float row, float col, float sigma) {
    OrientationBins bins{};
    const auto centreRow = static_cast<Index>(row + 0.5F);
    const auto centreCol = static_cast<Index>(col + 0.5F);
    const auto radius = static_cast<Index>(sigma * 1.5F * 3.0F);
    const float k = -1.0F / (4.5F * (sigma * sigma));
    for (Index r = centreRow - radius; r <= centreRow + radius; ++r) {
        for (Index c = centreCol - radius; c <= centreCol + radius; ++c) {
            if (r < 0 || r >= magnitude.rows() - 2 || c < 0 || c >= magnitude.cols() - 2) {
                continue;
            }
            const float m = magnitude(r, c);
            const float dr = static_cast<float>(r) - row;
            const float dc = static_cast<float>(c) - col;
            const float squaredDistance = dr * dr + dc * dc;
            if (!(m > 0.0F) || !(squaredDistance < static_cast<float>(radius * radius) + 0.5F)) {
                continue;
            }
            auto bin = static_cast<std::size_t>(5.729578F * orientation(r, c) + 18.00573F);
            if (bin == 36) {
                bin = 35;
            } else if (bin > 36) {
                bin = 0;
            }
            bins[bin] += std::exp(squaredDistance * k) * m;
        }
    }
    return bins;
}

void smooth(OrientationBins& bins) {
    for (int pass = 0; pass < 6; ++pass) {
        const OrientationBins old = bins;
        for (std::size_t i = 0; i < 35; ++i) {
            bins[i] = (old[(i + 35) % 36] + old[i] + old[i + 1]) * 0.33333334F;
        }
        bins[35] = (old[34] + old[35] + old[0]) * 0.3333333F;
    }
}

std::vector<float> peakAngles(const OrientationBins& bins) {
    std::vector<float> angles;
    const float threshold = 0.8F * *std::max_element(bins.begin(), bins.end());
    for (std::size_t i = 0; i < 36; ++i) {
        float left = bins[(i + 35) % 36];
        float centre = bins[i];
        float right = bins[(i + 1) % 36];
        if (!(centre > left && centre > right && centre >= threshold)) {
            continue;
        }
        if (centre < 0.0F) {
            left = -left;
            centre = -centre;
            right = -right;
        }
        const float offset = (left - right) * 0.5F / (left - 2.0F * centre + right);
        angles.push_back((static_cast<float>(i) + offset) * 0.17453294F - 3.0543263F);
    }
    return angles;
}

std::vector<Keypoint> detect(const FloatImage& image, float imageScale, const Blur& blur,
                             const Gradients& gradientsOf) {
    std::vector<Keypoint> keypoints;
    const GaussianPyramid pyramid = gaussianPyramid(image, blur);
    float octaveFactor = 1.0F;
    for (std::size_t o = 0; o < kOctaves; ++o) {
        const Index rows = pyramid[o][0].rows();
        const Index cols = pyramid[o][0].cols();
        std::array<FloatImage, 4> magnitude;
        std::array<FloatImage, 4> orientation;
        for (std::size_t s = 1; s <= 3; ++s) {
            magnitude[s].resize(rows, cols);
            orientation[s].resize(rows, cols);
            gradientsOf(pyramid[o][s], magnitude[s], orientation[s]);
        }
        const auto extrema = acceptedExtrema(differences(pyramid[o]));
        for (const Extremum& e : firstOfEachPixel(extrema, rows, cols)) {
            const float sigma = e.sigma();
            const float row = static_cast<float>(e.row) + e.rowOffset;
            const float col = static_cast<float>(e.col) + e.colOffset;
            const auto s = static_cast<std::size_t>(e.level);
            OrientationBins bins =
                rawOrientationHistogram(magnitude[s], orientation[s], row, col, sigma);
            smooth(bins);
            for (const float angle : peakAngles(bins)) {
                keypoints.emplace_back(octaveFactor * col / imageScale,
                                       octaveFactor * row / imageScale,
                                       octaveFactor * sigma / imageScale, angle, std::abs(e.value),
                                       static_cast<std::uint8_t>(o), static_cast<std::uint8_t>(s));
            }
        }
        octaveFactor *= 2.0F;
    }
    return keypoints;
}

SiftDescriptor rawSiftDescriptor(const FloatImage& magnitude, const FloatImage& orientation,
                                 float row, float col, float sigma, float angle) {
    SiftDescriptor values{};
    const float cosine = std::cos(angle);
    const float sine = std::sin(angle);
    const float inverse = 1.0F / (3.0F * sigma);
    const auto radius = static_cast<Index>(3.0F * sigma * 1.4142137F * 5.0F * 0.5F + 0.5F);
    const auto centreRow = static_cast<Index>(row + 0.5F);
    const auto centreCol = static_cast<Index>(col + 0.5F);
    const float rowFraction = -(row - static_cast<float>(centreRow)) * inverse;
    const float colFraction = -(col - static_cast<float>(centreCol)) * inverse;

    for (Index i = -radius; i <= radius; ++i) {
        for (Index j = -radius; j <= radius; ++j) {
            const auto down = static_cast<float>(i);
            const auto right = static_cast<float>(j);
            const float u = ((sine * inverse) * right + (cosine * inverse) * down) + rowFraction;
            const float v = ((cosine * inverse) * right - (sine * inverse) * down) + colFraction;
            const float rowCell = u + 1.5F;
            const float colCell = v + 1.5F;
            if (!(-0.9999F < rowCell && rowCell < 3.9999F && -0.9999F < colCell &&
                  colCell < 3.9999F)) {
                continue;
            }
            const Index r = centreRow + i;
            const Index c = centreCol + j;
            if (r < 0 || r >= magnitude.rows() || c < 0 || c >= magnitude.cols()) {
                continue;
            }
            float theta = orientation(r, c) - angle;
            if (std::isnan(theta)) {
                continue;
            }
            while (theta > 6.2831855F) {
                theta -= 6.2831855F;
            }
            while (theta < 0.0F) {
                theta += 6.2831855F;
            }
            const float m = std::exp((u * u + v * v) * -0.125F) * magnitude(r, c);
            const float direction = theta * 1.2732395F;
            const float row0 = std::floor(rowCell);
            const float col0 = std::floor(colCell);
            const float direction0 = std::floor(direction);
            const float rowShare = rowCell - row0;
            const float colShare = colCell - col0;
            const float directionShare = direction - direction0;
            const auto bin = static_cast<std::size_t>(direction0);
            for (const int below : {0, 1}) {
                for (const int beside : {0, 1}) {
                    const int cellRow = static_cast<int>(row0) + below;
                    const int cellCol = static_cast<int>(col0) + beside;
                    if (cellRow < 0 || cellRow > 3 || cellCol < 0 || cellCol > 3) {
                        continue;
                    }
                    const float weight = (below == 1 ? rowShare : 1.0F - rowShare) *
                                         (beside == 1 ? colShare : 1.0F - colShare) * m;
                    const auto cell = static_cast<std::size_t>(cellRow * 4 + cellCol) * 8;
                    values[cell + bin % 8] += weight * (1.0F - directionShare);
                    values[cell + (bin + 1) % 8] += weight * directionShare;
                }
            }
        }
    }
    return values;
}

void normalise(SiftDescriptor& descriptor) {
    float squaredNorm = 0.0F;
    for (const float value : descriptor) {
        squaredNorm += value * value;
    }
    const float limit = 0.2F * std::sqrt(squaredNorm);
    for (float& value : descriptor) {
        if (value > limit) {
            squaredNorm = squaredNorm + (limit * limit - value * value);
            value = limit;
        }
    }
    const float factor = 1.0F / std::sqrt(squaredNorm);
    for (float& value : descriptor) {
        value *= factor;
    }
}

SiftDescriptor siftDescriptor(const FloatImage& magnitude, const FloatImage& orientation,
                              const Keypoint& keypoint, float octaveFactor, float imageScale) {
    SiftDescriptor descriptor =
        rawSiftDescriptor(magnitude, orientation, keypoint.y * imageScale / octaveFactor,
                          keypoint.x * imageScale / octaveFactor,
                          imageScale * keypoint.scale / octaveFactor, keypoint.angle);
    normalise(descriptor);
    return descriptor;
}

}  // namespace marlo::reference
