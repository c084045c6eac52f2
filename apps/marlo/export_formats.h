// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <concepts>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "marlo/project.h"

// What exportProject() consists of.
namespace marlo::app {

void exportColmap(const Project& project, const std::filesystem::path& folder);
void exportOpenMvg(const Project& project, const std::filesystem::path& folder);
void exportOpenCv(const Project& project, const std::filesystem::path& folder);
void exportNpz(const Project& project, const std::filesystem::path& folder);

/// @throws std::invalid_argument with `text` if the project's features are LDAH rows.
void refuseLdah(const Project& project, const char* text);

/// The file of each photograph, `fileName` of its name, below `folder`.
/// @throws std::invalid_argument if two of them are equal or one leads out of the folder. The text
///         names the photographs.
[[nodiscard]] std::vector<std::filesystem::path> targets(
    const std::filesystem::path& folder, const std::vector<Photograph>& photographs,
    std::string (*fileName)(const std::string& name));

/// Appends the shortest text, in any locale with a point, that gives the same number again.
void appendNumber(std::string& text, float value);
/// Appends the number in decimal digits.
void appendNumber(std::string& text, std::unsigned_integral auto value) {
    text += std::to_string(value);
}

/// Our angle, in radians counter-clockwise as displayed, turned round: clockwise.
[[nodiscard]] inline float clockwise(float angle) {
    return 0.0F - angle;  // not -angle, which would make -0 of 0
}

/// Appends "first second" lines, one for each match.
void appendMatches(std::string& text, const MatchList& matches);

}  // namespace marlo::app
