// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libmarlocuda/detail/pyramid.h"

namespace marlo::gpu {

constexpr int kDifferences = kLevels - 1;
/// Rows and columns at the borders of an octave in which no extremum is looked for.
constexpr int kBorder = 5;
constexpr int kMoves = 5;

/// The Gaussian levels of an octave and their differences, the less blurred minus the more blurred.
struct Octave {
    const float* levels[kLevels] = {};
    int rows = 0;
    int cols = 0;

    MARLO_GPU_FUNCTION float difference(int level, int r, int c) const {
        const long long pixel = static_cast<long long>(r) * cols + c;
        return levels[level][pixel] - levels[level + 1][pixel];
    }
    MARLO_GPU_FUNCTION long long size() const { return static_cast<long long>(rows) * cols; }
};

/// A pixel that is an extremum of its 3 x 3 x 3 neighbourhood.
struct Candidate {
    int level = 0;
    int row = 0;
    int col = 0;

    /// Its place in the order of levels, rows and columns. Images have at most 2^30 pixels.
    MARLO_GPU_FUNCTION unsigned key(const Octave& octave) const {
        return static_cast<unsigned>((level - kFirstSearched) * octave.size() +
                                     static_cast<long long>(row) * octave.cols + col);
    }
    MARLO_GPU_FUNCTION static Candidate ofKey(unsigned key, const Octave& octave) {
        const long long pixels = octave.size();
        const long long pixel = key % pixels;
        return {static_cast<int>(key / pixels) + kFirstSearched,
                static_cast<int>(pixel / octave.cols), static_cast<int>(pixel % octave.cols)};
    }
};

/// A refined extremum, in pixels of its octave.
struct Extremum {
    float row;
    float col;
    float sigma;
    float value;  ///< the difference, interpolated
    /// The pixel that it was interpolated from.
    int pixelRow;
    int pixelCol;
    int level;
};

/// The solution of a x = -g for a symmetric 3 x 3 matrix, by elimination with partial pivoting (the
/// first of equal pivots). A singular matrix gives NaN or infinite numbers.
struct Offset {
    float level, row, col;
};
MARLO_GPU_FUNCTION inline Offset solveForOffset(float (&a)[3][4]) {
    MARLO_GPU_UNROLL
    for (int k = 0; k < 2; ++k) {
        int pivot = k;
        float largest = fabsf(a[k][k]);
        MARLO_GPU_UNROLL
        for (int i = k + 1; i < 3; ++i) {
            if (fabsf(a[i][k]) > largest) {
                largest = fabsf(a[i][k]);
                pivot = i;
            }
        }
        // Rows are named by constants, so that the matrix can stay in registers.
        MARLO_GPU_UNROLL
        for (int i = k + 1; i < 3; ++i) {
            if (pivot != i) continue;
            MARLO_GPU_UNROLL
            for (int j = 0; j < 4; ++j) {
                const float swapped = a[i][j];
                a[i][j] = a[k][j];
                a[k][j] = swapped;
            }
        }
        MARLO_GPU_UNROLL
        for (int i = k + 1; i < 3; ++i) {
            const float factor = a[i][k] / a[k][k];
            MARLO_GPU_UNROLL
            for (int j = k + 1; j < 4; ++j) a[i][j] = a[i][j] - factor * a[k][j];
        }
    }
    Offset x;
    x.col = a[2][3] / a[2][2];
    x.row = (a[1][3] - a[1][2] * x.col) / a[1][1];
    x.level = (a[0][3] - a[0][1] * x.row - a[0][2] * x.col) / a[0][0];
    return x;
}

/// Fits a quadric around a candidate, moves to the neighbouring pixel while the extremum lies
/// nearer to that (at most kMoves times, never to another level), and interpolates. False if the
/// fit does not settle within 1.5 of a pixel and level or the value is 0.0001 or less.
/// M. Brown and D. Lowe, Invariant Features from Interest Point Groups, BMVC 2002, sec. 2.1; here
/// the last fit stands even if its offset still asks for a move.
MARLO_GPU_FUNCTION inline bool refine(const Octave& octave, const Candidate& candidate,
                                      Extremum& extremum) {
    const int s = candidate.level;
    int r = candidate.row;
    int c = candidate.col;
    for (int movesLeft = kMoves;; --movesLeft) {
        const auto d = [&](int ds, int dr, int dc) {
            return octave.difference(s + ds, r + dr, c + dc);
        };
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
        float a[3][4] = {{ss, sr, sc, -gs}, {sr, rr, rc, -gr}, {sc, rc, cc, -gc}};
        const Offset x = solveForOffset(a);
        const float value = centre + 0.5F * (gs * x.level + gr * x.row + gc * x.col);

        int movedRow = r;
        int movedCol = c;
        if (x.row > 0.6F && r < octave.rows - 3) ++movedRow;
        if (x.row < -0.6F && r >= 4) --movedRow;
        if (x.col > 0.6F && c < octave.cols - 3) ++movedCol;
        if (x.col < -0.6F && c >= 4) --movedCol;
        // Without a move left the pixel stays: it and the offset solved at it belong together.
        if (movesLeft > 0 && (movedRow != r || movedCol != c)) {
            r = movedRow;
            c = movedCol;
            continue;
        }
        // Written so that NaN fails.
        if (!(fabsf(value) > 0.0001F && fabsf(x.level) <= 1.5F && fabsf(x.row) <= 1.5F &&
              fabsf(x.col) <= 1.5F)) {
            return false;
        }
        // In double precision, for a GPU's power of single precision is off by several bits.
        const float power =
            static_cast<float>(exp2(static_cast<double>((static_cast<float>(s) + x.level) / 3.0F)));
        extremum = {static_cast<float>(r) + x.row,
                    static_cast<float>(c) + x.col,
                    1.6F * power,
                    value,
                    r,
                    c,
                    s};
        return true;
    }
}

}  // namespace marlo::gpu
