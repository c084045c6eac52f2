// SPDX-License-Identifier: BSD-3-Clause
#include "utilities/matching_cases.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>

namespace marlo::test {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kLargest = std::numeric_limits<float>::max();

std::size_t rowBytes(const DescMat& matrix) {
    return static_cast<std::size_t>(matrix.cols) * matrix.elemSizeBytes();
}

unsigned char* rowAt(const DescMat& matrix, int row) {
    return matrix.data + static_cast<std::size_t>(row) * matrix.step;
}

float* floatsAt(const DescMat& matrix, int row) {
    return reinterpret_cast<float*>(rowAt(matrix, row));
}

int belowInt(Random& random, int count) {
    return static_cast<int>(random.below(static_cast<std::uint32_t>(count)));
}

void addNoise(const DescMat& matrix, int row, float most, Random& random) {
    float* const values = floatsAt(matrix, row);
    std::for_each(values, values + matrix.cols,
                  [&](float& value) { value += random.uniform(-most, most); });
}

// `count` rows of `pool`; change(row) alters some of them.
template <typename Change>
DescMat drawn(const DescMat& pool, int count, Random& random, Change change) {
    DescMat matrix(count, pool.cols, pool.type());
    for (int i = 0; i < count; ++i) {
        const int source = belowInt(random, pool.rows);
        std::memcpy(rowAt(matrix, i), rowAt(pool, source), rowBytes(pool));
        const std::uint32_t changes = random.below(4);
        for (std::uint32_t c = 1; c < changes; ++c) {
            change(rowAt(matrix, i));
        }
    }
    return matrix;
}

}  // namespace

DescMat rowsOfBits(int cols, const std::vector<int>& bitCounts) {
    DescMat matrix(static_cast<int>(bitCounts.size()), cols, DescMat::Byte);
    for (int i = 0; i < matrix.rows; ++i) {
        for (int c = 0; c < cols; ++c) {
            const int bits = std::clamp(bitCounts[static_cast<std::size_t>(i)] - 8 * c, 0, 8);
            rowAt(matrix, i)[c] = static_cast<unsigned char>((1 << bits) - 1);
        }
    }
    return matrix;
}

DescMat rowsOfSingleBits(int cols) {
    DescMat matrix = rowsOfBits(cols, std::vector<int>(8 * static_cast<std::size_t>(cols), 0));
    for (int i = 0; i < matrix.rows; ++i) {
        rowAt(matrix, i)[i / 8] = static_cast<unsigned char>(1 << (i % 8));
    }
    return matrix;
}

DescMat rowsOfFloats(int cols, const std::vector<float>& values) {
    DescMat matrix(static_cast<int>(values.size()), cols, DescMat::Float);
    for (int i = 0; i < matrix.rows; ++i) {
        std::fill_n(floatsAt(matrix, i), cols, 0.0F);
        *floatsAt(matrix, i) = values[static_cast<std::size_t>(i)];
    }
    return matrix;
}

DescMat copyOf(const DescMat& matrix) {
    DescMat copy;
    matrix.copyTo(copy);
    return copy;
}

DescMat randomBits(int rows, int cols, Random& random) {
    DescMat matrix(rows, cols, DescMat::Byte);
    std::generate_n(matrix.data, static_cast<std::size_t>(rows) * matrix.step,
                    [&] { return static_cast<unsigned char>(random.below(256)); });
    return matrix;
}

DescMat randomUnitRows(int rows, int cols, Random& random) {
    DescMat matrix(rows, cols, DescMat::Float);
    for (int i = 0; i < rows; ++i) {
        float* const row = floatsAt(matrix, i);
        float squaredLength = 0.0F;
        for (int c = 0; c < cols; ++c) {
            row[c] = random.uniform(0.0F, 1.0F);
            squaredLength += row[c] * row[c];
        }
        std::for_each(row, row + cols, [&](float& x) { x /= std::sqrt(squaredLength); });
    }
    return matrix;
}

QueryAndTrain partlyNearRows(int queryRows, int trainRows, int cols, Random& random) {
    QueryAndTrain rows = {randomUnitRows(queryRows, cols, random),
                          randomUnitRows(trainRows, cols, random)};
    for (int i = 0; i < queryRows; i += 2) {
        DescMat near = rows.query.row(i);
        rows.train.row(belowInt(random, trainRows)).copyTo(near);
        addNoise(near, 0, 0.01F, random);
    }
    return rows;
}

QueryAndTrain crowdedRows(int queryRows, int trainRows, int cols, float noise, Random& random) {
    const DescMat centre = randomUnitRows(1, cols, random);
    QueryAndTrain rows = {DescMat(queryRows, cols, DescMat::Float),
                          DescMat(trainRows, cols, DescMat::Float)};
    const float most = noise / std::sqrt(static_cast<float>(cols));
    for (const DescMat* const matrix : {&rows.query, &rows.train}) {
        for (int i = 0; i < matrix->rows; ++i) {
            DescMat row = matrix->row(i);
            centre.copyTo(row);
            addNoise(row, 0, most, random);
        }
    }
    return rows;
}

QueryAndTrain alikeBits(int queryRows, int trainRows, int cols, Random& random) {
    const DescMat pool = randomBits(1 + belowInt(random, 4), cols, random);
    const auto flipOne = [&](unsigned char* row) {
        // One of eight bits somewhere in the row, so that two rows may flip the same.
        const std::uint32_t bit = random.below(8);
        row[static_cast<int>(bit) * cols / 8] ^= static_cast<unsigned char>(1U << bit);
    };
    return {drawn(pool, queryRows, random, flipOne), drawn(pool, trainRows, random, flipOne)};
}

QueryAndTrain alikeFloats(int queryRows, int trainRows, int cols, const std::vector<float>& palette,
                          Random& random) {
    const auto anyOfPalette = [&] { return oneOf(palette, random); };
    const DescMat pool(1 + belowInt(random, 4), cols, DescMat::Float);
    std::generate_n(floatsAt(pool, 0), pool.rows * cols, anyOfPalette);
    const auto changeOne = [&](unsigned char* row) {
        reinterpret_cast<float*>(row)[belowInt(random, cols)] = anyOfPalette();
    };
    return {drawn(pool, queryRows, random, changeOne), drawn(pool, trainRows, random, changeOne)};
}

QueryAndTrain anyAlikeBits(int mostRows, int cols, Random& random) {
    const int queryRows = belowInt(random, mostRows + 1);
    const int trainRows = belowInt(random, mostRows + 1);
    return alikeBits(queryRows, trainRows, cols, random);
}

QueryAndTrain anyAlikeFloats(int mostRows, int cols, Random& random) {
    std::vector<std::vector<float>> palettes = {
        {0.0F, 1.0F, 2.0F},                                // ties
        {0.0F, 0.1F, 0.2F, 0.3F},                          // sums that are rounded
        {0.0F, 1.0F, 4096.0F, -4096.0F},                   // different squares, equal roots
        {1000.0F, 1000.0625F, 1000.125F},                  // differences small against lengths
        {0x1p70F, 0x1.000002p70F, 0x1.000004p70F},         // lengths that overflow
        {0.0F, 1e-22F, 2e-22F, 1e-30F},                    // squares that underflow
        {0.0F, 1.0F, 3.0F, 1e18F, 1e30F, -1e30F, 1e-30F},  // squares that overflow
        {0.0F, 1.0F, 2.0F, 3.0F, kNaN, kInfinity, -kInfinity},
        {},
    };
    for (int i = 0; i < 12; ++i) {  // orders of magnitude
        const int exponent = belowInt(random, 24) - 12;
        palettes.back().push_back(std::ldexp(random.uniform(-1.0F, 1.0F), exponent));
    }
    const int queryRows = belowInt(random, mostRows + 1);
    const int trainRows = belowInt(random, mostRows + 1);
    return alikeFloats(queryRows, trainRows, cols, oneOf(palettes, random), random);
}

RowsApart::RowsApart(const DescMat& matrix, std::size_t offset, std::size_t gap) {
    if (matrix.empty()) {
        return;
    }
    const std::size_t bytes = rowBytes(matrix);
    const std::size_t step = bytes + gap;
    buffer_ = std::make_unique<unsigned char[]>(
        offset + step * static_cast<std::size_t>(matrix.rows - 1) + bytes);
    // A view of one row, changed into one of all rows here: it owns nothing.
    view_ = matrix.row(0);
    view_.rows = matrix.rows;
    view_.data = buffer_.get() + offset;
    view_.step = step;
    for (int i = 0; i < matrix.rows; ++i) {
        std::memcpy(rowAt(view_, i), rowAt(matrix, i), bytes);
    }
}

RowsApart anywhere(const DescMat& matrix, Random& random) {
    constexpr std::size_t kOffsets[] = {0, 1, 2, 4, 16};
    constexpr std::size_t kGaps[] = {0, 1, 2, 4, 48};
    const std::size_t offset = oneOf(kOffsets, random);
    const std::size_t gap = oneOf(kGaps, random);
    return RowsApart(matrix, offset, gap);
}

void setAnyParameters(DescMatcherDistFracBase& parameters, Random& random) {
    constexpr unsigned int kHammingLimits[] = {0, 1, 2, 3, 8, 50, 1024, 4294967295};
    constexpr float kLimits[] = {-1.0F, 0.0F,  1.0F, 2.0F,     5.0F,
                                 1e6F,  1e30F, kNaN, kLargest, kInfinity};
    constexpr float kFractions[] = {-1.0F, 0.0F,       0.3F, 0.5F, 0.8F,     1.0F,
                                    1.0F,  1.0000001F, 1.5F, kNaN, kInfinity};
    parameters.maxHammingDistance = oneOf(kHammingLimits, random);
    parameters.maxDistance = oneOf(kLimits, random);
    parameters.distanceFraction = oneOf(kFractions, random);
}

testing::AssertionResult sameMatches(const std::vector<DMatch>& actual,
                                     const std::vector<DMatch>& expected) {
    for (std::size_t i = 0; i < std::min(actual.size(), expected.size()); ++i) {
        if (actual[i] != expected[i] ||
            std::memcmp(&actual[i].distance, &expected[i].distance, sizeof(float)) != 0) {
            return testing::AssertionFailure()
                   << "number " << i << " is " << actual[i] << "instead of " << expected[i];
        }
    }
    if (actual.size() != expected.size()) {
        return testing::AssertionFailure()
               << actual.size() << " matches instead of " << expected.size();
    }
    return testing::AssertionSuccess();
}

}  // namespace marlo::test
