// SPDX-License-Identifier: BSD-3-Clause
#include "marlo/photograph_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <exiv2/exiv2.hpp>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "apps/marlo/made_images.h"
#include "apps/marlo/material.h"
#include "apps/marlo/scratch.h"

namespace marlo::app {
namespace {

namespace fs = std::filesystem;

using test::encoded;
using test::evenJpeg;
using test::refusal;
using test::ScratchFolder;
using test::tiffFile;
using test::TiffForm;
using test::writeBytes;
using testing::ElementsAre;

// Finding them.

class FindPhotographsTest : public testing::Test {
protected:
    void touch(const std::string& name) const { writeBytes(base / name, "content"); }

    [[nodiscard]] PhotographFiles find(const std::vector<std::string>& names) const {
        std::vector<std::string> arguments;
        for (const std::string& name : names) arguments.push_back((base / name).string());
        return findPhotographs(arguments);
    }

    static std::vector<std::string> namesOf(const PhotographFiles& found) {
        std::vector<std::string> names;
        for (const PhotographFile& file : found.files) {
            names.push_back(file.name);
            EXPECT_EQ(file.path, found.base / file.name);
            EXPECT_TRUE(fs::exists(file.path));
        }
        return names;
    }

    const ScratchFolder folder;
    const fs::path base = fs::canonical(folder.path());
};

TEST_F(FindPhotographsTest, FoldersAreSearchedForTheEndingsOfImages) {
    const std::vector<std::string> images{"a.bmp", "b.jp2",  "c.jpe", "d.jpeg", "e.jpg",
                                          "f.pbm", "g.pgm",  "h.png", "i.pnm",  "j.ppm",
                                          "k.tif", "l.tiff", "m.webp"};
    for (const std::string& name : images) touch(name);
    for (const char* const name : {"a.txt", "jpg", ".jpg", "a.jpg.txt", "a.jpg~", "a.gif"}) {
        touch(name);
    }
    const PhotographFiles found = find({"."});
    EXPECT_EQ(found.base, base);
    EXPECT_EQ(namesOf(found), images);
}

TEST_F(FindPhotographsTest, EndingsMayBeInCapitals) {
    touch("A.JPG");
    touch("b.Tiff");
    EXPECT_THAT(namesOf(find({"."})), ElementsAre("A.JPG", "b.Tiff"));
}

TEST_F(FindPhotographsTest, SubfoldersAreSearchedAndPartOfTheName) {
    touch("b/x.jpg");
    touch("a/x.jpg");
    touch("a/inner/x.jpg");
    touch("x.jpg");
    EXPECT_THAT(namesOf(find({"."})), ElementsAre("a/inner/x.jpg", "a/x.jpg", "b/x.jpg", "x.jpg"));
}

TEST_F(FindPhotographsTest, NamesMayHaveSpacesAndAnyLetters) {
    touch("één map/ü 'x' \"y\".jpg");
    EXPECT_THAT(namesOf(find({"."})), ElementsAre("één map/ü 'x' \"y\".jpg"));
}

TEST_F(FindPhotographsTest, FoldersMayBeNamedLikeImages) {
    touch("a.jpg/b.jpg");
    EXPECT_THAT(namesOf(find({"."})), ElementsAre("a.jpg/b.jpg"));
}

TEST_F(FindPhotographsTest, ProjectsAreNotSearched) {
    touch("a.jpg");
    { const Project project(folder / "project", Project::Access::write); }
    touch("project/picture.png");
    touch("project/inner/picture.png");
    touch("z/b.jpg");
    EXPECT_THAT(namesOf(find({"."})), ElementsAre("a.jpg", "z/b.jpg"));
}

TEST_F(FindPhotographsTest, FilesAreTakenAsTheyAre) {
    touch("a.jpg");
    touch("b.raw");
    touch("c.jpg");
    EXPECT_THAT(namesOf(find({"b.raw", "a.jpg"})), ElementsAre("a.jpg", "b.raw"));
}

TEST_F(FindPhotographsTest, EachFileIsTakenOnce) {
    touch("a/b/x.jpg");
    EXPECT_THAT(namesOf(find({"a", "a/b", "a/../a/b/x.jpg", "a/b/x.jpg"})), ElementsAre("b/x.jpg"));
}

TEST_F(FindPhotographsTest, BaseIsTheFolderThatHasThemAll) {
    touch("a/b/x.jpg");
    touch("a/c/x.jpg");
    const PhotographFiles siblings = find({"a/b", "a/c/x.jpg"});
    EXPECT_EQ(siblings.base, base / "a");
    EXPECT_THAT(namesOf(siblings), ElementsAre("b/x.jpg", "c/x.jpg"));
    touch("a/bb/x.jpg");
    EXPECT_EQ(find({"a/b", "a/bb"}).base, base / "a");
    EXPECT_EQ(find({"a", "a/b"}).base, base / "a");
    EXPECT_EQ(find({"a/b/x.jpg"}).base, base / "a/b");
}

TEST_F(FindPhotographsTest, LinksThatLeadNowhereAreNoPhotographs) {
    touch("a.jpg");
    fs::create_symlink(base / "missing.jpg", base / "link.jpg");
    EXPECT_THAT(namesOf(find({"."})), ElementsAre("a.jpg"));
}

TEST_F(FindPhotographsTest, ArgumentsThatAreNotThereAreNamed) {
    touch("a.jpg");
    EXPECT_EQ(refusal<std::runtime_error>([&] {
                  static_cast<void>(find({"a.jpg", "b.jpg"}));
              }),
              (base / "b.jpg").string() + ": " + std::generic_category().message(ENOENT));
}

TEST_F(FindPhotographsTest, NoPhotographAtAllIsAnError) {
    touch("a/a.txt");
    touch("b/b.txt");
    const std::string rest = ": looked for files ending in .jpg, .png, .tif and the like.";
    EXPECT_EQ(refusal<std::runtime_error>([&] { static_cast<void>(find({"a"})); }),
              "There is no photograph in " + (base / "a").string() + rest);
    EXPECT_EQ(refusal<std::runtime_error>([&] {
                  static_cast<void>(find({"a", "b"}));
              }),
              "There is no photograph in " + (base / "a").string() + " and the others" + rest);
}

// Decoding.

std::vector<std::vector<float>> valuesOf(const FloatImage& image) {
    std::vector<std::vector<float>> rows;
    for (Eigen::Index row = 0; row < image.rows(); ++row) {
        rows.emplace_back();
        for (Eigen::Index col = 0; col < image.cols(); ++col)
            rows.back().push_back(image(row, col));
    }
    return rows;
}

template <typename Number>
std::string bytesOf(const std::vector<Number>& numbers) {
    std::string bytes(numbers.size() * sizeof(Number), '\0');
    std::memcpy(bytes.data(), numbers.data(), bytes.size());
    return bytes;
}

using Rows = std::vector<std::vector<float>>;

class DecodeTest : public testing::Test {
protected:
    [[nodiscard]] fs::path file() const { return folder / "photograph"; }

    [[nodiscard]] DecodedPhotograph decode(const std::string& bytes,
                                           bool applyOrientation = false) const {
        writeBytes(file(), bytes);
        return decodePhotograph(file(), DecodeOptions{applyOrientation});
    }
    [[nodiscard]] Rows grey(const std::string& bytes) const { return valuesOf(decode(bytes).grey); }

    [[nodiscard]] std::string refusalOf(const std::string& bytes) const {
        return refusal<std::runtime_error>([&] { static_cast<void>(decode(bytes)); });
    }

    const ScratchFolder folder;
};

constexpr const char* kNoImage = "is not an image that can be decoded, or is damaged";

cv::Mat greyBytes() {
    return (cv::Mat_<unsigned char>(2, 3) << 0, 1, 2, 100, 254, 255);
}

// Blue, green, red, as OpenCV has them.
cv::Mat twoColours() {
    cv::Mat image(1, 2, CV_8UC3);
    image.at<cv::Vec3b>(0, 0) = {200, 100, 50};
    image.at<cv::Vec3b>(0, 1) = {0, 0, 255};
    return image;
}
// 22.8 + 58.7 + 14.95 and 76.245.
const Rows kTwoColours{{96.45F / 255.0F, 0.299F}};

TEST_F(DecodeTest, GreyBytesAreDividedBy255) {
    const Rows expected{{0, 1 / 255.0F, 2 / 255.0F}, {100 / 255.0F, 254 / 255.0F, 1}};
    for (const char* const ending : {".png", ".bmp", ".pgm", ".tif"}) {
        EXPECT_EQ(grey(encoded(ending, greyBytes())), expected) << ending;
    }
}

TEST_F(DecodeTest, ColoursAreWeightedAsTheEyeDoes) {
    for (const char* const ending : {".png", ".bmp", ".ppm", ".tif"}) {
        const Rows values = grey(encoded(ending, twoColours()));
        EXPECT_FLOAT_EQ(values[0][0], kTwoColours[0][0]) << ending;
        EXPECT_FLOAT_EQ(values[0][1], kTwoColours[0][1]) << ending;
    }
}

TEST_F(DecodeTest, AlphaIsNoColour) {
    cv::Mat image(1, 2, CV_8UC4);
    image.at<cv::Vec4b>(0, 0) = {200, 100, 50, 0};
    image.at<cv::Vec4b>(0, 1) = {0, 0, 255, 128};
    const Rows values = grey(encoded(".png", image));
    EXPECT_FLOAT_EQ(values[0][0], kTwoColours[0][0]);
    EXPECT_FLOAT_EQ(values[0][1], kTwoColours[0][1]);
}

TEST_F(DecodeTest, SixteenBitsAreDividedBy65535) {
    const cv::Mat image = (cv::Mat_<std::uint16_t>(1, 4) << 0, 1, 257, 65535);
    const Rows expected{{0, 1 / 65535.0F, 1 / 255.0F, 1}};
    for (const char* const ending : {".png", ".pgm", ".tif"}) {
        EXPECT_EQ(grey(encoded(ending, image)), expected) << ending;
    }
}

TEST_F(DecodeTest, SixteenBitsOfColourAreWeightedBeforeTheyAreDivided) {
    cv::Mat image(1, 1, CV_16UC3);
    image.at<cv::Vec3w>(0, 0) = {20'000, 1000, 1};
    // 2280 + 587 + 0.299
    EXPECT_FLOAT_EQ(grey(encoded(".png", image))[0][0], 2867.299F / 65535.0F);
}

TEST_F(DecodeTest, FloatsAreTakenAsTheyAre) {
    const std::vector<float> values{-1.5F, 0.0F, 1e-30F, 0.1F, 1.0F, 70'000.0F};
    TiffForm form;
    form.bits = 32;
    form.sampleFormat = 3;
    EXPECT_EQ(grey(tiffFile(form, bytesOf(values))),
              (Rows{{-1.5F, 0.0F, 1e-30F}, {0.1F, 1.0F, 70'000.0F}}));
    form.bits = 64;
    EXPECT_EQ(grey(tiffFile(form, bytesOf(std::vector<double>(values.begin(), values.end())))),
              (Rows{{-1.5F, 0.0F, 1e-30F}, {0.1F, 1.0F, 70'000.0F}}));
}

TEST_F(DecodeTest, FloatsThatAreNotFiniteAreRefused) {
    TiffForm form;
    form.bits = 32;
    form.sampleFormat = 3;
    for (const float bad :
         {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity()}) {
        EXPECT_EQ(refusalOf(tiffFile(form, bytesOf<float>({0, 0, 0, 0, bad, 0}))),
                  "has pixels that are not finite numbers");
    }
}

TEST_F(DecodeTest, SignedNumbersAreRefused) {
    TiffForm form;
    form.bits = 16;
    form.sampleFormat = 2;
    EXPECT_EQ(refusalOf(tiffFile(form, std::string(12, '\1'))),
              "has pixels of a kind that is not supported (neither 8 nor 16 bits without sign, nor "
              "floats)");
}

TEST_F(DecodeTest, SingleBitsAreBlackAndWhite) {
    EXPECT_EQ(grey("P4\n8 1\n\x0F"), (Rows{{1, 1, 1, 1, 0, 0, 0, 0}}));  // 1 is black
    const cv::Mat image = (cv::Mat_<unsigned char>(1, 4) << 255, 0, 0, 255);
    EXPECT_EQ(grey(encoded(".png", image, {cv::IMWRITE_PNG_BILEVEL, 1})), (Rows{{1, 0, 0, 1}}));
    TiffForm form;
    form.cols = 8;
    form.rows = 1;
    form.bits = 1;
    EXPECT_EQ(grey(tiffFile(form, "\x0F")), (Rows{{0, 0, 0, 0, 1, 1, 1, 1}}));
}

TEST_F(DecodeTest, JpegsAreDecoded) {
    const DecodedPhotograph dark = decode(evenJpeg({51}));
    EXPECT_EQ(dark.grey.rows(), 8);
    EXPECT_EQ(dark.grey.cols(), 8);
    EXPECT_EQ(dark.grey, FloatImage::Constant(8, 8, 0.2F));
    // No colour: all three are the brightness.
    EXPECT_FLOAT_EQ(decode(evenJpeg({51, 128, 128})).grey(7, 7), 0.2F);
}

TEST_F(DecodeTest, InksOfAJpegMakeItDarker) {
    const auto greyOfInks = [&](const std::vector<int>& inks) {
        const FloatImage image = decode(evenJpeg(inks)).grey;
        EXPECT_EQ(image.minCoeff(), image.maxCoeff());
        return image(0, 0);
    };
    EXPECT_NEAR(greyOfInks({255, 255, 255, 255}), 1.0, 0.01);
    EXPECT_NEAR(greyOfInks({255, 255, 255, 0}), 0.0, 0.01);
    EXPECT_NEAR(greyOfInks({255, 255, 255, 128}), 0.5, 0.01);
    EXPECT_NEAR(greyOfInks({0, 255, 255, 255}), 1.0 - 0.299, 0.01);  // cyan has no red
    EXPECT_NEAR(greyOfInks({255, 0, 255, 255}), 1.0 - 0.587, 0.01);
    EXPECT_NEAR(greyOfInks({255, 255, 0, 255}), 1.0 - 0.114, 0.01);
}

TEST_F(DecodeTest, InksOfATiffMakeItDarker) {
    TiffForm form;
    form.cols = 2;
    form.rows = 1;
    form.samples = 4;
    form.photometric = 5;
    EXPECT_EQ(grey(tiffFile(form, bytesOf<unsigned char>({0, 0, 0, 0, 0, 0, 0, 255}))),
              (Rows{{1, 0}}));
}

TEST_F(DecodeTest, OnePixelIsAnImage) {
    for (const char* const ending : {".png", ".bmp", ".pgm", ".tif", ".webp"}) {
        const cv::Mat image(1, 1, CV_8U, cv::Scalar(255));
        EXPECT_EQ(grey(encoded(ending, image)), (Rows{{1}})) << ending;
    }
}

TEST_F(DecodeTest, EndingOfTheNameDoesNotMatter) {
    writeBytes(folder / "a.jpg", encoded(".png", greyBytes()));
    EXPECT_EQ(decodePhotograph(folder / "a.jpg", {}).grey(1, 2), 1.0F);
}

TEST_F(DecodeTest, HashIsSha256OfTheFile) {
    writeBytes(file(), "abc");
    EXPECT_EQ(contentHash(file()),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    const DecodedPhotograph photograph = decode(encoded(".png", greyBytes()));
    EXPECT_EQ(photograph.contentHash, contentHash(file()));
}

// Files that are no photographs.

TEST_F(DecodeTest, MissingFilesAreRefused) {
    const std::string expected = "cannot be read: " + std::generic_category().message(ENOENT);
    EXPECT_EQ(refusal<std::runtime_error>([&] { decodePhotograph(folder / "missing", {}); }),
              expected);
    EXPECT_EQ(refusal<std::runtime_error>([&] { contentHash(folder / "missing"); }), expected);
    EXPECT_EQ(refusal<std::runtime_error>([&] { readPreview(folder / "missing", 10, {}); }),
              expected);
}

TEST_F(DecodeTest, FoldersAreRefused) {
    const std::string reason =
        refusal<std::runtime_error>([&] { decodePhotograph(folder.path(), {}); });
    EXPECT_EQ(reason, "cannot be read: is a folder");
}

TEST_F(DecodeTest, EmptyFilesAreRefused) {
    EXPECT_EQ(refusalOf(""), "is empty (0 bytes)");
}

TEST_F(DecodeTest, OtherFilesAreRefused) {
    EXPECT_EQ(refusalOf("a text"), kNoImage);
    EXPECT_EQ(refusalOf("x"), kNoImage);
    EXPECT_EQ(refusalOf(std::string(1000, '\0')), kNoImage);
    EXPECT_EQ(refusalOf("\x89PNG\r\n\x1a\n and then a text"), kNoImage);
}

// Noise, so that no format makes it small.
cv::Mat noise() {
    cv::Mat image(40, 60, CV_8UC3);
    cv::RNG random(5);
    random.fill(image, cv::RNG::UNIFORM, 0, 256);
    return image;
}

TEST_F(DecodeTest, JpegsThatEndEarlyAreRefused) {
    const std::string whole = encoded(".jpg", noise());
    EXPECT_EQ(decode(whole).grey.rows(), 40);
    for (const std::size_t length :
         {whole.size() - 1, whole.size() - 2, whole.size() - 100, whole.size() / 2,
          std::size_t{700}, std::size_t{30}, std::size_t{4}}) {
        EXPECT_EQ(refusalOf(whole.substr(0, length)), "ends early: the file has been cut off")
            << length;
    }
}

TEST_F(DecodeTest, JpegsWithMoreBehindTheEndAreWhole) {
    EXPECT_EQ(decode(encoded(".jpg", noise()) + "a trailer").grey.rows(), 40);
}

TEST_F(DecodeTest, EndOfAPreviewIsNotTheEndOfTheJpeg) {
    // A whole JPEG lies in a segment of the outer one.
    const std::string preview = evenJpeg({0});
    const std::string segment =
        std::string("\xFF\xE2\0", 3) + static_cast<char>(preview.size() + 2) + preview;
    const std::string outer = evenJpeg({255});
    const std::string whole = outer.substr(0, 2) + segment + outer.substr(2);
    ASSERT_LT(preview.size() + 2, 256U + 100U);
    EXPECT_EQ(decode(whole).grey(0, 0), 1.0F);
    EXPECT_EQ(refusalOf(whole.substr(0, whole.size() - 2)),
              "ends early: the file has been cut off");
}

TEST_F(DecodeTest, OtherFormatsThatEndEarlyAreRefused) {
    for (const char* const ending : {".png", ".bmp", ".ppm", ".tif", ".webp", ".jp2"}) {
        const std::string whole = encoded(ending, noise());
        EXPECT_EQ(decode(whole).grey.rows(), 40) << ending;
        for (const std::size_t percent : {10U, 50U, 90U}) {
            EXPECT_EQ(refusalOf(whole.substr(0, whole.size() * percent / 100)), kNoImage)
                << percent << " % of " << ending;
        }
    }
}

TEST_F(DecodeTest, TiffsWithoutTheLastOfTheirPixelsAreRefused) {
    for (const std::uint16_t bits : std::initializer_list<std::uint16_t>{8, 16, 32}) {
        TiffForm form;
        form.cols = 60;
        form.rows = 40;
        form.bits = bits;
        form.sampleFormat = bits == 32 ? 3 : 1;
        const std::string whole = tiffFile(form, std::string(60U * 40U * bits / 8U, '\1'));
        EXPECT_EQ(decode(whole).grey.rows(), 40) << bits;
        for (const std::size_t missing : {1U, 1200U, 2000U}) {
            EXPECT_EQ(refusalOf(whole.substr(0, whole.size() - missing)), kNoImage) << bits;
        }
    }
}

TEST_F(DecodeTest, SixteenBitInksAreNotSupported) {
    TiffForm form;
    form.cols = 1;
    form.rows = 1;
    form.bits = 16;
    form.samples = 4;
    form.photometric = 5;
    EXPECT_EQ(refusalOf(tiffFile(form, std::string(8, '\0'))), kNoImage);
}

// Metadata.

using Exif = std::vector<std::pair<const char*, const char*>>;

class MetadataTest : public DecodeTest {
protected:
    void write(const std::string& bytes, const Exif& exif) const {
        writeBytes(file(), bytes);
        const auto image = Exiv2::ImageFactory::open(file().string());
        image->readMetadata();
        for (const auto& [key, value] : exif) image->exifData()[key] = std::string(value);
        image->writeMetadata();
    }

    // Of a photograph of 72 x 48 pixels.
    [[nodiscard]] Camera camera(const Exif& exif, int cols = 72, int rows = 48) const {
        write(encoded(".jpg", cv::Mat(rows, cols, CV_8U, cv::Scalar(100))), exif);
        return decodePhotograph(file(), {}).camera;
    }

    // The same with values of any type, orientation applied.
    [[nodiscard]] Camera cameraWith(
        const std::vector<std::pair<const char*, const Exiv2::Value*>>& exif) const {
        writeBytes(file(), encoded(".jpg", cv::Mat(48, 72, CV_8U, cv::Scalar(100))));
        const auto image = Exiv2::ImageFactory::open(file().string());
        for (const auto& [key, value] : exif) image->exifData().add(Exiv2::ExifKey(key), value);
        image->writeMetadata();
        return decodePhotograph(file(), DecodeOptions{true}).camera;
    }
};

TEST_F(MetadataTest, WithoutItTheFocalLengthIsAGuess) {
    EXPECT_EQ(camera({}), (Camera{72, 48, 1.2 * 72, false, ""}));
    EXPECT_EQ(camera({}, 48, 72), (Camera{48, 72, 1.2 * 72, false, ""}));
}

TEST_F(MetadataTest, FocalLengthOn35MillimetreFilmIsSharesOf36Millimetres) {
    const Exif exif{{"Exif.Photo.FocalLengthIn35mmFilm", "24"}};
    EXPECT_EQ(camera(exif), (Camera{72, 48, 48.0, true, ""}));
    EXPECT_EQ(camera(exif, 48, 72), (Camera{48, 72, 48.0, true, ""}));
}

TEST_F(MetadataTest, FocalLengthAndSizeOfTheSensorsPixelsGoTogether) {
    // 10 mm of 20 pixels a mm each.
    for (const auto& [resolution, unit] :
         {std::pair{"20/1", "4"}, {"200/1", "3"}, {"508/1", "2"}}) {
        EXPECT_EQ(camera({{"Exif.Photo.FocalLength", "10/1"},
                          {"Exif.Photo.FocalPlaneXResolution", resolution},
                          {"Exif.Photo.FocalPlaneResolutionUnit", unit}}),
                  (Camera{72, 48, 200.0, true, ""}))
            << unit;
    }
}

TEST_F(MetadataTest, ResolutionWithoutAUnitIsInInches) {
    EXPECT_EQ(
        camera({{"Exif.Photo.FocalLength", "10/1"}, {"Exif.Photo.FocalPlaneXResolution", "508/1"}})
            .focalLength,
        200.0);
}

TEST_F(MetadataTest, PhotographsThatWereMadeSmallerHaveASmallerFocalLength) {
    const Exif exif{{"Exif.Photo.FocalLength", "10/1"},
                    {"Exif.Photo.FocalPlaneXResolution", "20/1"},
                    {"Exif.Photo.FocalPlaneResolutionUnit", "4"},
                    {"Exif.Photo.PixelXDimension", "144"},
                    {"Exif.Photo.PixelYDimension", "96"}};
    EXPECT_EQ(camera(exif).focalLength, 100.0);
    EXPECT_EQ(camera(exif, 48, 72).focalLength, 100.0);
}

TEST_F(MetadataTest, FilmGoesBeforeTheSensor) {
    EXPECT_EQ(camera({{"Exif.Photo.FocalLengthIn35mmFilm", "24"},
                      {"Exif.Photo.FocalLength", "10/1"},
                      {"Exif.Photo.FocalPlaneXResolution", "20/1"},
                      {"Exif.Photo.FocalPlaneResolutionUnit", "4"}})
                  .focalLength,
              48.0);
}

TEST_F(MetadataTest, FocalLengthsThatCannotBeAreNotBelieved) {
    const std::vector<Exif> all{
        {{"Exif.Photo.FocalLengthIn35mmFilm", "0"}},
        {{"Exif.Photo.FocalLengthIn35mmFilm", "7"}},     // 14 pixels: less than a fifth of the side
        {{"Exif.Photo.FocalLengthIn35mmFilm", "1800"}},  // fifty times the side
        {{"Exif.Photo.FocalLength", "10/1"}},
        {{"Exif.Photo.FocalPlaneXResolution", "20/1"}},
        {{"Exif.Photo.FocalLength", "10/0"}, {"Exif.Photo.FocalPlaneXResolution", "20/1"}},
        {{"Exif.Photo.FocalLength", "10/1"}, {"Exif.Photo.FocalPlaneXResolution", "0/0"}},
        {{"Exif.Photo.FocalLength", "10/1"},
         {"Exif.Photo.FocalPlaneXResolution", "20/1"},
         {"Exif.Photo.FocalPlaneResolutionUnit", "9"}}};
    for (const Exif& exif : all) EXPECT_EQ(camera(exif), (Camera{72, 48, 1.2 * 72, false, ""}));
}

TEST_F(MetadataTest, FocalLengthsJustInsideTheLimitsAreBelieved) {
    EXPECT_EQ(camera({{"Exif.Photo.FocalLengthIn35mmFilm", "8"}}).focalLength, 16.0);
    EXPECT_EQ(camera({{"Exif.Photo.FocalLengthIn35mmFilm", "1799"}}).focalLength, 3598.0);
}

TEST_F(MetadataTest, DeviceIsMakerModelAndLens) {
    EXPECT_EQ(camera({{"Exif.Image.Make", "Maker"},
                      {"Exif.Image.Model", "Model 5"},
                      {"Exif.Photo.FocalLength", "50/1"}})
                  .device,
              "Maker|Model 5||50/1");
    EXPECT_EQ(camera({{"Exif.Image.Model", "Model 5"}}).device, "|Model 5||");
    EXPECT_EQ(camera({{"Exif.Image.Model", "Model 5"}, {"Exif.Photo.LensModel", "Zoom"}}).device,
              "|Model 5|Zoom|");
    EXPECT_EQ(camera({{"Exif.Photo.FocalLength", "50/1"}}).device, "");
}

TEST_F(MetadataTest, TextsAreNoNumbers) {
    const Exiv2::AsciiValue text("long");
    Exiv2::DataValue bytes(Exiv2::undefined);
    bytes.read("100 100");
    for (const Exiv2::Value* const value :
         {static_cast<const Exiv2::Value*>(&text), static_cast<const Exiv2::Value*>(&bytes)}) {
        EXPECT_EQ(cameraWith({{"Exif.Photo.FocalLengthIn35mmFilm", value},
                              {"Exif.Photo.FocalLength", value},
                              {"Exif.Photo.FocalPlaneXResolution", value},
                              {"Exif.Image.Orientation", value}}),
                  (Camera{72, 48, 1.2 * 72, false, ""}));
    }
}

TEST_F(MetadataTest, NumbersBeyondAllChoicesAreNone) {
    const Exiv2::ULongValue large(std::numeric_limits<std::uint32_t>::max());
    const Exiv2::RationalValue number(Exiv2::Rational(20, 1));
    EXPECT_EQ(cameraWith({{"Exif.Photo.FocalLength", &number},
                          {"Exif.Photo.FocalPlaneXResolution", &number},
                          {"Exif.Photo.FocalPlaneResolutionUnit", &large},
                          {"Exif.Image.Orientation", &large}}),
              (Camera{72, 48, 1.2 * 72, false, ""}));
}

TEST_F(MetadataTest, DamagedExifIsNoReasonToRefuseAPhotograph) {
    const std::string whole = evenJpeg({51});
    const std::string exif("Exif\0\0", 6);
    const std::vector<std::string> all{
        exif, exif + "II", exif + "no metadata at all",
        // Its list of entries lies beyond the end, has more entries than bytes, or is its own next.
        exif + std::string("II*\0\xFF\xFF\xFF\x7F", 8),
        exif + std::string("II*\0\x08\0\0\0\xFF\xFF\0\0\0\0\0\0", 16),
        exif + std::string("II*\0\x08\0\0\0\0\0\x08\0\0\0", 14)};
    for (const std::string& content : all) {
        const std::string segment =
            std::string("\xFF\xE1\0", 3) + static_cast<char>(content.size() + 2) + content;
        const DecodedPhotograph photograph =
            decode(whole.substr(0, 2) + segment + whole.substr(2), true);
        EXPECT_EQ(photograph.grey, FloatImage::Constant(8, 8, 0.2F));
        EXPECT_EQ(photograph.camera, (Camera{8, 8, 1.2 * 8, false, ""}));
    }
}

// Orientation: where the image's first row and first column lie as displayed (EXIF 2.3, 4.6.4).

struct Orientation {
    std::uint16_t value;
    Rows displayed;
};

// Of rows 1 2 3 and 4 5 6.
const std::vector<Orientation> kOrientations{{1, {{1, 2, 3}, {4, 5, 6}}},     // top, left
                                             {2, {{3, 2, 1}, {6, 5, 4}}},     // top, right
                                             {3, {{6, 5, 4}, {3, 2, 1}}},     // bottom, right
                                             {4, {{4, 5, 6}, {1, 2, 3}}},     // bottom, left
                                             {5, {{1, 4}, {2, 5}, {3, 6}}},   // left, top
                                             {6, {{4, 1}, {5, 2}, {6, 3}}},   // right, top
                                             {7, {{6, 3}, {5, 2}, {4, 1}}},   // right, bottom
                                             {8, {{3, 6}, {2, 5}, {1, 4}}}};  // left, bottom

class OrientationTest : public MetadataTest, public testing::WithParamInterface<Orientation> {
protected:
    static Rows times(float factor, Rows rows) {
        for (auto& row : rows) {
            for (float& value : row) value *= factor;
        }
        return rows;
    }

    // The file is as displayed only if asked for.
    void expectIn(float factor) const {
        const FloatImage stored = decodePhotograph(file(), {}).grey;
        EXPECT_EQ(times(factor, valuesOf(stored)), (Rows{{1, 2, 3}, {4, 5, 6}}));
        const DecodedPhotograph turned = decodePhotograph(file(), DecodeOptions{true});
        EXPECT_EQ(times(factor, valuesOf(turned.grey)), GetParam().displayed);
        EXPECT_EQ(turned.camera.width, turned.grey.cols());
        EXPECT_EQ(turned.camera.height, turned.grey.rows());
    }
};

TEST_P(OrientationTest, OfAPngIsAppliedOnlyIfAskedFor) {
    const cv::Mat image = (cv::Mat_<unsigned char>(2, 3) << 51, 102, 153, 204, 255, 0);
    write(encoded(".png", image),
          {{"Exif.Image.Orientation", std::to_string(GetParam().value).c_str()}});
    const Rows stored{{51, 102, 153}, {204, 255, 0}};
    EXPECT_EQ(times(255, valuesOf(decodePhotograph(file(), {}).grey)), stored);
    const DecodedPhotograph turned = decodePhotograph(file(), DecodeOptions{true});
    Rows displayed = times(51, GetParam().displayed);
    for (auto& row : displayed) std::replace(row.begin(), row.end(), 306.0F, 0.0F);
    EXPECT_EQ(times(255, valuesOf(turned.grey)), displayed);
    EXPECT_EQ(turned.camera.width, turned.grey.cols());
    EXPECT_EQ(turned.camera.height, turned.grey.rows());
}

TEST_P(OrientationTest, OfAJpegIsAppliedOnlyIfAskedFor) {
    cv::Mat image(16, 24, CV_8U, cv::Scalar(0));
    image(cv::Rect(0, 0, 8, 8)) = 255;
    write(encoded(".jpg", image, {cv::IMWRITE_JPEG_QUALITY, 100}),
          {{"Exif.Image.Orientation", std::to_string(GetParam().value).c_str()}});
    const FloatImage stored = decodePhotograph(file(), {}).grey;
    EXPECT_EQ(stored.rows(), 16);
    EXPECT_GT(stored(0, 0), 0.9F);
    // The corner goes where the 1 of the small image goes.
    const Rows& displayed = GetParam().displayed;
    const FloatImage turned = decodePhotograph(file(), DecodeOptions{true}).grey;
    ASSERT_EQ(turned.rows(), 8 * static_cast<Eigen::Index>(displayed.size()));
    ASSERT_EQ(turned.cols(), 8 * static_cast<Eigen::Index>(displayed[0].size()));
    for (Eigen::Index row = 0; row < turned.rows(); ++row) {
        for (Eigen::Index col = 0; col < turned.cols(); ++col) {
            const float block =
                displayed[static_cast<std::size_t>(row / 8)][static_cast<std::size_t>(col / 8)];
            EXPECT_NEAR(turned(row, col), block == 1 ? 1.0 : 0.0, 0.1);
        }
    }
}

TEST_P(OrientationTest, OfATiffIsAppliedOnlyIfAskedFor) {
    for (const bool bigEndian : {false, true}) {
        TiffForm form;
        form.orientation = GetParam().value;
        form.bigEndian = bigEndian;
        writeBytes(file(), tiffFile(form, "\1\2\3\4\5\6"));
        expectIn(255);
    }
}

TEST_P(OrientationTest, OfATiffOfFloatsIsAppliedOnlyIfAskedFor) {
    TiffForm form;
    form.orientation = GetParam().value;
    form.bits = 32;
    form.sampleFormat = 3;
    writeBytes(file(), tiffFile(form, bytesOf<float>({1, 2, 3, 4, 5, 6})));
    expectIn(1);
}

TEST_P(OrientationTest, OfAPreviewIsAppliedOnlyIfAskedFor) {
    TiffForm form;
    form.orientation = GetParam().value;
    writeBytes(file(), tiffFile(form, "\1\2\3\4\5\6"));
    const auto valuesOfPreview = [&](bool applyOrientation) {
        const cv::Mat image = readPreview(file(), 100, DecodeOptions{applyOrientation}).image;
        Rows rows(static_cast<std::size_t>(image.rows));
        for (int row = 0; row < image.rows; ++row) {
            for (int col = 0; col < image.cols; ++col) {
                rows[static_cast<std::size_t>(row)].push_back(image.at<cv::Vec3b>(row, col)[0]);
            }
        }
        return rows;
    };
    EXPECT_EQ(valuesOfPreview(false), (Rows{{1, 2, 3}, {4, 5, 6}}));
    EXPECT_EQ(valuesOfPreview(true), GetParam().displayed);
}

INSTANTIATE_TEST_SUITE_P(All, OrientationTest, testing::ValuesIn(kOrientations),
                         [](const testing::TestParamInfo<Orientation>& one) {
                             return std::to_string(one.param.value);
                         });

// Masks.

class MaskTest : public DecodeTest {
protected:
    [[nodiscard]] std::vector<int> mask(const cv::Mat& image) const {
        writeBytes(file(), encoded(".png", image));
        const cv::Mat read = readMask(file(), image.rows, image.cols);
        EXPECT_EQ(read.type(), CV_8U);
        std::vector<int> values;
        for (int row = 0; row < read.rows; ++row) {
            for (int col = 0; col < read.cols; ++col) {
                values.push_back(read.at<unsigned char>(row, col));
            }
        }
        return values;
    }
};

TEST_F(MaskTest, OnlyZeroIsUnwanted) {
    EXPECT_THAT(mask(greyBytes()), ElementsAre(0, 255, 255, 255, 255, 255));
}

TEST_F(MaskTest, AnyColourIsWanted) {
    cv::Mat image(1, 4, CV_8UC3, cv::Scalar(0, 0, 0));
    for (int i = 0; i < 3; ++i) image.at<cv::Vec3b>(0, i)[i] = 1;
    EXPECT_THAT(mask(image), ElementsAre(255, 255, 255, 0));
}

TEST_F(MaskTest, AlphaIsNoColour) {
    cv::Mat image(1, 2, CV_8UC4);
    image.at<cv::Vec4b>(0, 0) = {0, 0, 0, 255};
    image.at<cv::Vec4b>(0, 1) = {0, 9, 0, 0};
    EXPECT_THAT(mask(image), ElementsAre(0, 255));
}

TEST_F(MaskTest, SixteenBitsAndSingleBitsAreMasksToo) {
    EXPECT_THAT(mask((cv::Mat_<std::uint16_t>(1, 3) << 0, 1, 65535)), ElementsAre(0, 255, 255));
    writeBytes(file(), "P4\n4 1\n\x30");  // the third and the fourth are black
    const cv::Mat bits = readMask(file(), 1, 4);
    EXPECT_EQ(cv::countNonZero(bits != (cv::Mat_<unsigned char>(1, 4) << 255, 255, 0, 0)), 0);
}

TEST_F(MaskTest, HasTheSizeOfThePhotograph) {
    writeBytes(file(), encoded(".png", greyBytes()));
    EXPECT_EQ(refusal<std::runtime_error>([&] { readMask(file(), 3, 2); }),
              "the mask " + file().string() + " has 3 x 2 pixels, the photograph 2 x 3");
}

TEST_F(MaskTest, ThatCannotBeReadIsNamed) {
    writeBytes(file(), "a text");
    EXPECT_EQ(refusal<std::runtime_error>([&] { readMask(file(), 2, 3); }),
              "the mask " + file().string() + " " + kNoImage);
    writeBytes(file(), "");
    EXPECT_EQ(refusal<std::runtime_error>([&] { readMask(file(), 2, 3); }),
              "the mask " + file().string() + " is empty (0 bytes)");
}

// Headers and previews.

TEST_F(DecodeTest, HeadersTellTheNumberOfPixels) {
    for (const char* const ending : {".png", ".jpg", ".tif", ".bmp", ".webp"}) {
        writeBytes(file(), encoded(ending, noise()));
        EXPECT_EQ(pixelsByHeader(file()), 2400U) << ending;
    }
}

TEST_F(DecodeTest, HeadersTellItAlsoOfFilesThatEndEarly) {
    writeBytes(file(), encoded(".jpg", noise()).substr(0, 1000));
    EXPECT_EQ(pixelsByHeader(file()), 2400U);
}

TEST_F(DecodeTest, HeadersThatSayNothingGiveZero) {
    EXPECT_EQ(pixelsByHeader(folder / "missing"), 0U);
    for (const char* const content : {"", "a text", "P5 3 2 255\n123456"}) {
        writeBytes(file(), content);
        EXPECT_EQ(pixelsByHeader(file()), 0U) << content;
    }
}

class PreviewTest : public DecodeTest {
protected:
    [[nodiscard]] Preview preview(const std::string& bytes, int longestSide) const {
        writeBytes(file(), bytes);
        return readPreview(file(), longestSide, {});
    }
};

TEST_F(PreviewTest, LargeImagesAreMadeSmaller) {
    const Preview wide = preview(encoded(".png", cv::Mat(25, 80, CV_8U, cv::Scalar(9))), 40);
    EXPECT_EQ(wide.scale, 0.5);
    EXPECT_EQ(wide.image.cols, 40);
    EXPECT_EQ(wide.image.rows, 13);  // 12.5, rounded
    const Preview high = preview(encoded(".png", cv::Mat(80, 20, CV_8U, cv::Scalar(9))), 20);
    EXPECT_EQ(high.scale, 0.25);
    EXPECT_EQ(high.image.cols, 5);
    EXPECT_EQ(high.image.rows, 20);
}

TEST_F(PreviewTest, NarrowImagesKeepAPixel) {
    const Preview narrow = preview(encoded(".png", cv::Mat(1, 80, CV_8U, cv::Scalar(9))), 8);
    EXPECT_EQ(narrow.image.size(), cv::Size(8, 1));
    EXPECT_EQ(narrow.image.at<cv::Vec3b>(0, 7), cv::Vec3b(9, 9, 9));
}

TEST_F(PreviewTest, SmallImagesStayAsTheyAre) {
    const Preview small = preview(encoded(".png", twoColours()), 2);
    EXPECT_EQ(small.scale, 1.0);
    EXPECT_EQ(small.image.type(), CV_8UC3);
    EXPECT_EQ(small.image.at<cv::Vec3b>(0, 0), cv::Vec3b(200, 100, 50));
    EXPECT_EQ(small.image.at<cv::Vec3b>(0, 1), cv::Vec3b(0, 0, 255));
}

TEST_F(PreviewTest, AlphaIsLeftOut) {
    const cv::Mat image(1, 1, CV_8UC4, cv::Scalar(200, 100, 50, 7));
    EXPECT_EQ(preview(encoded(".png", image), 10).image.at<cv::Vec3b>(0, 0),
              cv::Vec3b(200, 100, 50));
}

TEST_F(PreviewTest, OtherDepthsBecomeBytes) {
    const cv::Mat image = (cv::Mat_<std::uint16_t>(1, 2) << 257 * 51, 65535);
    const Preview words = preview(encoded(".png", image), 10);
    EXPECT_EQ(words.image.at<cv::Vec3b>(0, 0), cv::Vec3b(51, 51, 51));
    EXPECT_EQ(words.image.at<cv::Vec3b>(0, 1), cv::Vec3b(255, 255, 255));
    TiffForm form;
    form.bits = 32;
    form.sampleFormat = 3;
    const Preview floats = preview(tiffFile(form, bytesOf<float>({0, 0.2F, 1, 2, -1, 0})), 10);
    EXPECT_EQ(floats.image.at<cv::Vec3b>(0, 1), cv::Vec3b(51, 51, 51));
    EXPECT_EQ(floats.image.at<cv::Vec3b>(1, 0), cv::Vec3b(255, 255, 255));
    EXPECT_EQ(floats.image.at<cv::Vec3b>(1, 1), cv::Vec3b(0, 0, 0));
}

TEST_F(PreviewTest, FilesThatAreNoImageAreRefused) {
    EXPECT_EQ(refusal<std::runtime_error>([&] { static_cast<void>(preview("a text", 10)); }),
              kNoImage);
}

}  // namespace
}  // namespace marlo::app
