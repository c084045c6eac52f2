// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/edge_test.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace marlo::app {
namespace {

constexpr double kReach = 4.0;  // of a Gaussian, in its standard deviations

// A Gaussian (first column), its slope and its curvature at the pixels around a position along one
// axis.
struct Taps {
    Eigen::Index first = 0;  // pixel of the first row
    Eigen::Matrix<float, Eigen::Dynamic, 3> weights;

    void set(double centre, double sigma) {
        first = static_cast<Eigen::Index>(std::ceil(centre - kReach * sigma));
        const auto last = static_cast<Eigen::Index>(std::floor(centre + kReach * sigma));
        weights.resize(std::max<Eigen::Index>(0, last - first + 1), 3);
        for (Eigen::Index i = 0; i < weights.rows(); ++i) {
            const double t = (static_cast<double>(first + i) - centre) / sigma;
            const double gauss = std::exp(-0.5 * t * t);
            weights.row(i) << static_cast<float>(gauss), static_cast<float>(t * gauss),
                static_cast<float>((t * t - 1.0) * gauss);
        }
        // Cut off and sampled, the second derivative must still give nothing for a constant.
        weights.col(2).array() -= weights.col(2).mean();
    }
};

struct Window {
    Taps across;
    Taps down;
    FloatImage patch;
    Eigen::Matrix<float, Eigen::Dynamic, 3> sums;  // of each row

    // The sums of the image's rows; it goes on beyond its sides as its last pixels.
    void sumRows(const FloatImage& image) {
        const Eigen::Index rows = down.weights.rows();
        const Eigen::Index cols = across.weights.rows();
        const bool inside = across.first >= 0 && across.first + cols <= image.cols() &&
                            down.first >= 0 && down.first + rows <= image.rows();
        if (inside) {
            sums.noalias() = image.block(down.first, across.first, rows, cols) * across.weights;
            return;
        }
        patch.resize(rows, cols);
        for (Eigen::Index row = 0; row < rows; ++row) {
            for (Eigen::Index col = 0; col < cols; ++col) {
                patch(row, col) =
                    image(std::clamp<Eigen::Index>(down.first + row, 0, image.rows() - 1),
                          std::clamp<Eigen::Index>(across.first + col, 0, image.cols() - 1));
            }
        }
        sums.noalias() = patch * across.weights;
    }
};

double ratioOf(double xx, double xy, double yy) {
    const double determinant = xx * yy - xy * xy;
    if (!(determinant > 0.0)) return std::numeric_limits<double>::infinity();
    // The curvatures are the roots of k^2 - trace k + determinant, of equal sign.
    const double half = 0.5 * std::abs(xx + yy);
    const double larger = half + std::sqrt(std::max(0.0, half * half - determinant));
    return larger * larger / determinant;
}

double curvatureRatio(const FloatImage& image, double x, double y, double scale, Window& window) {
    window.across.set(x, scale);
    window.down.set(y, scale);
    window.sumRows(image);
    const auto& down = window.down.weights;
    const auto& sums = window.sums;
    return ratioOf(static_cast<double>(down.col(0).dot(sums.col(2))),
                   static_cast<double>(down.col(1).dot(sums.col(1))),
                   static_cast<double>(down.col(2).dot(sums.col(0))));
}

}  // namespace

double curvatureRatio(const FloatImage& image, double x, double y, double scale) {
    Window window;
    return curvatureRatio(image, x, y, scale, window);
}

void removeEdges(const FloatImage& image, double imageScale, double most,
                 std::vector<Keypoint>& keypoints) {
    Window window;
    const Keypoint* before = nullptr;
    double ratio = 0.0;
    std::vector<Keypoint> kept;
    for (const Keypoint& keypoint : keypoints) {
        // One place with several directions gives several keypoints, one after the other.
        const bool same = before != nullptr && before->x == keypoint.x && before->y == keypoint.y &&
                          before->scale == keypoint.scale;
        if (!same) {
            ratio = curvatureRatio(image, static_cast<double>(keypoint.x) * imageScale,
                                   static_cast<double>(keypoint.y) * imageScale,
                                   static_cast<double>(keypoint.scale) * imageScale, window);
        }
        before = &keypoint;
        if (ratio <= most) kept.push_back(keypoint);
    }
    keypoints = std::move(kept);
}

}  // namespace marlo::app
