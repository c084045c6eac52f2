// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/detail/gradient.h"

namespace marlo::gpu {
namespace {

// A block does so many columns of some rows: neighbours are read from the cache.
constexpr int kTileCols = 64;
constexpr int kTileRows = 16;

struct GradientKernel {
    static constexpr int kThreads = 256;
    using Shared = NothingShared;

    MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& /*shared*/) const {
        const int firstRow = block.index / tilesAcross * kTileRows;
        const int firstCol = block.index % tilesAcross * kTileCols;
        block.forEachThread([&](int t) {
            const int c = firstCol + t % kTileCols;
            if (c >= image.cols) return;
            const int end = least(firstRow + kTileRows, image.rows);
            for (int r = firstRow + t / kTileCols; r < end; r += kThreads / kTileCols) {
                const Gradient gradient = gradientAt(image, r, c);
                magnitude.at(r, c) = gradient.magnitude();
                direction.at(r, c) = gradient.direction();
            }
        });
    }

    Image image;
    Image magnitude;
    Image direction;
    int tilesAcross;
};

}  // namespace

void computeGradients(Stream& stream, const Image& image, const Image& magnitude,
                      const Image& direction) {
    const int across = (image.cols + kTileCols - 1) / kTileCols;
    const long long down = (image.rows + kTileRows - 1) / kTileRows;
    stream.launch(across * down, GradientKernel{image, magnitude, direction, across});
}

}  // namespace marlo::gpu
