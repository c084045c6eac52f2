// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/output_file.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "marlo/project.h"

namespace marlo::app {

void throwFileError(std::string_view action, const std::filesystem::path& path, int error) {
    const std::string text = "cannot " + std::string(action) + " " + path.string() + ": " +
                             std::generic_category().message(error);
    if (error == ENOSPC || error == EDQUOT || error == EFBIG) throw OutOfSpace(text);
    throw std::runtime_error(text);
}

void makeFolder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) throwFileError("make the folder", folder, error.value());
}

OutputFile::OutputFile(std::filesystem::path path)
    : path_(std::move(path)), partial_(path_.string() + ".partial") {
    if (path_.has_parent_path()) makeFolder(path_.parent_path());
    file_.reset(std::fopen(partial_.c_str(), "wb"));
    if (!file_) throwFileError("write", partial_, errno);
}

OutputFile::~OutputFile() {
    if (committed_) return;
    file_.reset();
    std::error_code ignored;
    std::filesystem::remove(partial_, ignored);
}

void OutputFile::write(std::string_view bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) {
        throwFileError("write", path_, errno);
    }
}

void OutputFile::commit() {
    if (std::fclose(file_.release()) != 0) throwFileError("write", path_, errno);
    if (std::rename(partial_.c_str(), path_.c_str()) != 0) throwFileError("write", path_, errno);
    committed_ = true;
}

void writeFile(const std::filesystem::path& path, std::string_view content) {
    OutputFile file(path);
    file.write(content);
    file.commit();
}

struct GzipFile::Stream {
    static constexpr int kGzipWindow = 15 + 16;  // the largest window; 16 more: with gzip's header
    static constexpr int kMemoryLevel = 8;       // zlib's default

    Stream() {
        if (deflateInit2(&state, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzipWindow, kMemoryLevel,
                         Z_DEFAULT_STRATEGY) != Z_OK) {
            throw std::bad_alloc();  // the parameters being right, there is no other reason
        }
    }
    ~Stream() { deflateEnd(&state); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    z_stream state{};
    std::vector<char> out = std::vector<char>(1U << 16U);
};

GzipFile::GzipFile(std::filesystem::path path)
    : file_(std::move(path)), stream_(std::make_unique<Stream>()) {}

GzipFile::~GzipFile() = default;

void GzipFile::write(std::string_view bytes) {
    constexpr std::size_t kMost = std::numeric_limits<uInt>::max();  // zlib's count of bytes
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kMost))) {
        compress(bytes.substr(0, kMost), Z_NO_FLUSH);
    }
}

void GzipFile::commit() {
    compress({}, Z_FINISH);
    file_.commit();
}

void GzipFile::compress(std::string_view bytes, int flush) {
    z_stream& state = stream_->state;
    std::vector<char>& out = stream_->out;
    // zlib does not write to what it is given to read.
    state.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    state.avail_in = static_cast<uInt>(bytes.size());
    do {
        state.next_out = reinterpret_cast<Bytef*>(out.data());
        state.avail_out = static_cast<uInt>(out.size());
        deflate(&state, flush);
        file_.write({out.data(), out.size() - state.avail_out});
    } while (state.avail_out == 0);
}

}  // namespace marlo::app
