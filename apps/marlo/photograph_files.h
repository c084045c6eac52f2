// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>
#include <vector>

#include "marlo/project.h"
#include "support/image.h"

namespace marlo::app {

struct PhotographFile {
    std::string name;  ///< below the base folder, '/' between folders
    std::filesystem::path path;
};

struct PhotographFiles {
    std::filesystem::path base;         ///< the folder that all of them lie in, absolute
    std::vector<PhotographFile> files;  ///< by name
};

/// The photographs that files and folders name: folders are searched with their subfolders for
/// files with an image's ending, files are taken as they are. Each file once. Not searched are
/// projects below a folder, a project's own pictures, and `excluded`.
/// @throws std::runtime_error if an argument does not exist or cannot be read, or if there is no
///         photograph at all.
PhotographFiles findPhotographs(const std::vector<std::string>& arguments,
                                const std::optional<std::filesystem::path>& excluded = {});

/// A decoded photograph: sensor pixels, whatever EXIF says of its orientation, unless asked for.
struct DecodedPhotograph {
    /// Grey, height x width. 8-bit values are divided by 255 and 16-bit values by 65535 after the
    /// weighting of the colours, so that no depth is lost; floats are taken as they are.
    FloatImage grey;
    Camera camera;
    std::string contentHash;  ///< SHA-256 of the file, hexadecimal
};

struct DecodeOptions {
    bool applyOrientation = false;  ///< turn the photograph as EXIF says
};

/// @throws std::runtime_error, with a reason for the user, if the file cannot be read, is empty,
///         ends early, is not an image, or has values that are not finite.
DecodedPhotograph decodePhotograph(const std::filesystem::path& path, const DecodeOptions& options);

/// SHA-256 of a file's content, hexadecimal. @throws std::runtime_error if it cannot be read.
std::string contentHash(const std::filesystem::path& path);

/// For pictures: 8 bits, three channels, no larger than `longestSide`, and by what it was scaled.
struct Preview {
    cv::Mat image;
    double scale = 1.0;
};
/// @throws std::runtime_error as decodePhotograph().
Preview readPreview(const std::filesystem::path& path, int longestSide,
                    const DecodeOptions& options);

/// A mask of the size of the photograph: 0 where keypoints are unwanted.
/// @throws std::runtime_error if it cannot be read or is not of `rows` x `cols` pixels.
cv::Mat readMask(const std::filesystem::path& path, Eigen::Index rows, Eigen::Index cols);

/// Pixels of a photograph from its header, without decoding it; 0 if it does not say.
std::uint64_t pixelsByHeader(const std::filesystem::path& path);

}  // namespace marlo::app
