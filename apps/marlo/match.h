// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <optional>
#include <string>

#include "marlo/extract.h"
#include "marlo/progress.h"
#include "marlo/project.h"

namespace marlo::app {

struct MatchOptions {
    /// Which photographs to match: "all", "sequence:K" (each with the K that follow it by name),
    /// "similar:K" (each with the K that are most like it, see pairsOfSimilar()), or "list:FILE" (a
    /// line for each pair: two names, in quotation marks where they hold spaces).
    std::string pairs = "all";
    std::string matcher = "DistFracMutual";
    /// What tells SIFT rows apart: "hellinger" (see hellingerRows()) or "euclidean".
    std::string distance = "hellinger";
    /// Of the ratio test, where the matcher has one; if not given, 0.85 for SIFT rows and 0.9 for
    /// LDAH codes.
    std::optional<float> ratio;
    int threads = 0;     ///< 0: as many as there are
    bool force = false;  ///< also what is done already
    /// A GPU has been asked for: say so if none of the pairs is matched on it.
    bool gpuIsWanted = false;
};

/// What can be wrong with the options before anything is done. `features` is "sift" or "ldah".
/// @throws std::invalid_argument with a sentence for the user.
void check(const MatchOptions& options, const std::string& features);

/// Matches pairs of photographs that have features, each pair in one transaction. A usable GPU
/// compares LDAH codes for the matcher DistFrac; the matches are the same without.
/// @throws ProjectError, OutOfSpace; std::invalid_argument as check(); std::runtime_error if a list
///         of pairs cannot be read or there are no two photographs with features. A pair that
///         cannot be matched is reported and counted as failed.
Outcome match(const MatchOptions& options, Project& project, Progress& progress);

struct VerifyOptions {
    double error = 2.0;     ///< pixels that an inlier may lie from its epipolar line or its place
    int leastInliers = 15;  ///< fewer are none
    /// Of the matches, or the pair has no geometry: by chance a few always agree with some model.
    double leastShare = 0.1;
    int threads = 0;     ///< 0: as many as there are
    bool force = false;  ///< also what is done already
};

/// Finds, for every matched pair, the fundamental matrix and the homography that most matches agree
/// with (MAGSAC++, D. Barath et al., CVPR 2020) and keeps the matches that do. The same matches
/// give the same geometry. Full panoramas are compared by their rays (see verifyPanoramas()); a
/// panorama and an ordinary photograph cannot be.
/// @throws ProjectError, OutOfSpace.
Outcome verify(const VerifyOptions& options, Project& project, Progress& progress);

/// The geometry of one pair. @throws std::runtime_error if matches are of keypoints that are not
/// there.
VerifiedPair verifyPair(const std::vector<Keypoint>& first, const std::vector<Keypoint>& second,
                        const MatchList& matches, const VerifyOptions& options);

/// The geometry of two full panoramas, from the rays that their pixels see along: an essential
/// matrix or, where the panoramas were taken in one place, a rotation. `options.error` is in pixels
/// at the equator of the smaller panorama. @throws std::runtime_error as verifyPair(),
/// std::invalid_argument unless each match has a score.
VerifiedPair verifyPanoramas(const std::vector<Keypoint>& first, const Camera& firstCamera,
                             const std::vector<Keypoint>& second, const Camera& secondCamera,
                             const PairMatches& found, const VerifyOptions& options);

}  // namespace marlo::app
