// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/ray_geometry.h"

#include <Eigen/Eigenvalues>
#include <Eigen/Geometry>
#include <Eigen/SVD>
#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>
#include <utility>

namespace marlo::app {
namespace {

using Indices = std::vector<Eigen::Index>;
using Matrix9 = Eigen::Matrix<double, 9, 9>;

constexpr double kConfidence = 0.9999;
constexpr int kMostSamples = 20000;
constexpr int kRefinements = 4;
// Sampled among twice as many of the pairs after each of these, from four times a sample on.
constexpr int kSamplesOfStage = 400;

struct Essential {
    static constexpr std::size_t kSample = 8;

    // R. Hartley, In Defense of the Eight-Point Algorithm, PAMI 1997; unit rays are conditioned.
    static Eigen::Matrix3d fit(const Rays& first, const Rays& second, const Indices& pairs) {
        Matrix9 normal = Matrix9::Zero();
        for (const Eigen::Index i : pairs) {
            const Eigen::Vector3d& a = first[static_cast<std::size_t>(i)];
            const Eigen::Vector3d& b = second[static_cast<std::size_t>(i)];
            Eigen::Matrix<double, 9, 1> row;
            row << b.x() * a, b.y() * a, b.z() * a;
            normal.noalias() += row * row.transpose();
        }
        const Eigen::SelfAdjointEigenSolver<Matrix9> solver(normal);
        const Eigen::Matrix<double, 9, 1> least = solver.eigenvectors().col(0);
        Eigen::Matrix3d matrix;
        matrix << least.segment<3>(0).transpose(), least.segment<3>(3).transpose(),
            least.segment<3>(6).transpose();
        const Eigen::JacobiSVD<Eigen::Matrix3d> svd(matrix,
                                                    Eigen::ComputeFullU | Eigen::ComputeFullV);
        return svd.matrixU() * Eigen::Vector3d(1.0, 1.0, 0.0).asDiagonal() *
               svd.matrixV().transpose();
    }

    static bool agrees(const Eigen::Matrix3d& matrix, const Eigen::Vector3d& a,
                       const Eigen::Vector3d& b, double sine) {
        const Eigen::Vector3d inSecond = matrix * a;
        const double product = b.dot(inSecond);
        const double limit = sine * sine;
        return product * product <= limit * inSecond.squaredNorm() &&
               product * product <= limit * (b.transpose() * matrix).squaredNorm();
    }
};

struct Rotation {
    static constexpr std::size_t kSample = 2;

    // W. Kabsch, Acta Crystallographica A 32, 1976.
    static Eigen::Matrix3d fit(const Rays& first, const Rays& second, const Indices& pairs) {
        Eigen::Matrix3d sum = Eigen::Matrix3d::Zero();
        for (const Eigen::Index i : pairs) {
            sum += second[static_cast<std::size_t>(i)] *
                   first[static_cast<std::size_t>(i)].transpose();
        }
        const Eigen::JacobiSVD<Eigen::Matrix3d> svd(sum, Eigen::ComputeFullU | Eigen::ComputeFullV);
        const double sign = (svd.matrixU() * svd.matrixV().transpose()).determinant();
        return svd.matrixU() * Eigen::Vector3d(1.0, 1.0, sign).asDiagonal() *
               svd.matrixV().transpose();
    }

    static bool agrees(const Eigen::Matrix3d& matrix, const Eigen::Vector3d& a,
                       const Eigen::Vector3d& b, double sine) {
        return (matrix * a - b).squaredNorm() <= sine * sine;
    }
};

template <typename Model>
Indices agreeing(const Eigen::Matrix3d& matrix, const Rays& first, const Rays& second,
                 double sine) {
    Indices inliers;
    for (std::size_t i = 0; i < first.size(); ++i) {
        if (Model::agrees(matrix, first[i], second[i], sine)) {
            inliers.push_back(static_cast<Eigen::Index>(i));
        }
    }
    return inliers;
}

// Samples after which one without an outlier has most likely been among them.
int samplesNeeded(std::size_t inliers, std::size_t pairs, std::size_t sample) {
    const double share = static_cast<double>(inliers) / static_cast<double>(pairs);
    const double allGood = std::pow(share, static_cast<double>(sample));
    if (allGood >= 1.0) return 1;
    const double needed = std::log(1.0 - kConfidence) / std::log1p(-allGood);
    return static_cast<int>(std::min(needed + 1.0, static_cast<double>(kMostSamples)));
}

template <typename Model>
Indices drawn(std::size_t among, std::mt19937& generator) {
    Indices sample;
    while (sample.size() < Model::kSample) {
        const auto next = static_cast<Eigen::Index>(generator() % among);
        if (std::find(sample.begin(), sample.end(), next) == sample.end()) sample.push_back(next);
    }
    return sample;
}

template <typename Model>
RayModel refined(RayModel best, const Rays& first, const Rays& second, double sine) {
    for (int i = 0; i < kRefinements; ++i) {
        const Eigen::Matrix3d matrix = Model::fit(first, second, best.inliers);
        Indices inliers = agreeing<Model>(matrix, first, second, sine);
        if (inliers.size() < best.inliers.size()) break;
        const bool isMore = inliers.size() > best.inliers.size();
        best = {matrix, std::move(inliers)};
        if (!isMore) break;
    }
    return best;
}

template <typename Model>
RayModel estimated(const Rays& first, const Rays& second, double angle) {
    if (first.size() != second.size()) {
        throw std::invalid_argument("There must be as many rays of one camera as of the other");
    }
    RayModel best;
    if (first.size() < Model::kSample) return best;
    const double sine = std::sin(angle);
    std::mt19937 generator(1);
    std::size_t among = std::min(4 * Model::kSample, first.size());
    int needed = kMostSamples;
    for (int i = 0; i < needed; ++i) {
        if (i % kSamplesOfStage == kSamplesOfStage - 1) among = std::min(2 * among, first.size());
        const Eigen::Matrix3d matrix = Model::fit(first, second, drawn<Model>(among, generator));
        RayModel found{matrix, agreeing<Model>(matrix, first, second, sine)};
        if (found.inliers.size() <= best.inliers.size()) continue;
        if (found.inliers.size() > Model::kSample) {
            found = refined<Model>(std::move(found), first, second, sine);
        }
        best = std::move(found);
        needed = samplesNeeded(best.inliers.size(), first.size(), Model::kSample);
    }
    return best;
}

}  // namespace

RayModel essentialMatrix(const Rays& first, const Rays& second, double angle) {
    return estimated<Essential>(first, second, angle);
}

RayModel rotationBetween(const Rays& first, const Rays& second, double angle) {
    return estimated<Rotation>(first, second, angle);
}

}  // namespace marlo::app
