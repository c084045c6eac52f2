// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "support/image.h"

/// Image files whose every byte is known.
namespace marlo::test {

inline void writeBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

/// The file as OpenCV writes it, in the format of the ending.
inline std::string encoded(const std::string& ending, const cv::Mat& image,
                           const std::vector<int>& parameters = {}) {
    std::vector<unsigned char> bytes;
    cv::imencode(ending, image, bytes, parameters);
    return {bytes.begin(), bytes.end()};
}

/// `image`, from 0 to 1, in 8 bits.
inline cv::Mat inBytes(const FloatImage& image) {
    cv::Mat bytes(static_cast<int>(image.rows()), static_cast<int>(image.cols()), CV_8U);
    for (int row = 0; row < bytes.rows; ++row) {
        for (int col = 0; col < bytes.cols; ++col) {
            bytes.at<unsigned char>(row, col) =
                cv::saturate_cast<unsigned char>(255.0F * image(row, col));
        }
    }
    return bytes;
}

inline void writePng(const std::filesystem::path& path, const FloatImage& image) {
    writeBytes(path, encoded(".png", inBytes(image)));
}

/// What a TIFF file says of its pixels, in its own words.
struct TiffForm {
    std::uint16_t cols = 3;
    std::uint16_t rows = 2;
    std::uint16_t bits = 8;
    std::uint16_t samples = 1;
    std::uint16_t photometric = 1;   // 0: white is zero, 1: black is zero, 2: RGB, 5: CMYK
    std::uint16_t sampleFormat = 1;  // 1: unsigned, 2: signed, 3: float
    std::uint16_t orientation = 0;   // 0: not said
    bool bigEndian = false;
};

/// An uncompressed TIFF file with one strip, which is the end of the file.
inline std::string tiffFile(const TiffForm& form, const std::string& pixels) {
    std::string file;
    const auto put = [&](std::uint32_t value, unsigned bytes) {
        for (unsigned i = 0; i < bytes; ++i) {
            file += static_cast<char>(value >> 8 * (form.bigEndian ? bytes - 1 - i : i));
        }
    };
    struct Entry {
        std::uint16_t tag;
        std::uint32_t value;
        bool isLong = false;
        std::uint16_t count = 1;
    };
    const std::uint32_t numberOfEntries = form.orientation == 0 ? 10 : 11;
    const std::uint32_t endOfEntries = 8 + 2 + 12 * numberOfEntries + 4;
    const std::uint32_t endOfBits = endOfEntries + (form.samples > 2 ? 2U * form.samples : 0U);
    std::vector<Entry> entries{
        {256, form.cols},
        {257, form.rows},
        // More than two numbers of 16 bits do not fit into an entry.
        {258, form.samples > 2 ? endOfEntries : form.bits, form.samples > 2, form.samples},
        {259, 1},
        {262, form.photometric},
        {273, endOfBits, true}};
    if (form.orientation != 0) entries.push_back({274, form.orientation});
    entries.push_back({277, form.samples});
    entries.push_back({278, form.rows});
    entries.push_back({279, static_cast<std::uint32_t>(pixels.size()), true});
    entries.push_back({339, form.sampleFormat});

    file = form.bigEndian ? "MM" : "II";
    put(42, 2);
    put(8, 4);
    put(numberOfEntries, 2);
    for (const Entry& entry : entries) {
        put(entry.tag, 2);
        put(entry.tag != 258 && entry.isLong ? 4 : 3, 2);
        put(entry.count, 4);
        if (entry.isLong) {
            put(entry.value, 4);
        } else {
            put(entry.value, 2);
            put(entry.count == 2 ? entry.value : 0, 2);
        }
    }
    put(0, 4);
    if (form.samples > 2) {
        for (int i = 0; i < form.samples; ++i) put(form.bits, 2);
    }
    return file + pixels;
}

/// A JPEG file of 8 x 8 equal pixels with these components: one is grey, three are YCbCr, four
/// CMYK in Adobe's way, where 255 is no ink.
inline std::string evenJpeg(const std::vector<int>& components) {
    const auto bytes = [](const std::vector<int>& numbers) {
        return std::string(numbers.begin(), numbers.end());
    };
    const int count = static_cast<int>(components.size());
    std::string file = bytes({0xFF, 0xD8});
    if (count == 4) {
        file += bytes({0xFF, 0xEE, 0, 14, 'A', 'd', 'o', 'b', 'e', 0, 100, 0, 0, 0, 0, 0});
    }
    file += bytes({0xFF, 0xDB, 0, 67, 0}) + std::string(64, 1);  // a step of 1 everywhere
    file += bytes({0xFF, 0xC0, 0, 8 + 3 * count, 8, 0, 8, 0, 8, count});
    for (int c = 0; c < count; ++c) file += bytes({c + 1, 0x11, 0});
    // Codes of 4 bits for the numbers of bits that a mean has, and "0" for "no more frequencies".
    file += bytes({0xFF, 0xC4, 0, 31, 0x00, 0, 0, 0, 12, 0, 0, 0, 0, 0, 0,  0, 0,
                   0,    0,    0, 0,  0,    1, 2, 3, 4,  5, 6, 7, 8, 9, 10, 11});
    file += bytes({0xFF, 0xC4, 0, 20, 0x10, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    file += bytes({0xFF, 0xDA, 0, 6 + 2 * count, count});
    for (int c = 0; c < count; ++c) file += bytes({c + 1, 0x00});
    file += bytes({0, 63, 0});

    std::string bits;
    const auto put = [&](int value, int length) {
        for (int i = length - 1; i >= 0; --i) bits += ((value >> i) & 1) != 0 ? '1' : '0';
    };
    for (const int component : components) {
        const int mean = 8 * (component - 128);
        int length = 0;
        while (std::abs(mean) >> length != 0) ++length;
        put(length, 4);
        put(mean < 0 ? mean + (1 << length) - 1 : mean, length);
        put(0, 1);
    }
    while (bits.size() % 8 != 0) bits += '1';
    for (std::size_t i = 0; i < bits.size(); i += 8) {
        const int byte = std::stoi(bits.substr(i, 8), nullptr, 2);
        file += static_cast<char>(byte);
        if (byte == 0xFF) file += '\0';
    }
    return file + bytes({0xFF, 0xD9});
}

}  // namespace marlo::test
