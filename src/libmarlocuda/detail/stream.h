// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

#include "libmarlocuda/detail/block.h"
#include "libmarlocuda/detail/failure.h"

namespace marlo::gpu {

/// Work for the GPU, done in the order in which it is given: kernels, copies and fills. Each
/// operation throws Failure; a kernel that fails may be noticed by any later one. Belongs to the
/// GPU that was the calling thread's when it was made. Pointers named `device` are the GPU's.
class Stream {
public:
    Stream();
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// Runs `blocks` blocks of a kernel (see block.h).
    template <typename Kernel>
    void launch(long long blocks, const Kernel& kernel);

    void upload(void* device, const void* host, std::size_t bytes);
    void fill(void* device, unsigned char value, std::size_t bytes);
    /// Waits for the result, and so for all that was given before.
    void download(void* host, const void* device, std::size_t bytes);
    void finish();

    /// Memory of the GPU. allocate() throws Failure with NotEnoughResources.
    [[nodiscard]] void* allocate(std::size_t bytes);
    void release(void* device) noexcept;
    [[nodiscard]] std::size_t freeMemory() const;

    /// What runs on the GPU, for whoever times it: a cudaStream_t.
    [[nodiscard]] void* handle() const { return handle_; }

private:
    void prepareLaunch(long long blocks) const;
    void checkLaunch(int error) const;  // a cudaError_t

    void* handle_ = nullptr;
};

#if defined(__CUDACC__)

template <typename Kernel>
__global__ void __launch_bounds__(Kernel::kThreads)
    runKernel(const __grid_constant__ Kernel kernel) {
    __shared__ typename Kernel::Shared shared;
    const Block<Kernel::kThreads> block{static_cast<int>(blockIdx.x), static_cast<int>(gridDim.x)};
    kernel(block, shared);
}

template <typename Kernel>
void Stream::launch(long long blocks, const Kernel& kernel) {
    if (blocks == 0) return;
    prepareLaunch(blocks);
    // Unlike <<<>>> it returns its own error, not one that the host has left behind.
    void* arguments[] = {const_cast<Kernel*>(&kernel)};
    checkLaunch(cudaLaunchKernel(runKernel<Kernel>, dim3(static_cast<unsigned>(blocks)),
                                 dim3(Kernel::kThreads), arguments, 0,
                                 static_cast<cudaStream_t>(handle_)));
}

#else

template <typename Kernel>
void Stream::launch(long long blocks, const Kernel& kernel) {
    if (blocks == 0) return;
    prepareLaunch(blocks);
    const auto count = static_cast<int>(blocks);
    for (int i = 0; i < count; ++i) {
        typename Kernel::Shared shared;
        kernel(Block<Kernel::kThreads>{CpuOrder::place(i, count), count}, shared);
    }
}

#endif

}  // namespace marlo::gpu
