// SPDX-License-Identifier: BSD-3-Clause
#include <cuda_runtime_api.h>

#include <limits>
#include <string>

#include "libmarlocuda/detail/stream.h"

namespace marlo::gpu {
namespace {

void check(cudaError_t error, const char* operation) {
    if (error == cudaSuccess) return;
    (void)cudaGetLastError();  // what the host asks for next is none of its errors
    throw Failure(error == cudaErrorMemoryAllocation ? NotEnoughResources : ProcessingError,
                  std::string(operation) + ": " + cudaGetErrorString(error));
}

cudaStream_t asStream(void* handle) {
    return static_cast<cudaStream_t>(handle);
}

}  // namespace

Stream::Stream() {
    cudaStream_t stream = nullptr;
    // Does not wait for what the host does on its default stream, nor that for this.
    check(cudaStreamCreateWithFlags(&stream, cudaStreamNonBlocking), "cannot create a stream");
    handle_ = stream;
}

Stream::~Stream() {
    (void)cudaStreamDestroy(asStream(handle_));
    (void)cudaGetLastError();
}

void Stream::upload(void* device, const void* host, std::size_t bytes) {
    check(cudaMemcpyAsync(device, host, bytes, cudaMemcpyHostToDevice, asStream(handle_)),
          "cannot copy to the GPU");
}

void Stream::fill(void* device, unsigned char value, std::size_t bytes) {
    check(cudaMemsetAsync(device, value, bytes, asStream(handle_)),
          "cannot fill memory of the GPU");
}

void Stream::download(void* host, const void* device, std::size_t bytes) {
    check(cudaMemcpyAsync(host, device, bytes, cudaMemcpyDeviceToHost, asStream(handle_)),
          "cannot copy from the GPU");
    finish();
}

void Stream::finish() {
    check(cudaStreamSynchronize(asStream(handle_)), "the GPU failed");
}

void* Stream::allocate(std::size_t bytes) {
    void* device = nullptr;
    check(cudaMalloc(&device, bytes), "cannot allocate memory of the GPU");
    return device;
}

void Stream::release(void* device) noexcept {
    // Waits for the work that uses it.
    (void)cudaFree(device);
    (void)cudaGetLastError();
}

std::size_t Stream::freeMemory() const {
    std::size_t free = 0;
    std::size_t total = 0;
    check(cudaMemGetInfo(&free, &total), "cannot ask for the memory of the GPU");
    return free;
}

void Stream::prepareLaunch(long long blocks) const {
    if (blocks > std::numeric_limits<int>::max()) {
        throw Failure(NotEnoughResources, "the work is more than the GPU can count");
    }
}

void Stream::checkLaunch(int error) const {
    check(static_cast<cudaError_t>(error), "cannot run a kernel");
}

}  // namespace marlo::gpu
