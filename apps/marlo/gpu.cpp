// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/gpu.h"

#include <vector>

#include "libmarlocuda/marlocuda.h"
#include "marlo/project.h"

namespace marlo::app {
namespace {

// The GPU in use, or why there is none.
std::string activeDevice() {
    std::string description;
    cuda::getActiveDeviceString(description);
    return description;
}

bool anyGpuIsFound() {
    std::vector<std::string> devices;
    cuda::getDeviceStrings(devices);
    return !devices.empty();
}

}  // namespace

bool gpuIsUsable() {
    return cuda::isFeatureAvailable() && cuda::gpusAvailableForProcessing();
}

void chooseGpu(const std::string& choice, Progress& progress) {
    if (choice == "off") {
        cuda::setProcessingEnabled(false);
    } else if (choice == "on") {
        if (!gpuIsUsable()) throw NoUsableGpu("--gpu on: " + activeDevice());
    } else if (choice != "auto") {
        throw UsageError("--gpu is auto, off or on, not '" + choice + "'");
    } else if (!gpuIsUsable() && anyGpuIsFound()) {
        progress.message("No GPU is used: " + activeDevice());
    }
}

void sayGpuInUse(Progress& progress) {
    if (gpuIsUsable()) progress.messageOnce("GPU: " + activeDevice());
}

}  // namespace marlo::app
