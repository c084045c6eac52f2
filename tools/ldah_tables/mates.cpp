// SPDX-License-Identifier: BSD-3-Clause
#include "ldah_tables/mates.h"

#include <Eigen/Cholesky>
#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <numeric>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <utility>

#include "libfeatures/matchers/desc_matcher_dist_frac_mutual.h"

namespace marlo::tools {
namespace {

constexpr int kLeastInliers = 80;
constexpr double kLeastShare = 0.5;
constexpr double kInlierDistance = 1.5;  // pixels
constexpr std::size_t kNeighbours = 10;

// How far a mate may lie from its place: in scales, as a factor, in radians, in pixels.
constexpr float kMostDistance = 0.35F;
constexpr float kMostScaleFactor = 1.3195079F;  // 2^0.4
constexpr float kMostTurn = 0.35F;
constexpr float kMostEpipolarDistance = 1.5F;

float angleBetween(float a, float b) {
    return std::fabs(std::remainder(a - b, 6.2831855F));
}

// The keypoint's size and direction after an affine map. Angles run counter-clockwise as the image
// is displayed, and rows downwards.
void mapShape(const Keypoint& keypoint, const Eigen::Matrix2d& map, Place& place) {
    const auto angle = static_cast<double>(keypoint.angle);
    const Eigen::Vector2d direction = map * Eigen::Vector2d(std::cos(angle), -std::sin(angle));
    place.scale = static_cast<float>(static_cast<double>(keypoint.scale) *
                                     std::sqrt(std::fabs(map.determinant())));
    place.angle = static_cast<float>(std::atan2(-direction.y(), direction.x()));
}

Eigen::Vector3d homogeneous(const Keypoint& keypoint) {
    return {static_cast<double>(keypoint.x), static_cast<double>(keypoint.y), 1.0};
}

Eigen::Vector3d epipolarLine(const Eigen::Matrix3d& matrix, const Keypoint& first) {
    const Eigen::Vector3d line = matrix * homogeneous(first);
    return line / line.head<2>().norm();
}

// The affine map that fits matches best: (x, y, 1) of the first image to (x, y) of the second.
Eigen::Matrix<double, 2, 3> affineFit(const std::vector<Eigen::Vector2d>& from,
                                      const std::vector<Eigen::Vector2d>& to) {
    const auto count = static_cast<double>(from.size());
    const Eigen::Vector2d zero = Eigen::Vector2d::Zero();
    const Eigen::Vector2d fromMean = std::accumulate(from.begin(), from.end(), zero) / count;
    const Eigen::Vector2d toMean = std::accumulate(to.begin(), to.end(), zero) / count;
    Eigen::Matrix2d square = Eigen::Matrix2d::Identity() * 1e-6;
    Eigen::Matrix2d cross = Eigen::Matrix2d::Zero();
    for (std::size_t i = 0; i < from.size(); ++i) {
        square += (from[i] - fromMean) * (from[i] - fromMean).transpose();
        cross += (to[i] - toMean) * (from[i] - fromMean).transpose();
    }
    Eigen::Matrix<double, 2, 3> map;
    map.leftCols<2>() = square.ldlt().solve(cross.transpose()).transpose();
    map.col(2) = toMean - map.leftCols<2>() * fromMean;
    return map;
}

}  // namespace

std::vector<Place> placesByHomography(const std::vector<Keypoint>& keypoints,
                                      const Eigen::Matrix3d& homography, Eigen::Index rows,
                                      Eigen::Index cols, float margin) {
    std::vector<Place> places;
    for (std::size_t i = 0; i < keypoints.size(); ++i) {
        const Eigen::Vector3d to = homography * homogeneous(keypoints[i]);
        const Eigen::Vector2d point = to.head<2>() / to.z();
        Place place;
        place.keypoint = static_cast<int>(i);
        place.x = static_cast<float>(point.x());
        place.y = static_cast<float>(point.y());
        const bool inside = place.x >= margin && place.y >= margin &&
                            place.x <= static_cast<float>(cols - 1) - margin &&
                            place.y <= static_cast<float>(rows - 1) - margin;
        if (!inside || to.z() <= 0.0) continue;
        const Eigen::Matrix2d derivative =
            (homography.topLeftCorner<2, 2>() - point * homography.bottomLeftCorner<1, 2>()) /
            to.z();
        mapShape(keypoints[i], derivative, place);
        places.push_back(place);
    }
    return places;
}

EpipolarGeometry epipolarGeometry(const DescribedImage& first, const DescribedImage& second) {
    const std::vector<DMatch> matches = DescMatcherDistFracMutual().match(first.rows, second.rows);
    EpipolarGeometry geometry;
    if (matches.size() < kLeastInliers) return geometry;
    std::vector<cv::Point2f> from;
    std::vector<cv::Point2f> to;
    for (const DMatch& match : matches) {
        const Keypoint& a = first.keypoints[static_cast<std::size_t>(match.queryIndex)];
        const Keypoint& b = second.keypoints[static_cast<std::size_t>(match.trainIndex)];
        from.emplace_back(a.x, a.y);
        to.emplace_back(b.x, b.y);
    }
    std::vector<unsigned char> agrees;
    const cv::Mat matrix =
        cv::findFundamentalMat(from, to, cv::USAC_MAGSAC, kInlierDistance, 0.9999, 20000, agrees);
    if (matrix.rows != 3) return geometry;
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col) geometry.matrix(row, col) = matrix.at<double>(row, col);
    }
    for (std::size_t i = 0; i < matches.size(); ++i) {
        if (agrees[i] != 0) geometry.inliers.push_back(matches[i]);
    }
    geometry.found = geometry.inliers.size() >= kLeastInliers &&
                     static_cast<double>(geometry.inliers.size()) >=
                         kLeastShare * static_cast<double>(matches.size());
    return geometry;
}

float epipolarDistance(const Eigen::Matrix3d& matrix, const Keypoint& first,
                       const Keypoint& second) {
    return static_cast<float>(std::fabs(epipolarLine(matrix, first).dot(homogeneous(second))));
}

std::vector<Place> placesByNeighbours(const DescribedImage& first, const DescribedImage& second,
                                      const EpipolarGeometry& geometry) {
    std::vector<Place> places;
    std::vector<std::pair<double, std::size_t>> byDistance;
    for (std::size_t i = 0; i < first.keypoints.size(); ++i) {
        const Keypoint& keypoint = first.keypoints[i];
        byDistance.clear();
        for (std::size_t m = 0; m < geometry.inliers.size(); ++m) {
            const auto query = static_cast<std::size_t>(geometry.inliers[m].queryIndex);
            // Its own match, and those of other keypoints at the same spot, would tell where the
            // descriptor found it.
            if (first.keypoints[query].samePosition(keypoint)) continue;
            const auto dx = static_cast<double>(first.keypoints[query].x - keypoint.x);
            const auto dy = static_cast<double>(first.keypoints[query].y - keypoint.y);
            byDistance.emplace_back(dx * dx + dy * dy, m);
        }
        if (byDistance.size() < kNeighbours) continue;
        std::partial_sort(byDistance.begin(), byDistance.begin() + kNeighbours, byDistance.end());
        std::vector<Eigen::Vector2d> from;
        std::vector<Eigen::Vector2d> to;
        for (std::size_t n = 0; n < kNeighbours; ++n) {
            const DMatch& match = geometry.inliers[byDistance[n].second];
            const auto query = static_cast<std::size_t>(match.queryIndex);
            const auto train = static_cast<std::size_t>(match.trainIndex);
            from.push_back(homogeneous(first.keypoints[query]).head<2>());
            to.push_back(homogeneous(second.keypoints[train]).head<2>());
        }
        const Eigen::Matrix<double, 2, 3> map = affineFit(from, to);
        const Eigen::Vector2d point = map * homogeneous(keypoint);
        const double determinant = map.leftCols<2>().determinant();
        if (!(determinant > 0.05 && determinant < 20.0)) continue;  // no view of one surface
        Place place;
        place.keypoint = static_cast<int>(i);
        place.x = static_cast<float>(point.x());
        place.y = static_cast<float>(point.y());
        place.line = epipolarLine(geometry.matrix, keypoint).cast<float>();
        mapShape(keypoint, map.leftCols<2>(), place);
        places.push_back(place);
    }
    return places;
}

std::vector<Mate> matesAt(const std::vector<Place>& places, const std::vector<Keypoint>& second) {
    std::vector<Mate> mates;
    for (const Place& place : places) {
        float nearest = kMostDistance * place.scale;
        int found = -1;
        for (std::size_t i = 0; i < second.size(); ++i) {
            const Keypoint& keypoint = second[i];
            const float distance = std::hypot(keypoint.x - place.x, keypoint.y - place.y);
            const float factor = keypoint.scale / place.scale;
            const float fromLine = std::fabs(place.line.x() * keypoint.x +
                                             place.line.y() * keypoint.y + place.line.z());
            if (distance < nearest && factor < kMostScaleFactor && factor > 1 / kMostScaleFactor &&
                angleBetween(keypoint.angle, place.angle) < kMostTurn &&
                fromLine < kMostEpipolarDistance) {
                nearest = distance;
                found = static_cast<int>(i);
            }
        }
        if (found >= 0) mates.push_back({place, found});
    }
    return mates;
}

}  // namespace marlo::tools
