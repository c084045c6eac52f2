// SPDX-License-Identifier: BSD-3-Clause
#include "end_to_end/pair_geometry.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <fstream>
#include <map>
#include <opencv2/calib3d.hpp>
#include <stdexcept>
#include <utility>

namespace marlo::bench {
namespace {

constexpr double kMostDistance = 3.0;  // pixels, of a correct match
constexpr int kCells = 20;             // each way
// OpenCV draws from a fixed seed: the same matches give the same estimate.
constexpr double kConfidence = 0.9999;
constexpr int kMostIterations = 100000;

cv::Point2d mapped(const cv::Matx33d& matrix, const cv::Point2d& point) {
    const cv::Vec3d to = matrix * cv::Vec3d(point.x, point.y, 1.0);
    return {to[0] / to[2], to[1] / to[2]};
}

double distance(const cv::Point2d& a, const cv::Point2d& b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

// NaN, too, counts as the most.
double limited(double error) {
    return error < PairGeometry::kMostError ? error : PairGeometry::kMostError;
}

bool isInside(const cv::Point2d& point, const cv::Size& size) {
    return point.x >= -0.5 && point.x < size.width - 0.5 && point.y >= -0.5 &&
           point.y < size.height - 0.5;
}

class KnownHomography : public PairGeometry {
public:
    KnownHomography(const cv::Matx33d& matrix, const cv::Size& first, const cv::Size& second)
        : matrix_(matrix) {
        for (int row = 0; row < kCells; ++row) {
            for (int column = 0; column < kCells; ++column) {
                const cv::Point2d point((column + 0.5) * first.width / kCells - 0.5,
                                        (row + 0.5) * first.height / kCells - 0.5);
                if (isInside(mapped(matrix_, point), second)) points_.push_back(point);
            }
        }
    }

    [[nodiscard]] std::vector<bool> confirmed(const PointPairs& pairs) const override {
        std::vector<bool> are;
        for (std::size_t i = 0; i < pairs.first.size(); ++i) {
            are.push_back(distance(mapped(matrix_, pairs.first[i]), pairs.second[i]) <
                          kMostDistance);
        }
        return are;
    }

    [[nodiscard]] double errorOfEstimate(const PointPairs& matches) const override {
        constexpr std::size_t kLeast = 4;
        if (matches.first.size() < kLeast) return kMostError;
        const cv::Mat estimate =
            cv::findHomography(matches.first, matches.second, cv::USAC_MAGSAC, kMostDistance,
                               cv::noArray(), kMostIterations, kConfidence);
        if (estimate.empty()) return kMostError;
        const cv::Matx33d matrix = estimate;
        double sum = 0.0;
        for (const cv::Point2d& point : points_) {
            sum += limited(distance(mapped(matrix, point), mapped(matrix_, point)));
        }
        return sum / static_cast<double>(points_.size());
    }

private:
    cv::Matx33d matrix_;
    std::vector<cv::Point2d> points_;
};

// Of a point from its epipolar line, the larger of both photographs.
double epipolarDistance(const cv::Matx33d& matrix, const cv::Point2d& first,
                        const cv::Point2d& second) {
    const cv::Vec3d a(first.x, first.y, 1.0);
    const cv::Vec3d b(second.x, second.y, 1.0);
    const cv::Vec3d lineOfA = matrix * a;
    const cv::Vec3d lineOfB = matrix.t() * b;
    return std::fabs(b.dot(lineOfA)) /
           std::min(std::hypot(lineOfA[0], lineOfA[1]), std::hypot(lineOfB[0], lineOfB[1]));
}

// Empty if there is none.
cv::Mat fundamentalMatrix(const PointPairs& matches, cv::OutputArray inliers) {
    constexpr std::size_t kLeast = 8;
    constexpr double kInlierDistance = 1.0;  // pixels
    if (matches.first.size() < kLeast) return {};
    const cv::Mat matrix =
        cv::findFundamentalMat(matches.first, matches.second, cv::USAC_MAGSAC, kInlierDistance,
                               kConfidence, kMostIterations, inliers);
    return matrix.rows == 3 ? matrix : cv::Mat();
}

class EpipolarReference : public PairGeometry {
public:
    EpipolarReference(const PointPairs& matches, const cv::Size& first) {
        cv::Mat inliers;
        const cv::Mat matrix = fundamentalMatrix(matches, inliers);
        if (matrix.empty()) throw std::runtime_error("found no epipolar geometry");
        matrix_ = matrix;
        // Of each cell the inlier nearest to its middle.
        std::map<std::pair<int, int>, std::pair<double, std::size_t>> cells;
        for (std::size_t i = 0; i < matches.first.size(); ++i) {
            if (inliers.at<unsigned char>(static_cast<int>(i)) == 0) continue;
            const double x = (static_cast<double>(matches.first[i].x) + 0.5) * kCells / first.width;
            const double y =
                (static_cast<double>(matches.first[i].y) + 0.5) * kCells / first.height;
            const double fromMiddle = std::hypot(x - std::floor(x) - 0.5, y - std::floor(y) - 0.5);
            const auto [cell, isNew] = cells.try_emplace(
                {static_cast<int>(std::floor(y)), static_cast<int>(std::floor(x))}, fromMiddle, i);
            if (!isNew) cell->second = std::min(cell->second, {fromMiddle, i});
        }
        for (const auto& [cell, inlier] : cells) {
            points_.first.push_back(matches.first[inlier.second]);
            points_.second.push_back(matches.second[inlier.second]);
        }
    }

    [[nodiscard]] std::vector<bool> confirmed(const PointPairs& pairs) const override {
        std::vector<bool> are;
        for (std::size_t i = 0; i < pairs.first.size(); ++i) {
            are.push_back(epipolarDistance(matrix_, pairs.first[i], pairs.second[i]) <
                          kMostDistance);
        }
        return are;
    }

    [[nodiscard]] double errorOfEstimate(const PointPairs& matches) const override {
        const cv::Mat estimate = fundamentalMatrix(matches, cv::noArray());
        if (estimate.empty()) return kMostError;
        const cv::Matx33d matrix = estimate;
        double sum = 0.0;
        for (std::size_t i = 0; i < points_.first.size(); ++i) {
            sum += limited(epipolarDistance(matrix, points_.first[i], points_.second[i]));
        }
        return sum / static_cast<double>(points_.first.size());
    }

private:
    cv::Matx33d matrix_;
    PointPairs points_;
};

}  // namespace

std::unique_ptr<PairGeometry> knownHomography(const std::string& path, const cv::Size& first,
                                              const cv::Size& second) {
    std::ifstream file(path);
    cv::Matx33d matrix;
    for (double& value : matrix.val) file >> value;
    if (!file) throw std::runtime_error("cannot read " + path);
    return std::make_unique<KnownHomography>(matrix, first, second);
}

std::unique_ptr<PairGeometry> epipolarReference(const PointPairs& matches, const cv::Size& first) {
    return std::make_unique<EpipolarReference>(matches, first);
}

}  // namespace marlo::bench
