// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <type_traits>
#include <vector>

#include "libfeatures/features_export.h"

namespace marlo {

/// Collects bytes in memory, in the machine's byte order and without any padding or header.
class FEATURES_EXPORT BinWriter {
public:
    /// Appends `count` bytes from outside this writer. `data` may be null where `count` is 0.
    /// @throws std::bad_alloc or std::length_error if there is not enough memory; the buffer is
    ///         unchanged then.
    void writeBytes(const void* data, std::size_t count);

    /// Appends the bytes of one value.
    template <typename T>
    void write(const T& value) {
        static_assert(std::is_trivially_copyable_v<T>, "only plain values have a binary form");
        writeBytes(&value, sizeof(T));
    }

    /// Everything written so far.
    [[nodiscard]] const std::vector<unsigned char>& buffer() const noexcept { return buffer_; }

private:
    std::vector<unsigned char> buffer_;
};

/// Reads bytes from memory that the caller keeps alive and unchanged, front to back, never beyond
/// the end.
class FEATURES_EXPORT BinReader {
public:
    /// Reads from `size` bytes at `data`, which may be null where `size` is 0.
    BinReader(const void* data, std::size_t size) noexcept;
    /// Reads what a writer holds or a host has loaded.
    explicit BinReader(const std::vector<unsigned char>& buffer) noexcept;
    explicit BinReader(std::vector<unsigned char>&& buffer) = delete;  // would not stay alive

    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    [[nodiscard]] std::size_t position() const noexcept { return position_; }
    [[nodiscard]] std::size_t bytesLeft() const noexcept { return size_ - position_; }

    /// Copies the next `count` bytes to `out` and moves on by as many.
    /// @throws std::runtime_error "file too small" if fewer are left; `out` and the position are
    ///         unchanged then.
    void readBytes(void* out, std::size_t count);

    /// Reads one value. @throws std::runtime_error as readBytes().
    template <typename T>
    [[nodiscard]] T read() {
        static_assert(std::is_trivially_copyable_v<T>, "only plain values have a binary form");
        T value;
        readBytes(&value, sizeof(T));
        return value;
    }

private:
    const unsigned char* data_;
    std::size_t size_;
    std::size_t position_ = 0;
};

}  // namespace marlo
