// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <new>
#include <vector>

namespace marlo::detail {

/// Memory that starts with a cache line, so that vectors read from it do not straddle two.
template <typename T>
struct CacheLineAllocator {
    using value_type = T;
    static constexpr std::align_val_t kAlignment{64};

    CacheLineAllocator() = default;
    template <typename U>
    explicit CacheLineAllocator(const CacheLineAllocator<U>&) noexcept {}

    T* allocate(std::size_t count) {
        if (count > static_cast<std::size_t>(-1) / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(::operator new(count * sizeof(T), kAlignment));
    }
    void deallocate(T* memory, std::size_t) noexcept { ::operator delete(memory, kAlignment); }

    friend bool operator==(const CacheLineAllocator&, const CacheLineAllocator&) { return true; }
};

template <typename T>
using AlignedVector = std::vector<T, CacheLineAllocator<T>>;

}  // namespace marlo::detail
