// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "marlo/project.h"

namespace marlo::app {

/// What a project holds: photographs with their keypoints or the reason why they failed, and pairs
/// with their matches, most verified first.
nlohmann::json summary(const Project& project);

/// The same for people, as a table in Markdown.
std::string summaryText(const nlohmann::json& summary);

/// Writes both into the project's folder as summary.json and summary.md.
void writeSummary(const Project& project);

}  // namespace marlo::app
