// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/descriptor_bytes.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>

namespace marlo::app {
namespace {

constexpr int kElements = 128;
constexpr double kUnit = 512.0;  // what stands for 1 in bytes; larger elements than 1 / 2 are rare
constexpr double kLargestByte = 255.0;

/// `added` is 0.5 to round and 0 to cut off.
DescMat rootBytes(const DescMat& floats, double added) {
    if (floats.rows == 0) return {0, kElements, DescMat::Byte};
    if (floats.cols != kElements || floats.type() != DescMat::Float) {
        throw std::invalid_argument("bytes are made from SIFT rows of 128 floats only");
    }
    DescMat bytes(floats.rows, kElements, DescMat::Byte);
    for (int i = 0; i < floats.rows; ++i) {
        const auto row = static_cast<std::size_t>(i);
        float elements[kElements];
        std::memcpy(elements, floats.data + row * floats.step, sizeof(elements));
        unsigned char* out = bytes.data + row * bytes.step;
        double sum = 0.0;
        for (const float element : elements) sum += std::abs(static_cast<double>(element));
        if (!(sum > 0.0) || !std::isfinite(sum)) {
            std::fill_n(out, kElements, static_cast<unsigned char>(0));
            continue;
        }
        for (const float element : elements) {
            const double root = std::sqrt(std::max(0.0, static_cast<double>(element)) / sum);
            *out++ = static_cast<unsigned char>(std::min(kUnit * root + added, kLargestByte));
        }
    }
    return bytes;
}

}  // namespace

DescMat siftBytesForColmap(const DescMat& floats) {
    return rootBytes(floats, 0.5);
}

DescMat siftBytesForOpenMvg(const DescMat& floats) {
    return rootBytes(floats, 0.0);
}

}  // namespace marlo::app
