// SPDX-License-Identifier: BSD-3-Clause
#include "support/bin_io.h"

#include <cstring>
#include <stdexcept>

namespace marlo {

void BinWriter::writeBytes(const void* data, std::size_t count) {
    const auto* const bytes = static_cast<const unsigned char*>(data);
    buffer_.insert(buffer_.end(), bytes, bytes + count);
}

BinReader::BinReader(const void* data, std::size_t size) noexcept
    : data_(static_cast<const unsigned char*>(data)), size_(size) {}

BinReader::BinReader(const std::vector<unsigned char>& buffer) noexcept
    : BinReader(buffer.data(), buffer.size()) {}

void BinReader::readBytes(void* out, std::size_t count) {
    if (count > bytesLeft()) {
        throw std::runtime_error("file too small");
    }
    if (count != 0) {
        std::memcpy(out, data_ + position_, count);
        position_ += count;
    }
}

}  // namespace marlo
