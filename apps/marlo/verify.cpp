// SPDX-License-Identifier: BSD-3-Clause
#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <nlohmann/json.hpp>
#include <numbers>
#include <numeric>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <set>
#include <vector>

#include "libfeatures/base/keypoint_utils.h"
#include "libfeatures/version.h"
#include "marlo/interruption.h"
#include "marlo/match.h"
#include "marlo/ordered_work.h"
#include "marlo/pair_order.h"
#include "marlo/ray_geometry.h"
#include "marlo/recently_used.h"
#include "support/cameras/calib_camera.h"
#include "support/cameras/camera_spherical.h"
#include "support/system.h"

namespace marlo::app {
namespace {

// COLMAP's names of two-view geometries.
constexpr int kDegenerate = 1;
constexpr int kCalibrated = 2;
constexpr int kUncalibrated = 3;
constexpr int kPlanarOrPanoramic = 6;

constexpr double kConfidence = 0.9999;
constexpr int kMostIterations = 10000;
// So many of a fundamental matrix's inliers must one homography explain for the pair to show a
// plane, or no parallax.
constexpr double kPlanarShare = 0.8;

struct Model {
    Eigen::Matrix3d matrix = Eigen::Matrix3d::Zero();
    std::vector<Eigen::Index> inliers;
};

Model model(const cv::Mat& matrix, const std::vector<unsigned char>& agrees) {
    Model found;
    if (matrix.rows != 3 || matrix.cols != 3 || matrix.depth() != CV_64F) return found;
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 3; ++col) found.matrix(row, col) = matrix.at<double>(row, col);
    }
    if (!found.matrix.allFinite()) return {};
    for (std::size_t i = 0; i < agrees.size(); ++i) {
        if (agrees[i] != 0) found.inliers.push_back(static_cast<Eigen::Index>(i));
    }
    return found;
}

// Robust estimation draws from a generator that begins anew with every call.
template <typename Estimate>
Model estimated(const Estimate& estimate) {
    std::vector<unsigned char> agrees;
    try {
        const cv::Mat matrix = estimate(agrees);
        return model(matrix, agrees);
    } catch (const cv::Exception& error) {
        if (error.code == cv::Error::StsNoMem) throw std::bad_alloc();
        return {};  // too few matches, or all of them in one place
    }
}

// Keeps the matches that agree, if they are enough.
void keepInliers(const std::vector<Eigen::Index>& inliers, const MatchList& matches,
                 const VerifyOptions& options, int config, VerifiedPair& verified) {
    const double share = static_cast<double>(inliers.size()) / static_cast<double>(matches.rows());
    if (inliers.size() < static_cast<std::size_t>(options.leastInliers) ||
        share < options.leastShare) {
        verified = VerifiedPair();
        verified.inliers.resize(0, 2);
        return;
    }
    verified.config = config;
    verified.inliers.resize(static_cast<Eigen::Index>(inliers.size()), 2);
    for (std::size_t i = 0; i < inliers.size(); ++i) {
        verified.inliers.row(static_cast<Eigen::Index>(i)) = matches.row(inliers[i]);
    }
}

// Whether a model without parallax explains enough of the matches.
bool explains(std::size_t inliers, std::size_t epipolarInliers, const VerifyOptions& options) {
    return inliers >= static_cast<std::size_t>(options.leastInliers) &&
           static_cast<double>(inliers) >= kPlanarShare * static_cast<double>(epipolarInliers);
}

void checkIndices(std::size_t first, std::size_t second, const MatchList& matches) {
    if (matches.col(0).maxCoeff() >= first || matches.col(1).maxCoeff() >= second) {
        throw std::runtime_error(
            "there are matches of keypoints that are not there; match again (marlo match --force)");
    }
}

Rays raysOf(const std::vector<Keypoint>& keypoints, const MatchList& matches, Eigen::Index column,
            const Camera& camera) {
    std::vector<Keypoint> matched;
    for (Eigen::Index i = 0; i < matches.rows(); ++i) {
        matched.push_back(keypoints[matches(i, column)]);
    }
    Rays rays;
    keypoint::keypointsToHomPoints(
        matched, std::make_shared<CalibCamera>(CameraSpherical(camera.width, camera.height)), rays);
    return rays;
}

struct Verified {
    VerifiedPair geometry;
    std::string failure;
};

std::size_t mostKeypointBytes(const Project& project) {
    std::size_t most = 1;
    for (const Photograph& photograph : project.photographs()) {
        most = std::max(most, static_cast<std::size_t>(photograph.keypoints) * sizeof(Keypoint));
    }
    return most;
}

// Pairs are what is done side by side.
class OneOpenCvThread {
public:
    OneOpenCvThread() : before_(cv::getNumThreads()) { cv::setNumThreads(1); }
    ~OneOpenCvThread() { cv::setNumThreads(before_); }
    OneOpenCvThread(const OneOpenCvThread&) = delete;
    OneOpenCvThread& operator=(const OneOpenCvThread&) = delete;

private:
    int before_;
};

}  // namespace

VerifiedPair verifyPair(const std::vector<Keypoint>& first, const std::vector<Keypoint>& second,
                        const MatchList& matches, const VerifyOptions& options) {
    VerifiedPair verified;
    verified.inliers.resize(0, 2);
    if (matches.rows() == 0 || matches.rows() < options.leastInliers) return verified;
    checkIndices(first.size(), second.size(), matches);
    std::vector<cv::Point2d> from;
    std::vector<cv::Point2d> to;
    for (Eigen::Index i = 0; i < matches.rows(); ++i) {
        const Keypoint& a = first[matches(i, 0)];
        const Keypoint& b = second[matches(i, 1)];
        from.emplace_back(a.x, a.y);
        to.emplace_back(b.x, b.y);
    }
    const Model epipolar = estimated([&](std::vector<unsigned char>& agrees) {
        return cv::findFundamentalMat(from, to, cv::USAC_MAGSAC, options.error, kConfidence,
                                      kMostIterations, agrees);
    });
    const Model planar = estimated([&](std::vector<unsigned char>& agrees) {
        return cv::findHomography(from, to, cv::USAC_MAGSAC, options.error, agrees, kMostIterations,
                                  kConfidence);
    });
    const bool isPlanar = explains(planar.inliers.size(), epipolar.inliers.size(), options);
    const Model& kept =
        isPlanar && planar.inliers.size() > epipolar.inliers.size() ? planar : epipolar;
    verified.fundamental = epipolar.matrix;
    verified.homography = planar.matrix;
    keepInliers(kept.inliers, matches, options, isPlanar ? kPlanarOrPanoramic : kUncalibrated,
                verified);
    return verified;
}

VerifiedPair verifyPanoramas(const std::vector<Keypoint>& first, const Camera& firstCamera,
                             const std::vector<Keypoint>& second, const Camera& secondCamera,
                             const PairMatches& found, const VerifyOptions& options) {
    VerifiedPair verified;
    verified.inliers.resize(0, 2);
    const MatchList& matches = found.matches;
    if (matches.rows() == 0 || matches.rows() < options.leastInliers) return verified;
    checkIndices(first.size(), second.size(), matches);
    if (found.scores.size() != static_cast<std::size_t>(matches.rows())) {
        throw std::invalid_argument("There must be as many scores as matches");
    }
    // The best first: samples are drawn from these.
    std::vector<Eigen::Index> order(static_cast<std::size_t>(matches.rows()));
    std::iota(order.begin(), order.end(), Eigen::Index{0});
    std::stable_sort(order.begin(), order.end(), [&](Eigen::Index a, Eigen::Index b) {
        return found.scores[static_cast<std::size_t>(a)] >
               found.scores[static_cast<std::size_t>(b)];
    });
    const MatchList ordered = matches(order, Eigen::all);
    const Rays from = raysOf(first, ordered, 0, firstCamera);
    const Rays to = raysOf(second, ordered, 1, secondCamera);
    const double angle =
        options.error * std::numbers::pi / std::min(firstCamera.height, secondCamera.height);
    const RayModel epipolar = essentialMatrix(from, to, angle);
    const RayModel turned = rotationBetween(from, to, angle);
    const bool isTurned = explains(turned.inliers.size(), epipolar.inliers.size(), options);
    // The epipolar planes of cameras in one place are arbitrary: the rotation is what tells.
    std::vector<Eigen::Index> inliers = isTurned ? turned.inliers : epipolar.inliers;
    for (Eigen::Index& inlier : inliers) inlier = order[static_cast<std::size_t>(inlier)];
    std::sort(inliers.begin(), inliers.end());
    verified.essential = epipolar.matrix;
    keepInliers(inliers, matches, options, isTurned ? kPlanarOrPanoramic : kCalibrated, verified);
    return verified;
}

namespace {

VerifiedPair verified(const std::vector<Keypoint>& first, const Camera& firstCamera,
                      const std::vector<Keypoint>& second, const Camera& secondCamera,
                      const PairMatches& found, const VerifyOptions& options) {
    if (firstCamera.isPanorama() != secondCamera.isPanorama()) {
        throw std::runtime_error(
            "one is a full panorama and the other is not: such pairs cannot be verified");
    }
    return firstCamera.isPanorama()
               ? verifyPanoramas(first, firstCamera, second, secondCamera, found, options)
               : verifyPair(first, second, found.matches, options);
}

}  // namespace

Outcome verify(const VerifyOptions& options, Project& project, Progress& progress) {
    const std::string stamp = nlohmann::json({{"error", options.error},
                                              {"least_inliers", options.leastInliers},
                                              {"least_share", options.leastShare},
                                              {"library", libraryVersion()}})
                                  .dump();
    std::set<PairOfIds> unverified;
    Outcome outcome;
    for (const Pair& pair : project.pairs()) {
        if (!options.force && pair.inliers && pair.verifyStamp == stamp) {
            ++outcome.skipped;
        } else {
            unverified.insert({pair.first, pair.second});
        }
    }
    const auto memory = static_cast<std::size_t>(availableMemory() / 8);
    const std::vector<PairOfIds> wanted =
        inBlocks(unverified, memory / 2 / mostKeypointBytes(project));
    RecentlyUsed<std::vector<Keypoint>> cache(memory);
    std::map<std::int64_t, std::string> names;
    for (const Photograph& photograph : project.photographs()) {
        names[photograph.id] = photograph.name;
    }
    std::mutex inUse;  // the project and the cache
    const auto keypointsOf = [&](std::int64_t id) {
        return cache.get(
            id, [&](std::int64_t i) { return project.keypoints(i); },
            [](const std::vector<Keypoint>& all) { return all.size() * sizeof(Keypoint); });
    };
    const OneOpenCvThread oneThreadEach;
    const int threads = options.threads > 0 ? options.threads : system::noLogicalCPUs();
    progress.begin("verify", "pairs", wanted.size());
    workInOrder(
        wanted.size(), static_cast<std::size_t>(threads),
        [&](std::size_t i) {
            std::unique_lock<std::mutex> lock(inUse);
            const auto first = keypointsOf(wanted[i].first);
            const auto second = keypointsOf(wanted[i].second);
            const PairMatches found = project.matches(wanted[i].first, wanted[i].second);
            const Camera firstCamera = project.camera(wanted[i].first);
            const Camera secondCamera = project.camera(wanted[i].second);
            lock.unlock();
            Verified result;
            try {
                result.geometry =
                    verified(*first, firstCamera, *second, secondCamera, found, options);
            } catch (const std::runtime_error& error) {
                result.failure = error.what();
            }
            return result;
        },
        [&](std::size_t i, Verified&& result) {
            const std::lock_guard<std::mutex> lock(inUse);
            if (result.failure.empty()) {
                project.putGeometry(wanted[i].first, wanted[i].second, result.geometry, stamp);
                ++outcome.done;
            } else {
                const std::string pair = names[wanted[i].first] + " and " + names[wanted[i].second];
                ++outcome.failed;
                progress.failed(pair, result.failure);
            }
            progress.advance();
        },
        [] { return interruption() != 0; });
    progress.end();
    outcome.interrupted = interruption() != 0;
    return outcome;
}

}  // namespace marlo::app
