// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <stdexcept>
#include <string>

#include "marlo/progress.h"

namespace marlo::app {

/// The user has asked for a GPU and there is none that can be used.
class NoUsableGpu : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Whether a GPU can be used at this moment.
bool gpuIsUsable();

/// Does what --gpu says, for the whole process; to be called before anything is created or written.
/// "auto" uses a GPU that can be used, and says why not where there is one that cannot; "off" uses
/// none; "on" insists.
/// @throws NoUsableGpu with the reason if `choice` is "on"; UsageError if it is another word.
void chooseGpu(const std::string& choice, Progress& progress);

/// What the user is told where the GPU fails: that the CPU does its work, and why. To be called by
/// the thread whose call failed; `cause` is what the library said of it, if it said anything.
std::string gpuFailureText(const std::string& cause);

/// Says which GPU is used, once for a command. Nothing if none can be used.
void sayGpuInUse(Progress& progress);

}  // namespace marlo::app
