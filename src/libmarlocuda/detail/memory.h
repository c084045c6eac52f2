// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>

#include "libmarlocuda/detail/arithmetic.h"
#include "libmarlocuda/detail/stream.h"

#if defined(MARLO_GPU_ON_CPU) && defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace marlo::gpu {

/// Hands out pieces of one block of the GPU's memory. Without a block it only counts: the same
/// calls tell first how much memory an image needs, and then where its parts lie.
class MemoryPlan {
public:
    explicit MemoryPlan(void* block = nullptr) : block_(static_cast<char*>(block)) {}

    template <typename Value>
    [[nodiscard]] Value* take(long long count) {
        char* const at = block_ == nullptr ? nullptr : block_ + bytes_;
        constexpr std::size_t kAlignment = 256;
        const std::size_t bytes = static_cast<std::size_t>(count) * sizeof(Value);
        bytes_ += (bytes + kAlignment - 1) / kAlignment * kAlignment;
#if defined(MARLO_GPU_ON_CPU) && defined(__SANITIZE_ADDRESS__)
        // What lies between two pieces belongs to none: the sanitizer is told.
        bytes_ += kAlignment;
        if (block_ != nullptr)
            __asan_poison_memory_region(at + bytes, block_ + bytes_ - at - bytes);
#endif
        return reinterpret_cast<Value*>(at);
    }
    [[nodiscard]] Image takeImage(int rows, int cols) {
        return {take<float>(static_cast<long long>(rows) * cols), rows, cols};
    }
    [[nodiscard]] std::size_t bytes() const {
        return bytes_;
    }

private:
    char* block_;
    std::size_t bytes_ = 0;
};

/// The GPU's memory that one thread works in. It is kept from call to call, and replaced by a
/// larger block when a call needs more.
class WorkingMemory {
public:
    explicit WorkingMemory(Stream& stream) : stream_(stream) {}
    ~WorkingMemory() { stream_.release(block_); }
    WorkingMemory(const WorkingMemory&) = delete;
    WorkingMemory& operator=(const WorkingMemory&) = delete;

    /// A block of at least `bytes`; what was in it before is lost.
    /// @throws Failure (NotEnoughResources) before anything is allocated if the GPU has not as much
    ///         memory left.
    [[nodiscard]] void* atLeast(std::size_t bytes);

private:
    Stream& stream_;
    void* block_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace marlo::gpu
