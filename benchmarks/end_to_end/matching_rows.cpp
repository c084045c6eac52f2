// SPDX-License-Identifier: BSD-3-Clause
#include "end_to_end/matching_rows.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "libfeatures/detectors/features_2d_sift_ldah.h"
#include "libfeatures/selectors/feature_selector_top.h"
#include "utilities/random.h"

#if defined(FEATURES_BENCH_WITH_OPENCV)
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#endif

namespace marlo::bench {
namespace {

constexpr int kFloats = 128;

DescMat binaryRows(Random& random, int rows, int cols) {
    DescMat mat(rows, cols, DescMat::Byte);
    const std::size_t bytes = static_cast<std::size_t>(rows) * mat.step;
    for (std::size_t i = 0; i < bytes; i += sizeof(std::uint64_t)) {
        const std::uint64_t bits = random.nextBits();
        std::memcpy(mat.data + i, &bits, sizeof bits);
    }
    return mat;
}

Eigen::Map<FloatImage> floats(const DescMat& mat) {
    return {reinterpret_cast<float*>(mat.data), mat.rows, mat.cols};
}

DescMat floatRows(Random& random, int rows) {
    DescMat mat(rows, kFloats, DescMat::Float);
    Eigen::Map<FloatImage> values = floats(mat);
    for (Eigen::Index i = 0; i < values.size(); ++i) {
        values.data()[i] = std::abs(random.nextNormal());
    }
    values.rowwise().normalize();
    return mat;
}

#if defined(FEATURES_BENCH_WITH_OPENCV)
FloatImage readPhotograph(const std::string& path) {
    const cv::Mat photograph = cv::imread(path, cv::IMREAD_GRAYSCALE);
    if (photograph.empty()) throw std::runtime_error("cannot read " + path);
    const Eigen::Map<const ByteImage> bytes(photograph.data, photograph.rows, photograph.cols);
    return bytes.cast<float>() / 255.0F;
}
#else
FloatImage readPhotograph(const std::string& path) {
    throw std::runtime_error("built without OpenCV, which would read " + path);
}
#endif

FloatImage siftRows(const std::string& path) {
    const FloatImage image = readPhotograph(path);
    const auto detector = Features2dSiftLdah::createDetectorSIFT();
    dynamic_cast<SiftLdahBaseParams&>(*detector).setParams(1.0F);
    std::vector<Keypoint> found;
    detector->detect(image, found);
    if (found.empty()) throw std::runtime_error("no keypoints in " + path);

    std::vector<Keypoint> strongestFirst;
    KeypointSelectorTop selector;
    selector.setNumberOfKeypoints(found.size());
    selector.select(found, strongestFirst);
    DescMat descriptors;
    dynamic_cast<IDescriptorExtractor&>(*detector).compute(image, strongestFirst, descriptors);

    // A keypoint without gradients around it has a row of NaN, of which systems make what they
    // like.
    FloatImage rows(descriptors.rows, kFloats);
    Eigen::Index kept = 0;
    for (Eigen::Index i = 0; i < rows.rows(); ++i) {
        if (floats(descriptors).row(i).allFinite()) rows.row(kept++) = floats(descriptors).row(i);
    }
    rows.conservativeResize(kept, Eigen::NoChange);
    return rows;
}

DescMat strongest(const FloatImage& rows, int count) {
    DescMat mat(std::min(count, static_cast<int>(rows.rows())), kFloats, DescMat::Float);
    floats(mat) = rows.topRows(mat.rows);
    return mat;
}

DescMat signsOf(const FloatImage& projected) {
    DescMat mat(static_cast<int>(projected.rows()), static_cast<int>(projected.cols() / 8),
                DescMat::Byte);
    std::fill_n(mat.data, static_cast<std::size_t>(mat.rows) * mat.step, std::uint8_t{0});
    for (Eigen::Index i = 0; i < projected.rows(); ++i) {
        unsigned char* const row = mat.data + static_cast<std::size_t>(i) * mat.step;
        for (Eigen::Index bit = 0; bit < projected.cols(); ++bit) {
            const unsigned value = projected(i, bit) > 0.0F ? 1U : 0U;
            row[bit / 8] = static_cast<unsigned char>(row[bit / 8] | (value << (bit % 8)));
        }
    }
    return mat;
}

}  // namespace

RowPair randomBinaryRows(int rows, int cols) {
    Random random(1);
    return {bench::binaryRows(random, rows, cols), bench::binaryRows(random, rows, cols)};
}

RowPair randomFloatRows(int rows) {
    Random random(2);
    return {bench::floatRows(random, rows), bench::floatRows(random, rows)};
}

RowPair noisyCopies(int rows) {
    Random random(3);
    RowPair pair{bench::binaryRows(random, rows, 16), {}};
    pair.query.copyTo(pair.train);
    const std::size_t bytes = static_cast<std::size_t>(rows) * pair.train.step;
    for (std::size_t i = 0; i < bytes; ++i) {
        // A bit of four coins is set in 1 of 16.
        std::uint64_t coins = random.nextBits();
        coins &= coins >> 32;
        coins &= coins >> 16;
        pair.train.data[i] = static_cast<unsigned char>(pair.train.data[i] ^ (coins & 255U));
    }
    return pair;
}

PhotographRows::PhotographRows(const std::string& queryPath, const std::string& trainPath)
    : query_(siftRows(queryPath)), train_(siftRows(trainPath)) {
    mean_ = (query_.colwise().sum() + train_.colwise().sum()) /
            static_cast<float>(query_.rows() + train_.rows());
}

RowPair PhotographRows::floatRows(int rows) const {
    return {strongest(query_, rows), strongest(train_, rows)};
}

RowPair PhotographRows::binaryRows(int rows, int cols) const {
    Random random(4);
    FloatImage projections(kFloats, 8 * cols);
    for (Eigen::Index i = 0; i < projections.size(); ++i) {
        projections.data()[i] = random.nextNormal();
    }
    const auto bits = [&](const FloatImage& all) {
        const Eigen::Index count = std::min<Eigen::Index>(rows, all.rows());
        const FloatImage centred = all.topRows(count).rowwise() - mean_;
        return signsOf(centred * projections);
    };
    return {bits(query_), bits(train_)};
}

}  // namespace marlo::bench
