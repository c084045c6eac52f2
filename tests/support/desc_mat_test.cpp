// SPDX-License-Identifier: BSD-3-Clause
#include "support/desc_mat.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <numeric>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace marlo {
namespace {

constexpr int kMaxInt = std::numeric_limits<int>::max();

// A byte matrix whose elements count up from 0.
DescMat counting(int rows, int cols) {
    DescMat matrix(rows, cols, DescMat::Byte);
    std::iota(matrix.data, matrix.data + rows * cols, static_cast<unsigned char>(0));
    return matrix;
}

std::vector<int> bytes(const DescMat& matrix) {
    return {matrix.data, matrix.data + static_cast<std::size_t>(matrix.rows) * matrix.step};
}

void expectEmpty(const DescMat& matrix) {
    EXPECT_TRUE(matrix.empty());
    EXPECT_EQ(matrix.rows, 0);
    EXPECT_EQ(matrix.cols, 0);
    EXPECT_EQ(matrix.data, nullptr);
    EXPECT_EQ(matrix.step, 0U);
    EXPECT_EQ(matrix.type(), 0);
}

template <typename Exception, typename Action>
std::string messageOf(Action action) {
    try {
        action();
    } catch (const Exception& exception) {
        return exception.what();
    }
    return "nothing thrown";
}

TEST(DescMatTest, IsEmptyAtFirst) {
    expectEmpty(DescMat());
}

TEST(DescMatTest, ConstructorGivesShapeTypeAndStep) {
    const DescMat matrix(3, 128, DescMat::Float);
    EXPECT_FALSE(matrix.empty());
    EXPECT_EQ(matrix.rows, 3);
    EXPECT_EQ(matrix.cols, 128);
    EXPECT_EQ(matrix.type(), DescMat::Float);
    EXPECT_EQ(matrix.step, 512U);
}

TEST(DescMatTest, ElementSizeFollowsTheType) {
    EXPECT_EQ(DescMat().elemSizeBytes(), 1U);
    EXPECT_EQ(DescMat(1, 1, 0).elemSizeBytes(), 1U);
    EXPECT_EQ(DescMat(1, 1, DescMat::Float).elemSizeBytes(), 4U);
}

TEST(DescMatTest, TypeCodeOfBytesIsZeroAndOfFloatsIsNot) {
    EXPECT_EQ(DescMat(1, 16, DescMat::Byte).type(), 0);
    EXPECT_NE(DescMat(1, 128, DescMat::Float).type(), 0);
}

TEST(DescMatTest, MatrixWithoutRowsKeepsItsColumnsAndIsEmpty) {
    const DescMat matrix(0, 16, DescMat::Byte);
    EXPECT_TRUE(matrix.empty());
    EXPECT_EQ(matrix.rows, 0);
    EXPECT_EQ(matrix.cols, 16);
    EXPECT_EQ(matrix.data, nullptr);
}

TEST(DescMatTest, MatrixWithoutColumnsIsEmpty) {
    const DescMat matrix(4, 0, DescMat::Float);
    EXPECT_TRUE(matrix.empty());
    EXPECT_EQ(matrix.rows, 4);
}

TEST(DescMatTest, RowsAreAlignedAsTheirSizeAllows) {
    const auto misalignment = [](const DescMat& matrix, std::uintptr_t alignment) {
        std::uintptr_t worst = 0;
        for (int i = 0; i < matrix.rows; ++i) {
            worst =
                std::max(worst, reinterpret_cast<std::uintptr_t>(matrix.row(i).data) % alignment);
        }
        return worst;
    };
    for (int rows = 1; rows < 20; ++rows) {
        EXPECT_EQ(misalignment(DescMat(rows, 128, DescMat::Float), 64), 0U);
        EXPECT_EQ(misalignment(DescMat(rows, 64, DescMat::Byte), 64), 0U);
        EXPECT_EQ(misalignment(DescMat(rows, 16, DescMat::Byte), 16), 0U);
    }
}

TEST(DescMatTest, CreateDropsTheOldShape) {
    DescMat matrix = counting(5, 16);
    matrix.create(2, 128, DescMat::Float);
    EXPECT_EQ(matrix.rows, 2);
    EXPECT_EQ(matrix.cols, 128);
    EXPECT_EQ(matrix.type(), DescMat::Float);
    EXPECT_EQ(matrix.step, 512U);
}

TEST(DescMatTest, CreateWithTheSameShapeKeepsTheBuffer) {
    DescMat matrix(5, 16, DescMat::Byte);
    const unsigned char* const before = matrix.data;
    matrix.create(5, 16, DescMat::Byte);
    EXPECT_EQ(matrix.data, before);
}

TEST(DescMatTest, CreateOnAViewLetsGoOfTheSharedStorage) {
    DescMat matrix = counting(2, 3);
    DescMat view = matrix.row(1);
    view.create(1, 3, DescMat::Byte);
    std::memset(view.data, 99, 3);
    EXPECT_EQ(bytes(matrix), (std::vector<int>{0, 1, 2, 3, 4, 5}));
}

TEST(DescMatTest, ReleaseReturnsToTheEmptyState) {
    DescMat matrix(3, 128, DescMat::Float);
    matrix.release();
    expectEmpty(matrix);
}

TEST(DescMatTest, ReleasedViewLeavesTheStorageAlone) {
    DescMat matrix = counting(2, 2);
    DescMat view = matrix.row(0);
    view.release();
    expectEmpty(view);
    EXPECT_EQ(bytes(matrix), (std::vector<int>{0, 1, 2, 3}));
}

TEST(DescMatTest, RowIsAViewOfTheStorage) {
    DescMat matrix = counting(3, 4);
    const DescMat view = matrix.row(2);
    EXPECT_EQ(view.rows, 1);
    EXPECT_EQ(view.cols, 4);
    EXPECT_EQ(view.type(), DescMat::Byte);
    EXPECT_EQ(view.data, matrix.data + 8);
    view.data[0] = 77;
    EXPECT_EQ(matrix.data[8], 77);
}

TEST(DescMatTest, RowOfAViewSharesTheSameStorage) {
    DescMat matrix = counting(3, 4);
    const DescMat view = matrix.row(1);
    EXPECT_EQ(view.row(0).data, matrix.data + 4);
}

TEST(DescMatTest, RowOutsideTheMatrixThrows) {
    const DescMat matrix(3, 4, DescMat::Byte);
    EXPECT_EQ(messageOf<std::out_of_range>([&] { (void)matrix.row(3); }),
              "DescMat: row 3 of a matrix of 3 rows");
    EXPECT_EQ(messageOf<std::out_of_range>([&] { (void)matrix.row(-1); }),
              "DescMat: row -1 of a matrix of 3 rows");
    EXPECT_THROW((void)DescMat().row(0), std::out_of_range);
}

TEST(DescMatTest, CopyToCopiesShapeTypeAndContents) {
    const DescMat source = counting(2, 3);
    DescMat copy(7, 128, DescMat::Float);
    source.copyTo(copy);
    EXPECT_EQ(copy.rows, 2);
    EXPECT_EQ(copy.cols, 3);
    EXPECT_EQ(copy.type(), DescMat::Byte);
    EXPECT_NE(copy.data, source.data);
    EXPECT_EQ(bytes(copy), (std::vector<int>{0, 1, 2, 3, 4, 5}));
}

TEST(DescMatTest, CopyToARowViewWritesThrough) {
    const DescMat source = counting(2, 3);
    DescMat target(2, 3, DescMat::Byte);
    std::memset(target.data, 9, 6);
    DescMat targetRow = target.row(1);
    source.row(0).copyTo(targetRow);
    EXPECT_EQ(bytes(target), (std::vector<int>{9, 9, 9, 0, 1, 2}));
    EXPECT_EQ(targetRow.data, target.data + 3);
}

TEST(DescMatTest, CopyToAViewOfAnotherShapeOrTypeMakesItAnOwner) {
    const DescMat source = counting(1, 3);
    DescMat target = counting(2, 4);
    DescMat otherShape = target.row(0);
    source.copyTo(otherShape);
    EXPECT_EQ(bytes(otherShape), (std::vector<int>{0, 1, 2}));

    DescMat floats(1, 4, DescMat::Float);
    std::memset(floats.data, 0, floats.step);
    DescMat otherType = target.row(1);
    floats.copyTo(otherType);
    EXPECT_EQ(otherType.type(), DescMat::Float);

    EXPECT_EQ(bytes(target), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST(DescMatTest, CopyToOfAnEmptyMatrixEmptiesTheTarget) {
    DescMat target = counting(2, 2);
    DescMat(0, 16, DescMat::Byte).copyTo(target);
    EXPECT_TRUE(target.empty());
    EXPECT_EQ(target.cols, 16);
}

TEST(DescMatTest, CopyToMayUseTheStorageThatTheTargetOwns) {
    DescMat matrix = counting(3, 4);
    matrix.row(1).copyTo(matrix);
    EXPECT_EQ(matrix.rows, 1);
    EXPECT_EQ(bytes(matrix), (std::vector<int>{4, 5, 6, 7}));
}

TEST(DescMatTest, CopyToItselfChangesNothing) {
    DescMat matrix = counting(2, 2);
    matrix.copyTo(matrix);
    EXPECT_EQ(bytes(matrix), (std::vector<int>{0, 1, 2, 3}));
}

TEST(DescMatTest, MovingHandsOverTheStorage) {
    DescMat source = counting(2, 2);
    const unsigned char* const data = source.data;
    DescMat target = std::move(source);
    EXPECT_EQ(target.data, data);
    EXPECT_EQ(bytes(target), (std::vector<int>{0, 1, 2, 3}));
    expectEmpty(source);  // NOLINT(bugprone-use-after-move): the state is promised
}

TEST(DescMatTest, MoveAssignmentToAViewLeavesItsStorageAlone) {
    DescMat matrix = counting(2, 2);
    DescMat view = matrix.row(0);
    view = counting(1, 3);
    EXPECT_EQ(bytes(view), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(bytes(matrix), (std::vector<int>{0, 1, 2, 3}));
}

TEST(DescMatTest, CannotBeCopiedByAccident) {
    EXPECT_FALSE(std::is_copy_constructible_v<DescMat>);
    EXPECT_FALSE(std::is_copy_assignable_v<DescMat>);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<DescMat>);
}

TEST(DescMatTest, NegativeShapesThrowAndChangeNothing) {
    DescMat matrix = counting(2, 2);
    EXPECT_EQ(messageOf<std::length_error>([&] { matrix.create(-1, 16, DescMat::Byte); }),
              "DescMat: negative shape -1 x 16");
    EXPECT_EQ(messageOf<std::length_error>([&] { matrix.create(1, -16, DescMat::Float); }),
              "DescMat: negative shape 1 x -16");
    EXPECT_THROW(DescMat(std::numeric_limits<int>::min(), kMaxInt, DescMat::Byte),
                 std::length_error);
    EXPECT_EQ(bytes(matrix), (std::vector<int>{0, 1, 2, 3}));
}

TEST(DescMatTest, ShapeBeyondTheAddressSpaceThrows) {
    // 2147483647^2 x 4 bytes would be 4 modulo 2^64.
    EXPECT_EQ(messageOf<std::length_error>([] { DescMat(kMaxInt, kMaxInt, DescMat::Float); }),
              "DescMat: shape 2147483647 x 2147483647 exceeds the address space");
}

TEST(DescMatTest, ShapeBeyondTheMemoryThrowsAndChangesNothing) {
    DescMat matrix = counting(2, 2);
    EXPECT_THROW(matrix.create(kMaxInt, kMaxInt, DescMat::Byte), std::bad_alloc);
    EXPECT_EQ(bytes(matrix), (std::vector<int>{0, 1, 2, 3}));
}

TEST(DescMatTest, UnknownTypeThrowsAndChangesNothing) {
    DescMat matrix = counting(2, 2);
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { matrix.create(1, 1, 3); }),
              "DescMat: unknown element type 3");
    EXPECT_EQ(bytes(matrix), (std::vector<int>{0, 1, 2, 3}));
}

TEST(AllocateDescriptorsTest, MakesZeroedRowsOfTheLdahForm) {
    DescMat matrix = counting(9, 5);
    allocateDescriptors(matrix, 3, false);
    EXPECT_EQ(matrix.rows, 3);
    EXPECT_EQ(matrix.cols, 16);
    EXPECT_EQ(matrix.type(), 0);
    EXPECT_EQ(bytes(matrix), std::vector<int>(48, 0));
}

TEST(AllocateDescriptorsTest, MakesZeroedRowsOfTheSiftForm) {
    DescMat matrix;
    allocateDescriptors(matrix, 2, true);
    EXPECT_EQ(matrix.rows, 2);
    EXPECT_EQ(matrix.cols, 128);
    EXPECT_NE(matrix.type(), 0);
    EXPECT_EQ(matrix.elemSizeBytes(), 4U);
    EXPECT_EQ(bytes(matrix), std::vector<int>(1024, 0));
}

TEST(AllocateDescriptorsTest, ZeroesABufferThatIsUsedAgain) {
    DescMat matrix(2, 16, DescMat::Byte);
    std::memset(matrix.data, 255, 32);
    allocateDescriptors(matrix, 2, false);
    EXPECT_EQ(bytes(matrix), std::vector<int>(32, 0));
}

TEST(AllocateDescriptorsTest, NoKeypointsGiveAMatrixWithoutRows) {
    DescMat matrix = counting(2, 2);
    allocateDescriptors(matrix, 0, false);
    EXPECT_TRUE(matrix.empty());
    EXPECT_EQ(matrix.rows, 0);
    EXPECT_EQ(matrix.cols, 16);
    EXPECT_EQ(matrix.type(), 0);
}

TEST(AllocateDescriptorsTest, NegativeCountThrowsAndChangesNothing) {
    DescMat matrix = counting(1, 2);
    EXPECT_THROW(allocateDescriptors(matrix, -1, true), std::length_error);
    EXPECT_EQ(bytes(matrix), (std::vector<int>{0, 1}));
}

}  // namespace
}  // namespace marlo
