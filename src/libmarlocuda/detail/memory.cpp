// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/detail/memory.h"

#include <string>

namespace marlo::gpu {
namespace {

// Left to the driver and to other programs, the one that draws the screen among them.
constexpr std::size_t kReserve = std::size_t{64} << 20;

std::string mebibytes(std::size_t bytes) {
    return std::to_string((bytes >> 20) + 1) + " MiB";
}

}  // namespace

void* WorkingMemory::atLeast(std::size_t bytes) {
#if defined(MARLO_GPU_ON_CPU) && defined(__SANITIZE_ADDRESS__)
    if (block_ != nullptr) __asan_unpoison_memory_region(block_, size_);
#endif
    if (bytes <= size_) return block_;
    const std::size_t free = stream_.freeMemory() + size_;
    if (free < kReserve || bytes > free - kReserve) {
        throw Failure(NotEnoughResources, "the GPU has " + mebibytes(free) + " of memory left, " +
                                              mebibytes(bytes) + " would be needed");
    }
    stream_.release(block_);
    block_ = nullptr;
    size_ = 0;
    block_ = stream_.allocate(bytes);
    size_ = bytes;
    return block_;
}

}  // namespace marlo::gpu
