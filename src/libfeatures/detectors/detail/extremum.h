// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>

/// Extrema of the differences of Gaussians of one octave: level i + 1 is subtracted from level i,
/// for i from 0 to 4, and the differences 1 to 3 are searched. Positions are pixels of the octave.
namespace marlo::detail {

constexpr int kLevels = 6;       // Gaussian levels of an octave
constexpr int kDifferences = 5;  // differences of neighbouring levels
constexpr int kFirstSearched = 1;
constexpr int kLastSearched = 3;  // also the levels whose gradients descriptors read
/// Rows and columns at the borders of an octave in which no extremum is looked for.
constexpr int kBorder = 5;
constexpr int kMoves = 5;
/// Refinement looks no farther than this many rows from where the search found the extremum: as
/// many moves, and a neighbour.
constexpr int kReach = kMoves + 1;

/// A pixel that is an extremum of its 3 x 3 x 3 neighbourhood.
struct Candidate {
    std::int32_t row = 0;
    std::int32_t col = 0;
    std::int32_t level = 0;
};

/// A refined extremum.
struct Extremum {
    float row = 0.0F;
    float col = 0.0F;
    float sigma = 0.0F;
    float value = 0.0F;  ///< the difference, interpolated
    /// The pixel that it was interpolated from.
    std::int32_t pixelRow = 0;
    std::int32_t pixelCol = 0;
    std::int32_t level = 0;
};

/// The solution of a x = -g for a symmetric 3 x 3 matrix, by elimination with partial pivoting (the
/// first of equal pivots) in single precision. A singular matrix gives NaN or infinite numbers.
struct Solution {
    float level, row, col;
};
inline Solution solveForOffset(const float (&hessian)[3][3], const float (&gradient)[3]) {
    float a[3][4];
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) a[i][j] = hessian[i][j];
        a[i][3] = -gradient[i];
    }
    for (int k = 0; k < 2; ++k) {
        int pivot = k;
        for (int i = k + 1; i < 3; ++i) {
            if (std::fabs(a[i][k]) > std::fabs(a[pivot][k])) pivot = i;
        }
        if (pivot != k) std::swap(a[pivot], a[k]);
        for (int i = k + 1; i < 3; ++i) {
            const float factor = a[i][k] / a[k][k];
            for (int j = k + 1; j < 4; ++j) a[i][j] = a[i][j] - factor * a[k][j];
        }
    }
    Solution x{};
    x.col = a[2][3] / a[2][2];
    x.row = (a[1][3] - a[1][2] * x.col) / a[1][1];
    x.level = (a[0][3] - a[0][1] * x.row - a[0][2] * x.col) / a[0][0];
    return x;
}

/// Fits a quadric around a candidate, moves to the neighbouring pixel while the extremum lies
/// nearer to that (at most kMoves times, never to another level), and interpolates. Nothing if the
/// fit does not settle within 1.5 of a pixel and level or the value is 0.0001 or less.
///
/// `difference(level, row, col)` reads the differences of an octave of rows x cols pixels, up to
/// kReach rows and columns from the candidate. `candidate.level` is 1 to 3.
///
/// M. Brown and D. Lowe, Invariant Features from Interest Point Groups, BMVC 2002, sec. 2.1; here
/// the last fit stands even if its offset still asks for a move.
template <typename Differences>
std::optional<Extremum> interpKeyPoint(const Differences& difference, int rows, int cols,
                                       const Candidate& candidate) {
    const int s = candidate.level;
    int r = candidate.row;
    int c = candidate.col;
    for (int movesLeft = kMoves;; --movesLeft) {
        const auto d = [&](int ds, int dr, int dc) { return difference(s + ds, r + dr, c + dc); };
        const float centre = d(0, 0, 0);
        const float gs = (d(1, 0, 0) - d(-1, 0, 0)) * 0.5F;
        const float gr = (d(0, 1, 0) - d(0, -1, 0)) * 0.5F;
        const float gc = (d(0, 0, 1) - d(0, 0, -1)) * 0.5F;
        const float ss = d(1, 0, 0) + d(-1, 0, 0) - 2.0F * centre;
        const float rr = d(0, 1, 0) + d(0, -1, 0) - 2.0F * centre;
        const float cc = d(0, 0, 1) + d(0, 0, -1) - 2.0F * centre;
        const float sr = ((d(1, 1, 0) - d(1, -1, 0)) - (d(-1, 1, 0) - d(-1, -1, 0))) * 0.25F;
        const float sc = ((d(1, 0, 1) - d(1, 0, -1)) - (d(-1, 0, 1) - d(-1, 0, -1))) * 0.25F;
        const float rc = ((d(0, 1, 1) - d(0, 1, -1)) - (d(0, -1, 1) - d(0, -1, -1))) * 0.25F;
        const Solution x = solveForOffset({{ss, sr, sc}, {sr, rr, rc}, {sc, rc, cc}}, {gs, gr, gc});
        const float value = centre + 0.5F * (gs * x.level + gr * x.row + gc * x.col);

        int movedRow = r;
        int movedCol = c;
        if (x.row > 0.6F && r < rows - 3) ++movedRow;
        if (x.row < -0.6F && r >= 4) --movedRow;
        if (x.col > 0.6F && c < cols - 3) ++movedCol;
        if (x.col < -0.6F && c >= 4) --movedCol;
        // Without a move left the pixel stays: it and the offset solved at it belong together.
        if (movesLeft > 0 && (movedRow != r || movedCol != c)) {
            r = movedRow;
            c = movedCol;
            continue;
        }
        // Written so that NaN fails.
        const bool accepted = std::fabs(value) > 0.0001F && std::fabs(x.level) <= 1.5F &&
                              std::fabs(x.row) <= 1.5F && std::fabs(x.col) <= 1.5F;
        if (!accepted) return std::nullopt;
        Extremum extremum;
        extremum.row = static_cast<float>(r) + x.row;
        extremum.col = static_cast<float>(c) + x.col;
        extremum.sigma = 1.6F * powf(2.0F, (static_cast<float>(s) + x.level) / 3.0F);
        extremum.value = value;
        extremum.pixelRow = r;
        extremum.pixelCol = c;
        extremum.level = s;
        return extremum;
    }
}

}  // namespace marlo::detail
