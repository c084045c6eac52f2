// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/detail/blur.h"

namespace marlo::gpu {
namespace {

using marlo::detail::GaussWeights;

// Pixels that a block makes.
constexpr int kTileCols = 64;
constexpr int kTileRows = 32;
// Neighbouring pixels that a thread makes: it reads what they share once.
constexpr int kRun = 8;

// The sums that define kRun blurred pixels, from the middle outwards, each pair of pixels added
// before it is weighted. `pixels[i]` is at distance i - Radius from the first of them.
template <int Radius>
MARLO_GPU_FUNCTION inline void weightedSums(const float (&pixels)[kRun + 2 * Radius],
                                            const float (&weights)[Radius + 1],
                                            float (&sums)[kRun]) {
    for (int i = 0; i < kRun; ++i) sums[i] = pixels[i + Radius] * weights[0];
    for (int k = 1; k <= Radius; ++k) {
        for (int i = 0; i < kRun; ++i) {
            sums[i] = sums[i] + (pixels[i + Radius - k] + pixels[i + Radius + k]) * weights[k];
        }
    }
}

// A whole blur in one go: the input of a tile, and what the rows make of it, stay with the block.
template <int Radius>
struct BlurKernel {
    static constexpr int kThreads = 256;
    static constexpr int kCols = kTileCols + 2 * Radius;
    static constexpr int kRows = kTileRows + 2 * Radius;
    struct Shared {
        union {
            float input[kRows][kCols];
            float output[kTileRows][kTileCols + 1];  // when the input has been used
        };
        // An odd length: threads that read one column of 32 rows read 32 banks of memory.
        float blurredRows[kTileRows][kCols | 1];
    };

    MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& shared) const {
        const int firstRow = block.index / tilesAcross * kTileRows;
        const int firstCol = block.index % tilesAcross * kTileCols;
        block.forEachThread([&](int t) {
            for (int i = t; i < kRows * kCols; i += kThreads) {
                const int r = i / kCols;
                const int c = i % kCols;
                shared.input[r][c] = from.at(mirroredOnce(firstRow + r - Radius, from.rows),
                                             mirroredOnce(firstCol + c - Radius, from.cols));
            }
        });
        block.forEachThread([&](int t) {
            for (int i = t; i < kCols * (kTileRows / kRun); i += kThreads) {
                const int c = i % kCols;
                const int r = i / kCols * kRun;
                float pixels[kRun + 2 * Radius];
                for (int k = 0; k < kRun + 2 * Radius; ++k) pixels[k] = shared.input[r + k][c];
                float sums[kRun];
                weightedSums<Radius>(pixels, rowWeights, sums);
                for (int k = 0; k < kRun; ++k) shared.blurredRows[r + k][c] = sums[k];
            }
        });
        block.forEachThread([&](int t) {
            static_assert(kTileRows * (kTileCols / kRun) == kThreads);
            const int r = t % kTileRows;
            const int c = t / kTileRows * kRun;
            float pixels[kRun + 2 * Radius];
            for (int k = 0; k < kRun + 2 * Radius; ++k) pixels[k] = shared.blurredRows[r][c + k];
            float sums[kRun];
            weightedSums<Radius>(pixels, colWeights, sums);
            for (int k = 0; k < kRun; ++k) shared.output[r][c + k] = sums[k];
        });
        block.forEachThread([&](int t) {
            for (int i = t; i < kTileRows * kTileCols; i += kThreads) {
                const int r = i / kTileCols;
                const int c = i % kTileCols;
                if (firstRow + r < to.rows && firstCol + c < to.cols) {
                    to.at(firstRow + r, firstCol + c) = shared.output[r][c];
                }
            }
        });
    }

    Image from;
    Image to;
    int tilesAcross;
    float rowWeights[Radius + 1];
    float colWeights[Radius + 1];
};

// Filters of any length, in one direction.
struct LineBlurKernel {
    static constexpr int kThreads = 256;
    using Shared = NothingShared;

    MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& /*shared*/) const {
        block.forEachThread([&](int t) {
            const long long pixel = static_cast<long long>(block.index) * kThreads + t;
            if (pixel >= from.size()) return;
            const int r = static_cast<int>(pixel / from.cols);
            const int c = static_cast<int>(pixel % from.cols);
            const int place = alongRows ? c : r;
            const int length = alongRows ? from.cols : from.rows;
            float sum = at(r, c, place) * weights[0];
            for (int k = 1; k <= radius; ++k) {
                sum = sum + (at(r, c, mirroredOnce(place - k, length)) +
                             at(r, c, mirroredOnce(place + k, length))) *
                                weights[k];
            }
            to.at(r, c) = sum;
        });
    }
    MARLO_GPU_FUNCTION float at(int r, int c, int place) const {
        return alongRows ? from.at(r, place) : from.at(place, c);
    }

    Image from;
    Image to;
    bool alongRows;
    int radius;
    const float* weights;
};

struct DecimateKernel {
    static constexpr int kThreads = 256;
    using Shared = NothingShared;

    MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& /*shared*/) const {
        block.forEachThread([&](int t) {
            const long long pixel = static_cast<long long>(block.index) * kThreads + t;
            if (pixel >= to.size()) return;
            const int r = static_cast<int>(pixel / to.cols);
            const int c = static_cast<int>(pixel % to.cols);
            to.at(r, c) = from.at(2 * r, 2 * c);
        });
    }

    Image from;
    Image to;
};

template <typename Kernel>
long long blocksOfPixels(const Image& image) {
    return (image.size() + Kernel::kThreads - 1) / Kernel::kThreads;
}

template <int Radius>
bool blurIfOf(Stream& stream, const Image& from, const Image& to, const GaussWeights& rowWeights,
              const GaussWeights& colWeights) {
    if (rowWeights.radius() != Radius || colWeights.radius() != Radius) return false;
    const int across = (from.cols + kTileCols - 1) / kTileCols;
    const long long down = (from.rows + kTileRows - 1) / kTileRows;
    BlurKernel<Radius> kernel{from, to, across, {}, {}};
    for (int k = 0; k <= Radius; ++k) {
        kernel.rowWeights[k] = rowWeights.data()[k];
        kernel.colWeights[k] = colWeights.data()[k];
    }
    stream.launch(across * down, kernel);
    return true;
}

}  // namespace

long long blurWeightsSize(const GaussWeights& rowWeights, const GaussWeights& colWeights) {
    return rowWeights.radius() + colWeights.radius() + 2LL;
}

void blur(Stream& stream, const Image& from, const Image& to, const Image& scratch,
          const GaussWeights& rowWeights, const GaussWeights& colWeights, float* deviceWeights) {
    // The lengths of the scale space's filters.
    if (blurIfOf<5>(stream, from, to, rowWeights, colWeights) ||
        blurIfOf<7>(stream, from, to, rowWeights, colWeights) ||
        blurIfOf<8>(stream, from, to, rowWeights, colWeights) ||
        blurIfOf<10>(stream, from, to, rowWeights, colWeights) ||
        blurIfOf<13>(stream, from, to, rowWeights, colWeights)) {
        return;
    }
    const auto upload = [&](float* at, const GaussWeights& weights) {
        stream.upload(at, weights.data(),
                      (static_cast<std::size_t>(weights.radius()) + 1) * sizeof(float));
    };
    float* const ofColumns = deviceWeights + rowWeights.radius() + 1;
    upload(deviceWeights, rowWeights);
    upload(ofColumns, colWeights);
    const long long blocks = blocksOfPixels<LineBlurKernel>(from);
    stream.launch(blocks, LineBlurKernel{from, scratch, false, rowWeights.radius(), deviceWeights});
    stream.launch(blocks, LineBlurKernel{scratch, to, true, colWeights.radius(), ofColumns});
}

void decimate(Stream& stream, const Image& from, const Image& to) {
    stream.launch(blocksOfPixels<DecimateKernel>(to), DecimateKernel{from, to});
}

}  // namespace marlo::gpu
