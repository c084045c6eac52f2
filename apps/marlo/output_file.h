// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace marlo::app {

/// Throws for a system call on a file that failed with `error`, a value of errno. The text is
/// "cannot ACTION PATH: " and the system's reason.
/// @throws OutOfSpace if the disk, a quota or a limit on the size of files is used up,
///         std::runtime_error otherwise.
[[noreturn]] void throwFileError(std::string_view action, const std::filesystem::path& path,
                                 int error);

/// Makes a folder and those that it lies in, where missing. @throws as throwFileError().
void makeFolder(const std::filesystem::path& folder);

/// A file that is seen under its name only when it is complete: it is written beside its place, as
/// the name with ".partial" behind it, and renamed at the end. Whatever had the name before stays
/// until then. All functions throw as throwFileError() does.
class OutputFile {
public:
    /// Makes the file's folder where it is missing.
    explicit OutputFile(std::filesystem::path path);
    /// Removes what was written, unless commit() has been called.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(std::string_view bytes);
    /// Gives the file its name. Nothing can be written after it.
    void commit();

private:
    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::filesystem::path path_;
    std::filesystem::path partial_;
    std::unique_ptr<std::FILE, Closer> file_;
    bool committed_ = false;
};

/// Writes an OutputFile at once.
void writeFile(const std::filesystem::path& path, std::string_view content);

/// An OutputFile whose content is compressed as gzip does it. The same content gives the same
/// bytes: no time of writing is stored. Functions throw as OutputFile's, and std::bad_alloc.
class GzipFile {
public:
    explicit GzipFile(std::filesystem::path path);
    ~GzipFile();
    GzipFile(const GzipFile&) = delete;
    GzipFile& operator=(const GzipFile&) = delete;

    void write(std::string_view bytes);
    /// Gives the file its name. Nothing can be written after it.
    void commit();

private:
    struct Stream;

    void compress(std::string_view bytes, int flush);

    OutputFile file_;
    std::unique_ptr<Stream> stream_;
};

}  // namespace marlo::app
