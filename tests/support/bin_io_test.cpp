// SPDX-License-Identifier: BSD-3-Clause
#include "support/bin_io.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

namespace marlo {
namespace {

TEST(BinWriterTest, AppendsBytesInOrder) {
    BinWriter writer;
    writer.writeBytes("ab", 2);
    writer.writeBytes("c", 1);
    EXPECT_EQ(writer.buffer(), (std::vector<unsigned char>{'a', 'b', 'c'}));
}

TEST(BinWriterTest, AppendsNothingForACountOfZero) {
    BinWriter writer;
    writer.writeBytes(nullptr, 0);
    EXPECT_TRUE(writer.buffer().empty());
}

TEST(BinWriterTest, WritesValuesWithoutPaddingInMachineOrder) {
    BinWriter writer;
    writer.write(std::uint8_t{7});
    writer.write(std::uint32_t{0x01020304});
    EXPECT_EQ(writer.buffer(), (std::vector<unsigned char>{7, 4, 3, 2, 1}));
}

TEST(BinReaderTest, ReadsBackWhatWasWritten) {
    BinWriter writer;
    writer.write(std::int64_t{-5});
    writer.write(1.25F);
    BinReader reader(writer.buffer());
    EXPECT_EQ(reader.read<std::int64_t>(), -5);
    EXPECT_EQ(reader.read<float>(), 1.25F);
    EXPECT_EQ(reader.bytesLeft(), 0U);
}

TEST(BinReaderTest, CountsPositionAndBytesLeft) {
    const std::array<unsigned char, 5> bytes{1, 2, 3, 4, 5};
    BinReader reader(bytes.data(), bytes.size());
    std::array<unsigned char, 2> out{};
    reader.readBytes(out.data(), 2);
    EXPECT_EQ(reader.size(), 5U);
    EXPECT_EQ(reader.position(), 2U);
    EXPECT_EQ(reader.bytesLeft(), 3U);
    EXPECT_EQ(out, (std::array<unsigned char, 2>{1, 2}));
}

TEST(BinReaderTest, ReadsUpToTheLastByte) {
    const std::array<unsigned char, 4> bytes{1, 2, 3, 4};
    BinReader reader(bytes.data(), bytes.size());
    std::array<unsigned char, 4> out{};
    reader.readBytes(out.data(), 4);
    EXPECT_EQ(out, bytes);
}

TEST(BinReaderTest, OneByteShortThrowsAndChangesNothing) {
    const std::array<unsigned char, 3> bytes{1, 2, 3};
    BinReader reader(bytes.data(), bytes.size());
    std::array<unsigned char, 4> out{9, 9, 9, 9};
    try {
        reader.readBytes(out.data(), 4);
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "file too small");
    }
    EXPECT_EQ(out, (std::array<unsigned char, 4>{9, 9, 9, 9}));
    EXPECT_EQ(reader.position(), 0U);
    EXPECT_THROW((void)reader.read<std::uint32_t>(), std::runtime_error);
}

TEST(BinReaderTest, CountNearTheAddressSpaceThrows) {
    const std::array<unsigned char, 3> bytes{1, 2, 3};
    BinReader reader(bytes.data(), bytes.size());
    unsigned char out = 0;
    reader.readBytes(&out, 1);
    EXPECT_THROW(reader.readBytes(&out, std::numeric_limits<std::size_t>::max()),
                 std::runtime_error);
    EXPECT_EQ(reader.position(), 1U);
}

TEST(BinReaderTest, EmptyInputGivesNothing) {
    BinReader reader(nullptr, 0);
    reader.readBytes(nullptr, 0);
    EXPECT_EQ(reader.bytesLeft(), 0U);
    EXPECT_THROW((void)reader.read<std::uint8_t>(), std::runtime_error);
}

}  // namespace
}  // namespace marlo
