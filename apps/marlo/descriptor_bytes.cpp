// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/descriptor_bytes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>
#include <stdexcept>

namespace marlo::app {
namespace {

constexpr int kElements = 128;
constexpr double kUnit = 512.0;  // what stands for 1 in bytes; larger elements than 1 / 2 are rare
constexpr double kLargestByte = 255.0;

void check(const DescMat& floats) {
    if (floats.rows > 0 && (floats.cols != kElements || floats.type() != DescMat::Float)) {
        throw std::invalid_argument("roots are made of SIFT rows of 128 floats only");
    }
}

using Row = std::array<float, std::size_t{kElements}>;

Row rowOf(const DescMat& floats, int i) {
    Row row;
    std::memcpy(row.data(), floats.data + static_cast<std::size_t>(i) * floats.step, sizeof(row));
    return row;
}

// The square roots of the elements' shares in their sum; nothing if the row points nowhere.
std::optional<std::array<double, std::size_t{kElements}>> roots(const Row& row) {
    double sum = 0.0;
    for (const float element : row) sum += std::abs(static_cast<double>(element));
    if (!(sum > 0.0) || !std::isfinite(sum)) return std::nullopt;
    std::array<double, std::size_t{kElements}> all{};
    for (std::size_t j = 0; j < row.size(); ++j) {
        all[j] = std::sqrt(std::max(0.0, static_cast<double>(row[j])) / sum);
    }
    return all;
}

// `added` is 0.5 to round and 0 to cut off.
DescMat rootBytes(const DescMat& floats, double added) {
    check(floats);
    DescMat bytes(floats.rows, kElements, DescMat::Byte);
    for (int i = 0; i < floats.rows; ++i) {
        unsigned char* out = bytes.data + static_cast<std::size_t>(i) * bytes.step;
        const auto all = roots(rowOf(floats, i));
        for (std::size_t j = 0; j < std::size_t{kElements}; ++j) {
            const double value = all ? std::min(kUnit * (*all)[j] + added, kLargestByte) : 0.0;
            out[j] = static_cast<unsigned char>(value);
        }
    }
    return bytes;
}

}  // namespace

DescMat hellingerRows(const DescMat& floats) {
    check(floats);
    DescMat rows(floats.rows, kElements, DescMat::Float);
    for (int i = 0; i < floats.rows; ++i) {
        Row row = rowOf(floats, i);
        if (const auto all = roots(row)) {
            std::transform(all->begin(), all->end(), row.begin(),
                           [](double root) { return static_cast<float>(root); });
        }
        std::memcpy(rows.data + static_cast<std::size_t>(i) * rows.step, row.data(), sizeof(row));
    }
    return rows;
}

DescMat siftBytesForColmap(const DescMat& floats) {
    return rootBytes(floats, 0.5);
}

DescMat siftBytesForOpenMvg(const DescMat& floats) {
    return rootBytes(floats, 0.0);
}

}  // namespace marlo::app
