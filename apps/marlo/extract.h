// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "marlo/photograph_files.h"
#include "marlo/progress.h"
#include "marlo/project.h"

namespace marlo::app {

struct ExtractOptions {
    std::string features = "sift";  ///< or "ldah"
    std::string selector = "TOP";
    int keypoints = 8000;  ///< of each photograph, at most
    int longestSide = 0;   ///< larger photographs are made smaller for detection; 0: never
    int enlargeBelow = 0;  ///< photographs whose longest side is below are enlarged twice; 0: none
    double edgeRatio = 10.0;  ///< of curvatures at a keypoint, at most; 0: any (see removeEdges)
    bool applyOrientation = false;
    bool panorama = false;           ///< photographs are full panoramas, twice as wide as high
    bool allowNonSpherical = false;  ///< others are taken as ordinary ones then, not refused
    std::optional<std::filesystem::path> masks;  ///< folder of <image name>.png
    std::uint64_t memory = 0;  ///< bytes that images in work may take; 0: half of what there is
    int threads = 0;           ///< 0: as many as there are
    bool prune = false;        ///< remove photographs whose files are gone from the project
    bool force = false;        ///< also what is done already
};

/// How the photographs, or pairs, of a command have fared.
struct Outcome {
    std::size_t done = 0;
    std::size_t skipped = 0;  ///< were done already
    std::size_t failed = 0;
    bool interrupted = false;
};

/// Finds and describes keypoints of photographs and stores them in the project, several photographs
/// at once, each in one transaction and in the order of their names. A photograph that cannot be
/// used is stored as failed, with the reason, and reported. Positions are those in the photograph's
/// own pixels, also if it was made smaller. Where the folder that the project's photographs lay in
/// is gone, the given one takes its place if photographs of the project are in it.
/// @throws ProjectError, OutOfSpace; std::runtime_error if an option cannot be met.
Outcome extract(const PhotographFiles& photographs, const ExtractOptions& options, Project& project,
                Progress& progress);

/// Bytes that the process may use: the machine's memory, or the least limit of its control groups.
std::uint64_t availableMemory();

/// A number of bytes such as "8G", "500M" or "1048576". @throws std::invalid_argument otherwise.
std::uint64_t parseMemory(const std::string& text);

}  // namespace marlo::app
