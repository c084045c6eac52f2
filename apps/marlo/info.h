// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace marlo::app {

/// What this program and this machine can do: versions, kernels chosen, the GPU or why there is
/// none, all GPUs that there are, plug-ins, limits.
nlohmann::json info();

/// The same for people.
std::string infoText(const nlohmann::json& info);

}  // namespace marlo::app
