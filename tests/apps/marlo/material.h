// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "marlo/project.h"

/// What the tests of projects and of the commands share.
namespace marlo::test {

/// What `call` throws, as text, if it is an Exception. Others pass.
template <typename Exception, typename Call>
std::string refusal(const Call& call) {
    try {
        call();
    } catch (const Exception& error) {
        return error.what();
    }
    return "nothing was thrown";
}

inline app::MatchList matchList(const std::vector<std::array<std::uint32_t, 2>>& rows) {
    app::MatchList matches(static_cast<Eigen::Index>(rows.size()), 2);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        matches.row(static_cast<Eigen::Index>(i)) << rows[i][0], rows[i][1];
    }
    return matches;
}

inline std::vector<std::array<std::uint32_t, 2>> pairsOf(const app::MatchList& matches) {
    std::vector<std::array<std::uint32_t, 2>> rows;
    for (Eigen::Index i = 0; i < matches.rows(); ++i)
        rows.push_back({matches(i, 0), matches(i, 1)});
    return rows;
}

/// The bytes of a matrix, row after row.
inline std::string bytesOf(const DescMat& rows) {
    const std::size_t rowBytes = static_cast<std::size_t>(rows.cols) * rows.elemSizeBytes();
    std::string bytes;
    for (int i = 0; i < rows.rows; ++i) {
        const auto* const row =
            reinterpret_cast<const char*>(rows.data + static_cast<std::size_t>(i) * rows.step);
        bytes.append(row, rowBytes);
    }
    return bytes;
}

/// The bytes of all fields; two keypoints with the same text are the same, NaN included.
inline std::string bytesOf(const std::vector<Keypoint>& keypoints) {
    std::string bytes;
    for (const Keypoint& k : keypoints) {
        for (const float field : {k.x, k.y, k.scale, k.angle, k.response}) {
            char four[4];
            std::memcpy(four, &field, sizeof four);
            bytes.append(four, sizeof four);
        }
        bytes += static_cast<char>(k.octave);
        bytes += static_cast<char>(k.layer);
    }
    return bytes;
}

}  // namespace marlo::test
