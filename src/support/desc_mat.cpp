// SPDX-License-Identifier: BSD-3-Clause
#include "support/desc_mat.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace marlo {
namespace {

constexpr std::size_t kAlignment = 64;  // a cache line, and the widest vector register
constexpr int kLdahColumns = 16;
constexpr int kSiftColumns = 128;

std::size_t elementSize(int type) {
    switch (type) {
        case DescMat::Byte:
            return sizeof(unsigned char);
        case DescMat::Float:
            return sizeof(float);
        default:
            throw std::invalid_argument("DescMat: unknown element type " + std::to_string(type));
    }
}

std::string shapeText(int rows, int cols) {
    return std::to_string(rows) + " x " + std::to_string(cols);
}

std::size_t byteCount(int rows, int cols, std::size_t elemSize) {
    constexpr std::size_t kLimit = std::numeric_limits<std::ptrdiff_t>::max() - kAlignment;
    if (rows < 0 || cols < 0) {
        throw std::length_error("DescMat: negative shape " + shapeText(rows, cols));
    }
    // rows and cols are below 2^31, so their product fits; the bytes may not.
    const std::size_t elements = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
    if (elements > kLimit / elemSize) {
        throw std::length_error("DescMat: shape " + shapeText(rows, cols) +
                                " exceeds the address space");
    }
    return elements * elemSize;
}

unsigned char* allocateAligned(std::size_t bytes) {
    if (bytes == 0) {
        return nullptr;
    }
    const std::size_t rounded = (bytes + kAlignment - 1) / kAlignment * kAlignment;
    void* const buffer = std::aligned_alloc(kAlignment, rounded);
    if (buffer == nullptr) {
        throw std::bad_alloc();
    }
    return static_cast<unsigned char*>(buffer);
}

}  // namespace

DescMat::DescMat(int newRows, int newCols, int newType) {
    create(newRows, newCols, newType);
}

DescMat::DescMat(DescMat&& other) noexcept {
    *this = std::move(other);
}

DescMat& DescMat::operator=(DescMat&& other) & noexcept {
    if (this != &other) {
        release();
        rows = std::exchange(other.rows, 0);
        cols = std::exchange(other.cols, 0);
        data = std::exchange(other.data, nullptr);
        step = std::exchange(other.step, 0);
        type_ = std::exchange(other.type_, Byte);
        ownsData_ = std::exchange(other.ownsData_, false);
    }
    return *this;
}

DescMat::~DescMat() {
    release();
}

void DescMat::create(int newRows, int newCols, int newType) {
    const std::size_t elemSize = elementSize(newType);
    const std::size_t bytes = byteCount(newRows, newCols, elemSize);
    if (ownsData_ && rows == newRows && cols == newCols && type_ == newType) {
        return;
    }
    unsigned char* const newData = allocateAligned(bytes);
    release();
    rows = newRows;
    cols = newCols;
    data = newData;
    step = static_cast<std::size_t>(newCols) * elemSize;
    type_ = newType;
    ownsData_ = newData != nullptr;
}

void DescMat::copyTo(DescMat& dst) const {
    if (this == &dst) {
        return;
    }
    if (dst.rows != rows || dst.cols != cols || dst.type_ != type_) {
        // Filled before `dst` lets go of its storage, which may be the one this view shares.
        DescMat copy(rows, cols, type_);
        copyTo(copy);
        dst = std::move(copy);
        return;
    }
    if (empty()) {
        return;
    }
    // Rows that a host wrapped may lie further apart than they are wide.
    const std::size_t rowBytes = static_cast<std::size_t>(cols) * elemSizeBytes();
    for (std::size_t row = 0; row < static_cast<std::size_t>(rows); ++row) {
        std::memmove(dst.data + row * dst.step, data + row * step, rowBytes);
    }
}

std::size_t DescMat::elemSizeBytes() const noexcept {
    return type_ == Float ? sizeof(float) : sizeof(unsigned char);
}

void DescMat::release() noexcept {
    if (ownsData_) {
        std::free(data);
    }
    rows = 0;
    cols = 0;
    data = nullptr;
    step = 0;
    type_ = Byte;
    ownsData_ = false;
}

DescMat DescMat::row(int i) const {
    if (i < 0 || i >= rows) {
        throw std::out_of_range("DescMat: row " + std::to_string(i) + " of a matrix of " +
                                std::to_string(rows) + " rows");
    }
    DescMat view;
    view.rows = 1;
    view.cols = cols;
    view.data = data == nullptr ? nullptr : data + static_cast<std::size_t>(i) * step;
    view.step = step;
    view.type_ = type_;
    return view;
}

void allocateDescriptors(DescMat& descriptors, int count, bool sift) {
    descriptors.create(count, sift ? kSiftColumns : kLdahColumns,
                       sift ? DescMat::Float : DescMat::Byte);
    if (!descriptors.empty()) {
        std::memset(descriptors.data, 0, descriptors.step * static_cast<std::size_t>(count));
    }
}

}  // namespace marlo
