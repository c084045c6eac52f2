// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "libfeatures/base/coverage.h"
#include "marlo/progress.h"
#include "marlo/project.h"

namespace marlo::app {

/// The name of a picture's file, without ending, for what it shows: a '/' in a photograph's name
/// becomes "%2F".
std::string pictureName(const std::string& what);

/// Draws the keypoints of a photograph into a picture file (its ending says of what kind).
/// Functions here throw std::runtime_error if the project has no such photograph or pair, if a
/// photograph cannot be read any more, or if the picture cannot be written.
void showKeypoints(const Project& project, const std::string& name,
                   const std::filesystem::path& picture);
/// Draws a photograph that was extracted as a full panorama, and the working image of that.
void showPanorama(const Project& project, const std::string& name,
                  const std::filesystem::path& picture);
/// What showCoverage() has drawn.
struct ShownCoverage {
    std::size_t keypoints = 0;
    Coverage measured;
};
/// Draws how densely keypoints lie on a photograph.
ShownCoverage showCoverage(const Project& project, const std::string& name,
                           const std::filesystem::path& picture);
/// Draws the matches of two photographs.
void showMatches(const Project& project, const std::string& firstName,
                 const std::string& secondName, const std::filesystem::path& picture);

/// Pictures of a whole project in `folder`: keypoints and coverage of the first photographs,
/// matches of the pairs with most verified matches, up to `most` of each. What cannot be
/// drawn is a warning. Returns the files.
std::vector<std::filesystem::path> showProject(const Project& project,
                                               const std::filesystem::path& folder,
                                               std::size_t most, Progress& progress);

}  // namespace marlo::app
