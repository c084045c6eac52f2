// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>

#include "libfeatures/features_export.h"

namespace marlo {

/// What the rows of a set of descriptors are.
enum class DescriptorType : std::uint8_t {
    LDAH = 0,  ///< 128 bits in 16 bytes, compared by Hamming distance
    SIFT = 1,  ///< 128 floats, compared by Euclidean distance
};

/// The descriptor matrix: one descriptor per row, row i belonging to keypoint i.
///
/// A matrix either owns its elements or is a view, which is what row() returns. A view shares the
/// storage of the matrix that it was taken from and owns nothing: it must not be used after that
/// matrix was destroyed, released, moved from or given another shape. Copying is always explicit
/// (copyTo()); moving hands over the storage. Several threads may write different rows at once.
///
/// Forms of the library, told apart by type() and `cols`:
///
/// | form  | type()        | cols | bytes a row | bits                                     |
/// |-------|---------------|------|-------------|------------------------------------------|
/// | LDAH  | DescMat::Byte | 16   | 16          | bit j in byte j / 8, at position j mod 8 |
/// | SIFT  | DescMat::Float| 128  | 512         |                                          |
/// | Brief | DescMat::Byte | 64   | 64          | as LDAH                                  |
class FEATURES_EXPORT DescMat {
public:
    /// Element types. The codes are those of cv::Mat (CV_8U, CV_32F), so a host may wrap a matrix
    /// as `cv::Mat(m.rows, m.cols, m.type(), m.data, m.step)` without a copy.
    enum ElementType : int {
        Byte = 0,   ///< one-byte unsigned elements
        Float = 5,  ///< 32-bit float elements
    };

    /// An empty matrix: no rows, no columns, no buffer, type Byte.
    DescMat() noexcept = default;
    /// As create() on an empty matrix.
    DescMat(int rows, int cols, int type);
    DescMat(DescMat&& other) noexcept;
    DescMat& operator=(DescMat&& other) & noexcept;
    DescMat(const DescMat&) = delete;
    DescMat& operator=(const DescMat&) = delete;
    ~DescMat();

    /// Makes this an owning matrix of the given shape and type. The old contents are dropped and
    /// the new ones unspecified; a buffer of the same shape and type is used again. A view lets go
    /// of the storage that it shared, which stays as it is.
    /// Row starts are 64-byte aligned where the row size is a multiple of 64 bytes, 16-byte
    /// aligned where it is a multiple of 16 (LDAH).
    /// @throws std::length_error if `rows` or `cols` is negative or the matrix would not fit into
    ///         the address space, std::invalid_argument if `type` is not an ElementType,
    ///         std::bad_alloc if there is not enough memory. The matrix is unchanged in each case.
    void create(int rows, int cols, int type);

    /// Copies shape, type and contents into `dst`. Where `dst` is a view of the same shape and
    /// type, the elements are written through into the storage that it shares; otherwise `dst`
    /// becomes an owning matrix. `dst` may share storage with this matrix.
    /// @throws std::bad_alloc if there is not enough memory; `dst` is unchanged then.
    void copyTo(DescMat& dst) const;

    /// Width of one element in bytes: 1 for Byte, 4 for Float.
    [[nodiscard]] std::size_t elemSizeBytes() const noexcept;

    /// True when there is nothing in the matrix: no rows, or rows of no columns.
    [[nodiscard]] bool empty() const noexcept { return data == nullptr; }

    /// Frees the buffer (a view: lets go of it) and returns to the state of DescMat().
    void release() noexcept;

    /// A one-row view of row `i`. It can be written through, also when taken from a const matrix.
    /// @throws std::out_of_range unless 0 <= i < rows.
    [[nodiscard]] DescMat row(int i) const;

    /// The element type: an ElementType, as the plain code.
    [[nodiscard]] int type() const noexcept { return type_; }

    // Read these freely. Change them only through the operations above, except to put a matrix that
    // owns nothing, DescMat(0, cols, type), around rows of your own: then set all four.
    int rows = 0;                   ///< number of descriptors
    int cols = 0;                   ///< number of elements in a row
    unsigned char* data = nullptr;  ///< first byte; row i starts at data + i * step
    /// Bytes from one row to the next: cols * elemSizeBytes(), or more around rows of your own.
    std::size_t step = 0;

private:
    int type_ = Byte;
    bool ownsData_ = false;
};

/// Sizes `descriptors` for `count` rows of the SIFT form if `sift`, of the LDAH form otherwise,
/// and sets every byte to 0, so that a row that no extractor fills is defined.
/// @throws std::length_error if `count` is negative, std::bad_alloc if there is not enough memory.
///         `descriptors` is unchanged in both cases.
FEATURES_EXPORT void allocateDescriptors(DescMat& descriptors, int count, bool sift);

}  // namespace marlo
