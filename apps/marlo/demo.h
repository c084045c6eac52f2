// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>

#include "marlo/progress.h"

namespace marlo::app {

/// Renders views of a scene whose cameras are known, runs the whole chain on them with SIFT rows
/// and with LDAH codes, writes pictures, and prints how many matches are right: within 2 pixels of
/// where the scene says. Everything lies in `folder` then, the true cameras in cameras.json.
/// @throws ProjectError, OutOfSpace, std::runtime_error.
void demo(const std::filesystem::path& folder, Progress& progress);

}  // namespace marlo::app
