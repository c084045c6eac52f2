// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>

#include "support/desc_mat.h"
#include "support/image.h"

namespace marlo::bench {

struct RowPair {
    DescMat query;
    DescMat train;
};

/// Independent bits: all distances are much the same, and no row has a match.
RowPair randomBinaryRows(int rows, int cols);
/// Independent rows of 128 floats, none negative, of unit length.
RowPair randomFloatRows(int rows);
/// Binary rows of 16 columns: independent bits as query, and for train the same rows with one bit
/// in 16 turned over. Every row has a match: the longest result that there can be.
RowPair noisyCopies(int rows);

/// The SIFT rows of two photographs, strongest keypoints first.
class PhotographRows {
public:
    /// @throws std::runtime_error if a file cannot be read, or without OpenCV, which reads them.
    PhotographRows(const std::string& queryPath, const std::string& trainPath);

    /// Up to `rows` of the strongest of each photograph.
    [[nodiscard]] RowPair floatRows(int rows) const;
    /// The same rows as bits, 8 for each of `cols` columns: the signs of as many random
    /// projections of the rows less their mean. The projections are the same in every run.
    [[nodiscard]] RowPair binaryRows(int rows, int cols) const;

private:
    FloatImage query_;  // rows x 128
    FloatImage train_;
    Eigen::RowVectorXf mean_;  // of both
};

}  // namespace marlo::bench
