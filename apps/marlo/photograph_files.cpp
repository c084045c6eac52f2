// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/photograph_files.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>
#include <QString>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <exiv2/exiv2.hpp>
#include <fstream>
#include <limits>
#include <mutex>
#include <new>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <set>
#include <stdexcept>
#include <utility>

namespace marlo::app {
namespace {

namespace fs = std::filesystem;

bool hasImageEnding(const fs::path& path) {
    static constexpr std::array kEndings{".bmp", ".jp2", ".jpe", ".jpeg", ".jpg",  ".pbm", ".pgm",
                                         ".png", ".pnm", ".ppm", ".tif",  ".tiff", ".webp"};
    std::string ending = path.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return std::find(kEndings.begin(), kEndings.end(), ending) != kEndings.end();
}

std::vector<unsigned char> readFile(const fs::path& path) {
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) throw std::runtime_error("cannot be read: is a folder");
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file) throw std::runtime_error("cannot be read: " + std::string(std::strerror(errno)));
    const std::streamoff size = file.tellg();
    if (size == 0) throw std::runtime_error("is empty (0 bytes)");
    constexpr std::streamoff kMostBytes = std::numeric_limits<int>::max();  // that OpenCV decodes
    if (size > kMostBytes) {
        throw std::runtime_error("has " + std::to_string(size) +
                                 " bytes; files of up to 2,147,483,647 can be decoded");
    }
    std::vector<unsigned char> content(static_cast<std::size_t>(std::max<std::streamoff>(size, 0)));
    file.seekg(0);
    file.read(reinterpret_cast<char*>(content.data()), size);
    if (!file || size < 0) throw std::runtime_error("cannot be read to its end");
    return content;
}

std::string hashOf(const std::vector<unsigned char>& content) {
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(QByteArray::fromRawData(reinterpret_cast<const char*>(content.data()),
                                         static_cast<int>(content.size())));
    return hash.result().toHex().toStdString();
}

bool isJpeg(const std::vector<unsigned char>& content) {
    return content.size() > 3 && content[0] == 0xFF && content[1] == 0xD8;
}

// Whether the pixels of a JPEG file end as they should. The decoder fills what is missing with
// grey, and keypoints would be found in that.
bool jpegIsWhole(const std::vector<unsigned char>& content) {
    std::size_t at = 2;
    while (at + 1 < content.size()) {
        if (content[at] != 0xFF) {
            ++at;  // pixels, or bytes between segments that nobody minds
            continue;
        }
        const unsigned char marker = content[at + 1];
        if (marker == 0xD9) return true;
        const bool standsAlone = marker == 0x00 || marker == 0x01 || marker == 0xFF ||
                                 (marker >= 0xD0 && marker <= 0xD8);
        if (standsAlone) {
            at += marker == 0xFF ? 1 : 2;
            continue;
        }
        if (at + 3 >= content.size()) return false;
        at += 2U + (static_cast<std::size_t>(content[at + 2]) << 8U) + content[at + 3];
    }
    return false;
}

// Sets the orientation that a TIFF file gives to the one in which its pixels lie. By any other,
// OpenCV turns the pixels of this format, and only of this one, whatever it is asked for.
void dropTiffOrientation(std::vector<unsigned char>& content) {
    const bool little = content.size() > 8 && content[0] == 'I' && content[1] == 'I';
    const bool big = content.size() > 8 && content[0] == 'M' && content[1] == 'M';
    if (!little && !big) return;
    const auto number = [&](std::size_t at, std::size_t bytes) {
        std::size_t value = 0;
        for (std::size_t i = 0; i < bytes; ++i) {
            value = value << 8U | content[at + (little ? bytes - 1 - i : i)];
        }
        return value;
    };
    const std::size_t version = number(2, 2);
    if (version != 42 && version != 43) return;
    // BigTIFF, version 43, has the same lists with wider numbers.
    const std::size_t word = version == 42 ? 4 : 8;
    const std::size_t countBytes = version == 42 ? 2 : 8;
    const std::size_t entryBytes = 4 + 2 * word;
    if (content.size() < 2 * word) return;
    const std::size_t list = number(word, word);
    if (list > content.size() || content.size() - list < countBytes) return;
    const std::size_t first = list + countBytes;
    const std::size_t entries =
        std::min(number(list, countBytes), (content.size() - first) / entryBytes);
    for (std::size_t i = 0; i < entries; ++i) {
        const std::size_t entry = first + i * entryBytes;
        if (number(entry, 2) != 274) continue;
        const std::size_t type = number(entry + 2, 2);
        const std::size_t valueBytes = type == 4 ? 4 : type == 3 ? 2 : 1;
        const std::size_t value = entry + 4 + word;
        std::fill_n(content.data() + value, valueBytes, static_cast<unsigned char>(0));
        content[little ? value : value + valueBytes - 1] = 1;
    }
}

// Files may be read with Exiv2 by one thread at a time.
std::mutex exiv2InUse;

// What EXIF says; nothing if it is missing or damaged, which is no reason to refuse a photograph.
Exiv2::ExifData metadata(const std::vector<unsigned char>& content) {
    const std::lock_guard<std::mutex> alone(exiv2InUse);
    try {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        const auto image =
            Exiv2::ImageFactory::open(content.data(), static_cast<long>(content.size()));
        image->readMetadata();
        return image->exifData();
    } catch (const std::exception&) {
        return {};
    }
}

double numberOf(const Exiv2::ExifData& exif, const char* key) {
    const auto entry = exif.findKey(Exiv2::ExifKey(key));
    if (entry == exif.end() || entry->count() == 0) return 0.0;
    const Exiv2::TypeId type = entry->typeId();
    // Exiv2 takes the first letter of a text for its number.
    if (type > Exiv2::tiffDouble || type == Exiv2::asciiString || type == Exiv2::undefined)
        return 0.0;
    const auto value = static_cast<double>(entry->toFloat());
    return std::isfinite(value) && value > 0.0 ? value : 0.0;
}

// A number that stands for a choice, 0 if nothing is said. There is no choice -1.
int choiceOf(const Exiv2::ExifData& exif, const char* key) {
    const double value = numberOf(exif, key);
    return value <= std::numeric_limits<std::uint16_t>::max() ? static_cast<int>(value) : -1;
}

std::string textOf(const Exiv2::ExifData& exif, const char* key) {
    const auto entry = exif.findKey(Exiv2::ExifKey(key));
    return entry == exif.end() ? std::string() : entry->toString();
}

// The focal length in pixels: by the length that gives the same view on 35 mm film, which is 36 mm
// wide, or by the size of the sensor's pixels.
double focalLengthInPixels(const Exiv2::ExifData& exif, int longerSide) {
    const double onFilm = numberOf(exif, "Exif.Photo.FocalLengthIn35mmFilm");
    if (onFilm > 0.0) return onFilm / 36.0 * longerSide;
    const double millimetres = numberOf(exif, "Exif.Photo.FocalLength");
    const double resolution = numberOf(exif, "Exif.Photo.FocalPlaneXResolution");
    const double photographed = std::max(numberOf(exif, "Exif.Photo.PixelXDimension"),
                                         numberOf(exif, "Exif.Photo.PixelYDimension"));
    if (millimetres <= 0.0 || resolution <= 0.0) return 0.0;
    double unit = 0.0;  // in millimetres
    switch (choiceOf(exif, "Exif.Photo.FocalPlaneResolutionUnit")) {
        case 0:  // not said
        case 2:
            unit = 25.4;
            break;
        case 3:
            unit = 10.0;
            break;
        case 4:
            unit = 1.0;
            break;
        default:
            return 0.0;
    }
    const double shrunk = photographed > 0.0 ? longerSide / photographed : 1.0;
    return millimetres * resolution / unit * shrunk;
}

Camera cameraOf(const Exiv2::ExifData& exif, int width, int height) {
    Camera camera;
    camera.width = width;
    camera.height = height;
    const int longer = std::max(width, height);
    const double focal = focalLengthInPixels(exif, longer);
    // Beyond these it is a mistake in the file.
    camera.focalLengthKnown = focal > 0.2 * longer && focal < 50.0 * longer;
    camera.focalLength = camera.focalLengthKnown ? focal : 1.2 * longer;
    const std::string maker = textOf(exif, "Exif.Image.Make");
    const std::string model = textOf(exif, "Exif.Image.Model");
    if (!maker.empty() || !model.empty()) {
        camera.device = maker + '|' + model + '|' + textOf(exif, "Exif.Photo.LensModel") + '|' +
                        textOf(exif, "Exif.Photo.FocalLength");
    }
    return camera;
}

cv::Mat decode(std::vector<unsigned char> content) {
    dropTiffOrientation(content);
    if (isJpeg(content) && !jpegIsWhole(content)) {
        throw std::runtime_error("ends early: the file has been cut off");
    }
    const cv::Mat bytes(1, static_cast<int>(content.size()), CV_8U, content.data());
    cv::Mat image;
    try {
        image = cv::imdecode(bytes, cv::IMREAD_UNCHANGED);
    } catch (const cv::Exception& error) {
        if (error.code == cv::Error::StsNoMem) throw std::bad_alloc();
        if (error.err.find("CV_IO_MAX_IMAGE") != std::string::npos) {
            throw std::runtime_error(
                "is too large: images of up to 2^20 rows and columns and 2^30 "
                "pixels can be decoded");
        }
        throw std::runtime_error("cannot be decoded: " + error.err);
    }
    if (image.empty())
        throw std::runtime_error("is not an image that can be decoded, or is damaged");
    return image;
}

// EXIF's eight orientations, as flips and turns.
void orient(cv::Mat& image, int orientation) {
    switch (orientation) {
        case 2:
            cv::flip(image, image, 1);
            break;
        case 3:
            cv::rotate(image, image, cv::ROTATE_180);
            break;
        case 4:
            cv::flip(image, image, 0);
            break;
        case 5:
            cv::transpose(image, image);
            break;
        case 6:
            cv::rotate(image, image, cv::ROTATE_90_CLOCKWISE);
            break;
        case 7:
            cv::transpose(image, image);
            cv::rotate(image, image, cv::ROTATE_180);
            break;
        case 8:
            cv::rotate(image, image, cv::ROTATE_90_COUNTERCLOCKWISE);
            break;
        default:
            break;
    }
}

// The eye's weights, ITU-R BT.601, as OpenCV has them.
constexpr float kBlue = 0.114F;
constexpr float kGreen = 0.587F;
constexpr float kRed = 0.299F;

template <typename Value>
FloatImage greyOf(const cv::Mat& image, float most) {
    FloatImage grey(image.rows, image.cols);
    const int channels = image.channels();
    for (int row = 0; row < image.rows; ++row) {
        const auto* from = image.ptr<Value>(row);
        float* const to = grey.data() + static_cast<Eigen::Index>(row) * image.cols;
        for (int col = 0; col < image.cols; ++col, from += channels) {
            const float value = channels < 3 ? static_cast<float>(from[0])
                                             : kBlue * static_cast<float>(from[0]) +
                                                   kGreen * static_cast<float>(from[1]) +
                                                   kRed * static_cast<float>(from[2]);
            to[col] = value / most;
        }
    }
    return grey;
}

FloatImage greyOf(const cv::Mat& image) {
    switch (image.depth()) {
        case CV_8U:
            return greyOf<std::uint8_t>(image, 255.0F);
        case CV_16U:
            return greyOf<std::uint16_t>(image, 65535.0F);
        case CV_32F:
            return greyOf<float>(image, 1.0F);
        case CV_64F:
            return greyOf<double>(image, 1.0F);
        default:
            throw std::runtime_error(
                "has pixels of a kind that is not supported (neither 8 nor 16 "
                "bits without sign, nor floats)");
    }
}

}  // namespace

PhotographFiles findPhotographs(const std::vector<std::string>& arguments,
                                const std::optional<fs::path>& excluded) {
    const auto isSearched = [&](const fs::path& folder) {
        std::error_code none;
        const bool pictures = folder.filename() == "pictures" && isProject(folder.parent_path());
        return !pictures && !isProject(folder) &&
               !(excluded && fs::equivalent(*excluded, folder, none));
    };
    std::set<fs::path> found;
    std::vector<fs::path> bases;
    for (const std::string& argument : arguments) {
        std::error_code error;
        fs::path path = fs::canonical(argument, error);
        if (error) throw std::runtime_error(argument + ": " + error.message());
        if (!fs::is_directory(path)) {
            // A linked file goes by the link's name, as in a folder that is searched.
            const fs::path given = fs::absolute(argument);
            path = fs::canonical(given.parent_path()) / given.filename();
            found.insert(path);
            bases.push_back(path.parent_path());
            continue;
        }
        bases.push_back(path);
        try {
            for (fs::recursive_directory_iterator at(path), end; at != end; ++at) {
                const fs::directory_entry& entry = *at;
                if (entry.is_directory() && !isSearched(entry.path())) {
                    at.disable_recursion_pending();
                }
                if (entry.is_regular_file() && hasImageEnding(entry.path())) {
                    found.insert(entry.path());
                }
            }
        } catch (const fs::filesystem_error& failure) {
            throw std::runtime_error(failure.path1().string() + ": " + failure.code().message());
        }
    }
    if (found.empty()) {
        throw std::runtime_error("There is no photograph in " + arguments.front() +
                                 (arguments.size() > 1 ? " and the others" : "") +
                                 ": looked for files ending in .jpg, .png, .tif and the like.");
    }
    PhotographFiles files;
    files.base = bases.front();
    for (const fs::path& base : bases) {
        while (
            !base.empty() &&
            std::mismatch(files.base.begin(), files.base.end(), base.begin(), base.end()).first !=
                files.base.end()) {
            files.base = files.base.parent_path();
        }
    }
    for (const fs::path& path : found) {
        files.files.push_back({path.lexically_relative(files.base).generic_string(), path});
    }
    std::sort(files.files.begin(), files.files.end(),
              [](const PhotographFile& a, const PhotographFile& b) { return a.name < b.name; });
    return files;
}

DecodedPhotograph decodePhotograph(const fs::path& path, const DecodeOptions& options) {
    DecodedPhotograph photograph;
    cv::Mat image;
    {
        std::vector<unsigned char> content = readFile(path);
        photograph.contentHash = hashOf(content);
        const Exiv2::ExifData exif = metadata(content);
        image = decode(std::move(content));
        if (options.applyOrientation) orient(image, choiceOf(exif, "Exif.Image.Orientation"));
        photograph.camera = cameraOf(exif, image.cols, image.rows);
    }
    photograph.grey = greyOf(image);
    if (image.depth() >= CV_32F && !photograph.grey.allFinite()) {
        throw std::runtime_error("has pixels that are not finite numbers");
    }
    return photograph;
}

std::string contentHash(const fs::path& path) {
    QFile file(QString::fromStdString(path.string()));
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file)) {
        throw std::runtime_error("cannot be read: " + file.errorString().toStdString());
    }
    return hash.result().toHex().toStdString();
}

Preview readPreview(const fs::path& path, int longestSide, const DecodeOptions& options) {
    std::vector<unsigned char> content = readFile(path);
    const int orientation =
        options.applyOrientation ? choiceOf(metadata(content), "Exif.Image.Orientation") : 0;
    cv::Mat image = decode(std::move(content));
    orient(image, orientation);
    Preview preview;
    const int longer = std::max(image.rows, image.cols);
    if (longer > longestSide) {
        preview.scale = static_cast<double>(longestSide) / longer;
        const cv::Size size(std::max(1, static_cast<int>(std::lround(preview.scale * image.cols))),
                            std::max(1, static_cast<int>(std::lround(preview.scale * image.rows))));
        cv::resize(image, image, size, 0.0, 0.0, cv::INTER_AREA);
    }
    const double most = image.depth() == CV_8U ? 255.0 : image.depth() == CV_16U ? 65535.0 : 1.0;
    image.convertTo(image, CV_8U, 255.0 / most);
    if (image.channels() == 4) cv::cvtColor(image, image, cv::COLOR_BGRA2BGR);
    if (image.channels() == 1) cv::cvtColor(image, image, cv::COLOR_GRAY2BGR);
    preview.image = image;
    return preview;
}

cv::Mat readMask(const fs::path& path, Eigen::Index rows, Eigen::Index cols) {
    cv::Mat mask;
    try {
        mask = decode(readFile(path));
    } catch (const std::runtime_error& error) {
        throw std::runtime_error("the mask " + path.string() + " " + error.what());
    }
    if (mask.channels() > 1) {
        std::vector<cv::Mat> channels;
        cv::split(mask, channels);
        mask = channels[0];
        // Alpha is no colour.
        for (std::size_t c = 1; c < std::min<std::size_t>(channels.size(), 3); ++c) {
            mask = cv::max(mask, channels[c]);
        }
    }
    if (mask.rows != rows || mask.cols != cols) {
        throw std::runtime_error("the mask " + path.string() + " has " + std::to_string(mask.cols) +
                                 " x " + std::to_string(mask.rows) + " pixels, the photograph " +
                                 std::to_string(cols) + " x " + std::to_string(rows));
    }
    return mask != 0;
}

std::uint64_t pixelsByHeader(const fs::path& path) {
    const std::lock_guard<std::mutex> alone(exiv2InUse);
    try {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        const auto image = Exiv2::ImageFactory::open(path.string());
        image->readMetadata();
        return static_cast<std::uint64_t>(std::max(0, static_cast<int>(image->pixelWidth()))) *
               static_cast<std::uint64_t>(std::max(0, static_cast<int>(image->pixelHeight())));
    } catch (const std::exception&) {
        return 0;
    }
}

}  // namespace marlo::app
