// SPDX-License-Identifier: BSD-3-Clause
#include <cuda_runtime_api.h>

#include "libmarlocuda/detail/devices.h"
#include "libmarlocuda/detail/failure.h"

namespace marlo::gpu {
namespace {

DeviceList findDevices() {
    DeviceList list;
    int count = 0;
    cudaError_t error = cudaGetDeviceCount(&count);
    for (int i = 0; i < count && error == cudaSuccess; ++i) {
        cudaDeviceProp properties{};
        error = cudaGetDeviceProperties(&properties, i);
        if (error != cudaSuccess) break;
        list.devices.push_back(
            {properties.name, properties.major, properties.minor, properties.totalGlobalMem});
    }
    if (error != cudaSuccess) {
        list.devices.clear();
        int driver = 0;
        (void)cudaDriverGetVersion(&driver);
        list.reason = driver == 0 ? "no NVIDIA driver was found" : cudaGetErrorString(error);
        list.driverFails = driver != 0 && error != cudaErrorNoDevice;
        (void)cudaGetLastError();
    } else if (list.devices.empty()) {
        list.reason = "the driver knows none";
    }
    return list;
}

}  // namespace

const DeviceList& allDevices() {
    static const DeviceList list = findDevices();
    return list;
}

int deviceOfThisThread() {
    int device = 0;
    const cudaError_t error = cudaGetDevice(&device);
    if (error != cudaSuccess) {
        (void)cudaGetLastError();
        throw Failure(ProcessingError, cudaGetErrorString(error));
    }
    return device;
}

bool deviceResponds() {
    // Fails again after an error that leaves the context unusable, and after no other.
    const bool responds = cudaDeviceSynchronize() == cudaSuccess;
    (void)cudaGetLastError();
    return responds;
}

}  // namespace marlo::gpu
