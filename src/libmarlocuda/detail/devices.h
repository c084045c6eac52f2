// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace marlo::gpu {

/// A GPU, as the driver knows it.
struct Device {
    std::string name;
    int major = 0;  ///< compute capability
    int minor = 0;
    std::size_t memory = 0;  ///< bytes
};

/// The oldest kind that there is code for.
constexpr int kLeastMajor = 7;
constexpr int kLeastMinor = 5;

/// All GPUs, found once in a process. Empty if there is none, and then `reason` says why.
struct DeviceList {
    std::vector<Device> devices;
    std::string reason;
    bool driverFails = false;  ///< there is a driver, but it cannot list its GPUs
};
const DeviceList& allDevices();

/// The number of the calling thread's GPU among them.
/// @throws Failure if the driver cannot tell.
int deviceOfThisThread();

/// Whether the driver still answers: false after a failure from which a process cannot recover.
bool deviceResponds();

}  // namespace marlo::gpu
