// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/output_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <zlib.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "apps/marlo/scratch.h"
#include "marlo/project.h"

namespace marlo::app {
namespace {

using test::contentOf;
using test::FileSizeLimit;
using test::ScratchFolder;

std::string unzipped(const std::filesystem::path& path) {
    const gzFile file = gzopen(path.c_str(), "rb");
    std::string content;
    std::array<char, 1024> piece{};
    for (int count = 1; count > 0;) {
        count = gzread(file, piece.data(), static_cast<unsigned>(piece.size()));
        if (count > 0) content.append(piece.data(), static_cast<std::size_t>(count));
    }
    EXPECT_EQ(gzclose(file), Z_OK);
    return content;
}

std::string randomBytes(std::size_t count) {
    std::mt19937 random(5);
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i) bytes += static_cast<char>(random() & 0xFFU);
    return bytes;
}

TEST(OutputFileTest, HasItsNameOnlyAfterCommit) {
    const ScratchFolder folder;
    OutputFile file(folder / "list.txt");
    file.write("one\n");
    EXPECT_FALSE(std::filesystem::exists(folder / "list.txt"));
    file.write("two\n");
    file.commit();
    EXPECT_EQ(contentOf(folder / "list.txt"), "one\ntwo\n");
    EXPECT_FALSE(std::filesystem::exists(folder / "list.txt.partial"));
}

TEST(OutputFileTest, WithoutCommitTheOldFileStaysAndNothingIsLeft) {
    const ScratchFolder folder;
    std::ofstream(folder / "list.txt") << "old";
    {
        OutputFile file(folder / "list.txt");
        file.write("new");
    }
    EXPECT_EQ(contentOf(folder / "list.txt"), "old");
    EXPECT_FALSE(std::filesystem::exists(folder / "list.txt.partial"));
}

TEST(OutputFileTest, FoldersAreMade) {
    const ScratchFolder folder;
    OutputFile file(folder / "a/b/list.txt");
    file.commit();
    EXPECT_EQ(contentOf(folder / "a/b/list.txt"), "");
}

TEST(OutputFileTest, FolderThatIsAFileIsAnErrorThatNamesIt) {
    const ScratchFolder folder;
    std::ofstream(folder / "a") << "a file";
    try {
        const OutputFile file(folder / "a/list.txt");
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), testing::StartsWith("cannot make the folder " +
                                                      (folder / "a").string() + ": "));
    }
}

TEST(OutputFileTest, ShortWriteIsOutOfSpaceAndLeavesNothing) {
    const ScratchFolder folder;
    {
        const FileSizeLimit limit(4096);
        OutputFile file(folder / "list.txt");
        try {
            file.write(std::string(1'000'000, 'x'));
            file.commit();
            FAIL() << "nothing was thrown";
        } catch (const OutOfSpace& error) {
            EXPECT_EQ(error.what(), "cannot write " + (folder / "list.txt").string() + ": " +
                                        std::generic_category().message(EFBIG));
        }
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder / ""));
}

TEST(OutputFileTest, BytesThatAreStillInMemoryAreMissedAtTheEnd) {
    const ScratchFolder folder;
    const FileSizeLimit limit(10);
    OutputFile file(folder / "list.txt");
    file.write("eleven bytes");
    EXPECT_THROW(file.commit(), OutOfSpace);
}

TEST(OutputFileTest, FullDiskAndUsedUpQuotaAreOutOfSpaceAndOtherErrorsAreNot) {
    EXPECT_THROW(throwFileError("write", "f", ENOSPC), OutOfSpace);
    EXPECT_THROW(throwFileError("write", "f", EDQUOT), OutOfSpace);
    try {
        throwFileError("write", "f", EACCES);
    } catch (const OutOfSpace&) {
        FAIL() << "not a matter of space";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "cannot write f: " + std::generic_category().message(EACCES));
    }
}

TEST(GzipFileTest, GivesBackWhatWasWritten) {
    const ScratchFolder folder;
    const std::string bytes = randomBytes(300'000);  // more than one buffer, compressed
    GzipFile file(folder / "bytes.gz");
    file.write(bytes);
    file.write("");
    file.write("end");
    file.commit();
    EXPECT_EQ(unzipped(folder / "bytes.gz"), bytes + "end");
}

TEST(GzipFileTest, IsEmptyIfNothingWasWritten) {
    const ScratchFolder folder;
    GzipFile file(folder / "bytes.gz");
    file.commit();
    EXPECT_EQ(unzipped(folder / "bytes.gz"), "");
}

TEST(GzipFileTest, StoresNoTime) {
    const ScratchFolder folder;
    GzipFile file(folder / "bytes.gz");
    file.write("x");
    file.commit();
    EXPECT_EQ(contentOf(folder / "bytes.gz").substr(0, 8),
              std::string("\x1f\x8b\x08\x00\x00\x00\x00\x00", 8));
}

TEST(GzipFileTest, ShortWriteIsOutOfSpace) {
    const ScratchFolder folder;
    const FileSizeLimit limit(4096);
    GzipFile file(folder / "bytes.gz");
    EXPECT_THROW(
        {
            file.write(randomBytes(1'000'000));
            file.commit();
        },
        OutOfSpace);
}

}  // namespace
}  // namespace marlo::app
