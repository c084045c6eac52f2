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
        std::string reason = activeDevice();
        if (reason.starts_with("no GPU: ")) reason.erase(0, std::string("no GPU: ").size());
        progress.message("No GPU is used: " + reason);
    }
}

std::string gpuFailureText(const std::string& cause) {
    return "the GPU failed, and the CPU does its work: " + (cause.empty() ? "" : cause + " ") +
           "(" + activeDevice() + ")";
}

void sayGpuInUse(Progress& progress) {
    if (gpuIsUsable()) progress.messageOnce("GPU: " + activeDevice());
}

}  // namespace marlo::app
