// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/npz_file.h"

#include <zip.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

#include "marlo/output_file.h"

namespace marlo::app {
namespace {

// The zip format's first day. A time of writing would make equal files differ.
constexpr zip_uint16_t kFirstDay = 0x21;

/// What libzip reads one array from. It calls read() through a table of commands, and exceptions
/// must not pass through it: they wait in `failure`.
class ArraySource {
public:
    ArraySource(const std::function<std::string()>& make, std::exception_ptr& failure)
        : make_(make), failure_(failure) {
        zip_error_init(&error_);
    }

    static zip_int64_t callback(void* self, void* data, zip_uint64_t size, zip_source_cmd_t what) {
        return static_cast<ArraySource*>(self)->answer(data, size, what);
    }

private:
    zip_int64_t answer(void* data, zip_uint64_t size, zip_source_cmd_t what) {
        switch (what) {
            case ZIP_SOURCE_SUPPORTS:
                return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ,
                                                      ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                                                      ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, -1);
            case ZIP_SOURCE_OPEN:
                return open();
            case ZIP_SOURCE_READ:
                return read(data, size);
            case ZIP_SOURCE_CLOSE:
                bytes_ = {};
                return 0;
            case ZIP_SOURCE_STAT:
                zip_stat_init(static_cast<zip_stat_t*>(data));  // the size is not known yet
                return sizeof(zip_stat_t);
            case ZIP_SOURCE_ERROR:
                return zip_error_to_data(&error_, data, size);
            case ZIP_SOURCE_FREE:
                return 0;  // commit() owns this
            default:
                zip_error_set(&error_, ZIP_ER_OPNOTSUPP, 0);
                return -1;
        }
    }

    zip_int64_t open() {
        try {
            bytes_ = make_();
            position_ = 0;
            return 0;
        } catch (...) {
            failure_ = std::current_exception();
            zip_error_set(&error_, ZIP_ER_OPEN, 0);
            return -1;
        }
    }

    zip_int64_t read(void* data, zip_uint64_t size) {
        const std::size_t count = std::min<std::size_t>(size, bytes_.size() - position_);
        std::memcpy(data, bytes_.data() + position_, count);
        position_ += count;
        return static_cast<zip_int64_t>(count);
    }

    const std::function<std::string()>& make_;
    std::exception_ptr& failure_;
    std::string bytes_;
    std::size_t position_ = 0;
    zip_error_t error_;
};

struct Discard {
    void operator()(zip_t* archive) const { zip_discard(archive); }
};

[[noreturn]] void throwZipError(const std::filesystem::path& path, zip_error_t& error) {
    const bool isSystemError = zip_error_system_type(&error) == ZIP_ET_SYS;
    const int code = zip_error_code_system(&error);
    const std::string text = zip_error_strerror(&error);
    zip_error_fini(&error);
    if (isSystemError) throwFileError("write", path, code);
    throw std::runtime_error("cannot write " + path.string() + ": " + text);
}

}  // namespace

std::string npyHeader(std::string_view type, const std::vector<std::size_t>& shape) {
    constexpr std::size_t kAlignment = 64;
    std::string sizes;
    for (const std::size_t size : shape) sizes += std::to_string(size) + ", ";
    if (shape.size() > 1) sizes.resize(sizes.size() - 2);   // (2, 3)
    if (shape.size() == 1) sizes.resize(sizes.size() - 1);  // (2,)
    std::string text = "{'descr': '" + std::string(type) + "', 'fortran_order': False, 'shape': (" +
                       sizes + "), }";
    std::string header("\x93NUMPY\x01\x00", 8);
    const std::size_t unpadded = header.size() + 2 + text.size() + 1;
    text.append((kAlignment - unpadded % kAlignment) % kAlignment, ' ');
    text += '\n';
    header += static_cast<char>(text.size() & 0xFFU);  // 16 bits, the lower byte first
    header += static_cast<char>(text.size() >> 8U);
    return header + text;
}

NpzFile::NpzFile(std::filesystem::path path) : path_(std::move(path)) {
    if (path_.has_parent_path()) makeFolder(path_.parent_path());
}

void NpzFile::add(const std::string& name, std::function<std::string()> array) {
    arrays_.push_back({name + ".npy", std::move(array)});
}

void NpzFile::commit() {
    std::exception_ptr failure;
    std::vector<std::unique_ptr<ArraySource>> states;  // outlive the archive
    int code = 0;
    std::unique_ptr<zip_t, Discard> archive(
        zip_open(path_.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &code));
    if (!archive) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        throwZipError(path_, error);
    }
    for (const Array& array : arrays_) {
        states.push_back(std::make_unique<ArraySource>(array.make, failure));
        zip_source_t* source =
            zip_source_function(archive.get(), ArraySource::callback, states.back().get());
        if (source == nullptr) throwZipError(path_, *zip_get_error(archive.get()));
        const zip_int64_t index =
            zip_file_add(archive.get(), array.name.c_str(), source, ZIP_FL_ENC_UTF_8);
        if (index < 0) {
            zip_source_free(source);
            throwZipError(path_, *zip_get_error(archive.get()));
        }
        const auto entry = static_cast<zip_uint64_t>(index);
        if (zip_set_file_compression(archive.get(), entry, ZIP_CM_STORE, 0) != 0 ||
            zip_file_set_dostime(archive.get(), entry, 0, kFirstDay, 0) != 0) {
            throwZipError(path_, *zip_get_error(archive.get()));
        }
    }
    // libzip writes beside the file and renames.
    if (zip_close(archive.get()) != 0) {
        if (failure) std::rethrow_exception(failure);
        throwZipError(path_, *zip_get_error(archive.get()));
    }
    static_cast<void>(archive.release());
}

}  // namespace marlo::app
