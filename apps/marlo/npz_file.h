// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace marlo::app {

/// The start of an array's file in NumPy's format, version 1.0: everything before the elements,
/// which follow in C order. `type` is NumPy's, such as "<f4", "<u4" or "|u1". The length is a
/// multiple of 64 bytes.
[[nodiscard]] std::string npyHeader(std::string_view type, const std::vector<std::size_t>& shape);

/// A file of arrays by name that `numpy.load` reads: a zip archive in which nothing is compressed.
/// The same arrays give the same bytes. Arrays are made one after the other while commit() runs, so
/// that only one at a time is in memory.
class NpzFile {
public:
    /// The file appears, or takes the place of an older one, when commit() has ended.
    /// @throws OutOfSpace or std::runtime_error if its folder cannot be made.
    explicit NpzFile(std::filesystem::path path);

    /// Adds the array `name`, given as a function that returns header and elements.
    void add(const std::string& name, std::function<std::string()> array);

    /// Writes the file. Nothing is written, and an older file removed, if there are no arrays.
    /// @throws OutOfSpace, std::runtime_error if it cannot be written; what a function of add()
    ///         throws. There is no new file then.
    void commit();

private:
    struct Array {
        std::string name;
        std::function<std::string()> make;
    };

    std::filesystem::path path_;
    std::vector<Array> arrays_;
};

}  // namespace marlo::app
