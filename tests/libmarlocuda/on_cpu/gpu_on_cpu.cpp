// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/on_cpu/gpu_on_cpu.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>

#include "libmarlocuda/detail/stream.h"

namespace marlo::test {
namespace {

// What each allocation took.
std::map<void*, std::size_t>& allocationSizes() {
    static std::map<void*, std::size_t> sizes;
    return sizes;
}

void operate() {
    GpuOnCpu& gpu = GpuOnCpu::instance();
    if (gpu.operations++ == gpu.failingOperation) gpu.failed = true;
    if (gpu.failed) throw gpu::Failure(gpu::ProcessingError, "the test lets the GPU fail");
}

}  // namespace

GpuOnCpu::GpuOnCpu() {
    reset();
}

GpuOnCpu& GpuOnCpu::instance() {
    static GpuOnCpu gpu;
    return gpu;
}

void GpuOnCpu::reset() {
    list.devices = {{"GPU on CPU", 9, 0, std::size_t{8} << 30}};
    list.reason.clear();
    list.driverFails = false;
    deviceOfThread = 0;
    memory = std::size_t{8} << 30;
    failingOperation = -1;
    respondsAfterFailure = true;
    failsToAllocate = false;
    operations = 0;
    allocations = 0;
    streams = 0;
    mostUsed = used;
    failed = false;
}

}  // namespace marlo::test

namespace marlo::gpu {

using test::GpuOnCpu;

const DeviceList& allDevices() {
    return GpuOnCpu::instance().list;
}

int deviceOfThisThread() {
    return GpuOnCpu::instance().deviceOfThread;
}

bool deviceResponds() {
    GpuOnCpu& gpu = GpuOnCpu::instance();
    if (gpu.failed && gpu.respondsAfterFailure) {
        gpu.failed = false;
        gpu.failingOperation = -1;
    }
    return !gpu.failed;
}

Stream::Stream() {
    ++GpuOnCpu::instance().streams;
}

Stream::~Stream() = default;

void Stream::upload(void* device, const void* host, std::size_t bytes) {
    test::operate();
    std::memcpy(device, host, bytes);
}

void Stream::fill(void* device, unsigned char value, std::size_t bytes) {
    test::operate();
    std::memset(device, value, bytes);
}

void Stream::download(void* host, const void* device, std::size_t bytes) {
    test::operate();
    std::memcpy(host, device, bytes);
}

void Stream::finish() {
    test::operate();
}

void* Stream::allocate(std::size_t bytes) {
    GpuOnCpu& gpu = GpuOnCpu::instance();
    if (gpu.failsToAllocate || gpu.used + bytes > gpu.memory) {
        throw Failure(NotEnoughResources, "the test has no memory left");
    }
    constexpr std::size_t kAlignment = 256;
    void* const device =
        std::aligned_alloc(kAlignment, (bytes + kAlignment - 1) / kAlignment * kAlignment);
    // Whatever reads it before it is written finds NaN and huge numbers.
    std::memset(device, 0xff, bytes);
    test::allocationSizes()[device] = bytes;
    ++gpu.allocations;
    gpu.used += bytes;
    gpu.mostUsed = std::max(gpu.mostUsed, gpu.used);
    return device;
}

void Stream::release(void* device) noexcept {
    if (device == nullptr) return;
    const auto allocation = test::allocationSizes().find(device);
    GpuOnCpu::instance().used -= allocation->second;
    test::allocationSizes().erase(allocation);
    std::free(device);
}

std::size_t Stream::freeMemory() const {
    const GpuOnCpu& gpu = GpuOnCpu::instance();
    return gpu.memory > gpu.used ? gpu.memory - gpu.used : 0;
}

void Stream::prepareLaunch(long long blocks) const {
    if (blocks > std::numeric_limits<int>::max()) {
        throw Failure(NotEnoughResources, "too many blocks");
    }
    test::operate();
}

}  // namespace marlo::gpu
