// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/npz_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zip.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/marlo/scratch.h"
#include "marlo/project.h"

namespace marlo::app {
namespace {

using test::contentOf;
using test::FileSizeLimit;
using test::ScratchFolder;

struct Entry {
    std::string name;
    std::string content;
    int compression = -1;

    bool operator==(const Entry&) const = default;
};

std::vector<Entry> entriesOf(const std::filesystem::path& path) {
    int error = 0;
    zip_t* const archive = zip_open(path.c_str(), ZIP_RDONLY, &error);
    if (archive == nullptr) return {};
    std::vector<Entry> entries;
    for (zip_int64_t i = 0; i < zip_get_num_entries(archive, 0); ++i) {
        zip_stat_t about;
        zip_stat_index(archive, static_cast<zip_uint64_t>(i), 0, &about);
        std::string content(about.size, '?');
        zip_file_t* const file = zip_fopen_index(archive, static_cast<zip_uint64_t>(i), 0);
        zip_fread(file, content.data(), content.size());
        zip_fclose(file);
        entries.push_back({about.name, content, about.comp_method});
    }
    zip_discard(archive);
    return entries;
}

TEST(NpyHeaderTest, HoldsTypeOrderAndShape) {
    std::string expected("\x93NUMPY\x01\x00\x76\x00", 10);  // 118 bytes follow
    expected += "{'descr': '<f4', 'fortran_order': False, 'shape': (3, 4), }";
    expected.resize(127, ' ');
    EXPECT_EQ(npyHeader("<f4", {3, 4}), expected + '\n');
}

TEST(NpyHeaderTest, ShapeOfOneNumberIsATuple) {
    EXPECT_THAT(npyHeader("|u1", {7}), testing::HasSubstr("'|u1'"));
    EXPECT_THAT(npyHeader("|u1", {7}), testing::HasSubstr("'shape': (7,), }"));
}

TEST(NpyHeaderTest, ArraysBeginAtMultiplesOf64Bytes) {
    for (const std::size_t rows : {0UL, 9UL, 123456UL, 12345678901234UL}) {
        EXPECT_EQ(npyHeader("<u4", {rows, 2}).size() % 64, 0U);
    }
}

TEST(NpzFileTest, HoldsTheArraysUncompressed) {
    const ScratchFolder folder;
    const std::string large(100'000, 'x');
    NpzFile file(folder / "a.npz");
    file.add("small", [] { return std::string("abc"); });
    file.add("large", [&] { return large; });
    file.add("none", [] { return std::string(); });
    file.commit();
    const std::vector<Entry> expected = {{"small.npy", "abc", ZIP_CM_STORE},
                                         {"large.npy", large, ZIP_CM_STORE},
                                         {"none.npy", "", ZIP_CM_STORE}};
    EXPECT_EQ(entriesOf(folder / "a.npz"), expected);
}

TEST(NpzFileTest, SameArraysGiveTheSameBytes) {
    const ScratchFolder folder;
    for (const char* const name : {"a.npz", "b.npz"}) {
        NpzFile file(folder / name);
        file.add("array", [] { return npyHeader("|u1", {1}) + '\x05'; });
        file.commit();
    }
    EXPECT_EQ(contentOf(folder / "a.npz"), contentOf(folder / "b.npz"));
    const std::string firstOf1980("\x00\x00\x21\x00", 4);
    EXPECT_EQ(contentOf(folder / "a.npz").substr(10, 4), firstOf1980);
}

TEST(NpzFileTest, ReplacesAnOlderFile) {
    const ScratchFolder folder;
    std::ofstream(folder / "a.npz") << "not an archive";
    NpzFile file(folder / "a.npz");
    file.add("array", [] { return std::string("x"); });
    file.commit();
    EXPECT_EQ(entriesOf(folder / "a.npz").size(), 1U);
}

TEST(NpzFileTest, WithoutArraysThereIsNoFile) {
    const ScratchFolder folder;
    std::ofstream(folder / "a.npz") << "older";
    NpzFile(folder / "a.npz").commit();
    EXPECT_FALSE(std::filesystem::exists(folder / "a.npz"));
}

TEST(NpzFileTest, ExceptionOfAnArrayReachesTheCallerAndLeavesTheOldFile) {
    const ScratchFolder folder;
    std::ofstream(folder / "a.npz") << "older";
    NpzFile file(folder / "a.npz");
    file.add("good", [] { return std::string("x"); });
    file.add("bad", []() -> std::string { throw std::domain_error("no such array"); });
    EXPECT_THROW(file.commit(), std::domain_error);
    EXPECT_EQ(contentOf(folder / "a.npz"), "older");
    const auto files = std::filesystem::directory_iterator(folder / "");
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST(NpzFileTest, ShortWriteIsOutOfSpaceAndLeavesNothing) {
    const ScratchFolder folder;
    NpzFile file(folder / "a.npz");
    file.add("array", [] { return std::string(1'000'000, 'x'); });
    const FileSizeLimit limit(4096);
    try {
        file.commit();
        FAIL() << "nothing was thrown";
    } catch (const OutOfSpace& error) {
        EXPECT_THAT(error.what(),
                    testing::StartsWith("cannot write " + (folder / "a.npz").string() + ": "));
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder / ""));
}

TEST(NpzFileTest, FolderInTheFilesPlaceIsAnError) {
    const ScratchFolder folder;
    std::filesystem::create_directories(folder / "a.npz/b");
    NpzFile file(folder / "a.npz");
    file.add("array", [] { return std::string("x"); });
    try {
        file.commit();
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr((folder / "a.npz").string()));
    }
}

TEST(NpzFileTest, NumPyLoadsIt) {
    const std::string python = "/usr/bin/python3 -c ";
    if (std::system((python + "'import numpy' 2>/dev/null").c_str()) != 0) {
        GTEST_SKIP() << "needs NumPy";
    }
    const ScratchFolder folder;
    const std::array<std::uint32_t, 6> pairs = {1, 2, 3, 4, 5, 4'000'000'000};
    const std::array<float, 2> scores = {0.5F, -1.25F};
    NpzFile file(folder / "a.npz");
    file.add("pairs", [&] {
        return npyHeader("<u4", {3, 2}) +
               std::string(reinterpret_cast<const char*>(pairs.data()), sizeof pairs);
    });
    file.add("scores", [&] {
        return npyHeader("<f4", {2}) +
               std::string(reinterpret_cast<const char*>(scores.data()), sizeof scores);
    });
    file.add("none", [] { return npyHeader("|u1", {0, 16}); });
    file.commit();
    const std::string script =
        "import numpy as np\n"
        "arrays = np.load(\"" +
        (folder / "a.npz").string() +
        "\")\n"
        "assert sorted(arrays) == [\"none\", \"pairs\", \"scores\"]\n"
        "assert arrays[\"pairs\"].dtype == np.uint32\n"
        "assert arrays[\"pairs\"].tolist() == [[1, 2], [3, 4], [5, 4000000000]]\n"
        "assert arrays[\"scores\"].dtype == np.float32\n"
        "assert arrays[\"scores\"].tolist() == [0.5, -1.25]\n"
        "assert arrays[\"none\"].shape == (0, 16)\n";
    EXPECT_EQ(std::system((python + "'" + script + "'").c_str()), 0);
}

}  // namespace
}  // namespace marlo::app
