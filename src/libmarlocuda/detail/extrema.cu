// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/detail/extrema.h"
#include "libmarlocuda/detail/scan.h"

namespace marlo::gpu {
namespace {

constexpr int kSearched = kLastSearched - kFirstSearched + 1;
constexpr int kBitsOfWord = 32;

// The bits of candidates, by searched difference, row and 32 columns.
struct CandidateBits {
    unsigned* words;
    int rows;
    int wordsOfRow;

    MARLO_GPU_FUNCTION long long size() const {
        return static_cast<long long>(kSearched) * rows * wordsOfRow;
    }
    MARLO_GPU_FUNCTION unsigned& word(int level, int row, int place) const {
        return words[(static_cast<long long>(level - kFirstSearched) * rows + row) * wordsOfRow +
                     place];
    }
    // The candidate of a bit.
    MARLO_GPU_FUNCTION Candidate candidate(long long word, int bit) const {
        const long long line = word / wordsOfRow;
        return {static_cast<int>(line / rows) + kFirstSearched, static_cast<int>(line % rows),
                static_cast<int>(word % wordsOfRow) * kBitsOfWord + bit};
    }
};

int wordsFor(int cols) {
    return (cols + kBitsOfWord - 1) / kBitsOfWord;
}

// Calls use(bit) for each bit that is set, the lowest first.
template <typename Use>
MARLO_GPU_FUNCTION void forEachBit(unsigned word, Use&& use) {
    for (; word != 0; word &= word - 1) use(static_cast<int>(bitCount((word & -word) - 1)));
}

// Marks the pixels that are not smaller (if they are positive; not larger if they are not) than any
// of the 27 of their neighbourhood. Flat neighbourhoods (three levels of 3 x 3 equal values each),
// which no fit can refine, are not marked: flat images would be nothing but candidates.
struct MarkKernel {
    static constexpr int kThreads = 256;
    static constexpr int kCols = 64;
    static constexpr int kRows = 16;
    static constexpr int kWords = kCols / kBitsOfWord;
    struct Shared {
        float differences[kDifferences][kRows + 2][kCols + 2];
        unsigned words[kSearched][kRows][kWords];
    };

    MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& shared) const {
        const int firstRow = block.index / tilesAcross * kRows;
        const int firstCol = block.index % tilesAcross * kCols;
        block.forEachThread([&](int t) {
            loadDifferences(t, firstRow, firstCol, shared);
            for (int i = t; i < kSearched * kRows * kWords; i += kThreads) {
                shared.words[i / (kRows * kWords)][i / kWords % kRows][i % kWords] = 0;
            }
        });
        block.forEachThread([&](int t) {
            for (int i = t; i < kRows * kCols; i += kThreads) {
                const int r = i / kCols;
                const int c = i % kCols;
                if (firstRow + r < kBorder || firstRow + r >= octave.rows - kBorder ||
                    firstCol + c < kBorder || firstCol + c >= octave.cols - kBorder) {
                    continue;
                }
                for (int s = kFirstSearched; s <= kLastSearched; ++s) {
                    if (!isCandidate(shared, s, r, c)) continue;
                    atomicSetBits(&shared.words[s - kFirstSearched][r][c / kBitsOfWord],
                                  1U << c % kBitsOfWord);
                }
            }
        });
        block.forEachThread([&](int t) {
            for (int i = t; i < kSearched * kRows * kWords; i += kThreads) {
                const int s = i / (kRows * kWords);
                const int r = i / kWords % kRows;
                const int place = firstCol / kBitsOfWord + i % kWords;
                if (firstRow + r >= octave.rows || place >= bits.wordsOfRow) continue;
                bits.word(s + kFirstSearched, firstRow + r, place) = shared.words[s][r][i % kWords];
            }
        });
    }

    // The differences of the tile and of one pixel around it; those outside of the octave are never
    // read.
    MARLO_GPU_FUNCTION void loadDifferences(int t, int firstRow, int firstCol,
                                            Shared& shared) const {
        for (int i = t; i < (kRows + 2) * (kCols + 2); i += kThreads) {
            const int r = i / (kCols + 2);
            const int c = i % (kCols + 2);
            const int row = firstRow + r - 1;
            const int col = firstCol + c - 1;
            if (row < 0 || row >= octave.rows || col < 0 || col >= octave.cols) continue;
            const long long pixel = static_cast<long long>(row) * octave.cols + col;
            float lower = octave.levels[0][pixel];
            for (int s = 0; s < kDifferences; ++s) {
                const float upper = octave.levels[s + 1][pixel];
                shared.differences[s][r][c] = lower - upper;
                lower = upper;
            }
        }
    }

    MARLO_GPU_FUNCTION static bool isCandidate(const Shared& shared, int s, int r, int c) {
        const float value = shared.differences[s][r + 1][c + 1];
        return isExtremumOf(shared.differences[s], r, c, value) &&
               isExtremumOf(shared.differences[s - 1], r, c, value) &&
               isExtremumOf(shared.differences[s + 1], r, c, value) &&
               !(isFlat(shared.differences[s], r, c) && isFlat(shared.differences[s - 1], r, c) &&
                 isFlat(shared.differences[s + 1], r, c));
    }

    // Whether `value` is at least as far from zero, on its own side, as nine pixels. Zero is on the
    // negative side; comparisons with NaN are false.
    MARLO_GPU_FUNCTION static bool isExtremumOf(const float (&pixels)[kRows + 2][kCols + 2], int r,
                                                int c, float value) {
        for (int dr = 0; dr < 3; ++dr) {
            for (int dc = 0; dc < 3; ++dc) {
                const float pixel = pixels[r + dr][c + dc];
                if (value > 0.0F ? pixel > value : pixel < value) return false;
            }
        }
        return true;
    }

    MARLO_GPU_FUNCTION static bool isFlat(const float (&pixels)[kRows + 2][kCols + 2], int r,
                                          int c) {
        for (int dr = 0; dr < 3; ++dr) {
            for (int dc = 0; dc < 3; ++dc) {
                if (!(pixels[r + dr][c + dc] == pixels[r][c])) return false;
            }
        }
        return true;
    }

    Octave octave;
    CandidateBits bits;
    int tilesAcross;
};

// Refines the candidates: unmarks those that cannot be, and lets the first of those that end at a
// pixel have it.
struct ClaimKernel {
    static constexpr int kThreads = 128;
    using Shared = NothingShared;

    MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& /*shared*/) const {
        block.forEachThread([&](int t) {
            const long long step = static_cast<long long>(block.count) * kThreads;
            const long long first = static_cast<long long>(block.index) * kThreads + t;
            for (long long i = first; i < bits.size(); i += step) {
                const unsigned marked = bits.words[i];
                if (marked == 0) continue;
                unsigned kept = marked;
                forEachBit(marked, [&](int bit) {
                    const Candidate candidate = bits.candidate(i, bit);
                    Extremum extremum;
                    if (refine(octave, candidate, extremum)) {
                        const long long pixel =
                            static_cast<long long>(extremum.pixelRow) * octave.cols +
                            extremum.pixelCol;
                        atomicLower(&owners[pixel], candidate.key(octave));
                    } else {
                        kept &= ~(1U << bit);
                    }
                });
                if (kept != marked) bits.words[i] = kept;
            }
        });
    }

    Octave octave;
    CandidateBits bits;
    unsigned* owners;
};

struct BitCounts {
    CandidateBits bits;

    MARLO_GPU_FUNCTION long long size() const { return bits.size(); }
    MARLO_GPU_FUNCTION unsigned operator()(long long i) const { return bitCount(bits.words[i]); }
};

struct EmitKeys {
    Octave octave;
    CandidateBits bits;
    unsigned* keys;
    long long capacity;

    MARLO_GPU_FUNCTION void operator()(long long i, unsigned place) const {
        forEachBit(bits.words[i], [&](int bit) {
            if (place < capacity) keys[place] = bits.candidate(i, bit).key(octave);
            ++place;
        });
    }
};

// Refines once more: cheaper than to keep what was refined in no order.
struct RefineKernel {
    static constexpr int kThreads = 128;
    using Shared = NothingShared;

    MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& /*shared*/) const {
        const long long size = *count < capacity ? *count : capacity;
        block.forEachThread([&](int t) {
            const long long step = static_cast<long long>(block.count) * kThreads;
            const long long first = static_cast<long long>(block.index) * kThreads + t;
            for (long long i = first; i < size; i += step) {
                Extremum extremum;
                refine(octave, Candidate::ofKey(keys[i], octave), extremum);
                const long long pixel =
                    static_cast<long long>(extremum.pixelRow) * octave.cols + extremum.pixelCol;
                if (owners[pixel] != keys[i]) extremum.level = 0;
                extrema[i] = extremum;
            }
        });
    }

    Octave octave;
    const unsigned* keys;
    const unsigned* count;
    long long capacity;
    const unsigned* owners;
    Extremum* extrema;
};

}  // namespace

ExtremumSearch::ExtremumSearch(MemoryPlan& plan, int rows, int cols, long long capacity)
    : capacity_(capacity) {
    const long long words = static_cast<long long>(kSearched) * rows * wordsFor(cols);
    words_ = plan.take<unsigned>(words);
    owners_ = plan.take<unsigned>(static_cast<long long>(rows) * cols);
    blockTotals_ = plan.take<unsigned>(scanPieces(words));
    keys_ = plan.take<unsigned>(capacity);
    extrema_ = plan.take<Extremum>(capacity);
}

void ExtremumSearch::run(Stream& stream, const Octave& octave, unsigned* count) {
    const CandidateBits bits{words_, octave.rows, wordsFor(octave.cols)};
    // At first every pixel belongs to a key that is above all others.
    stream.fill(owners_, 0xff, static_cast<std::size_t>(octave.size()) * sizeof(unsigned));
    const int across = (octave.cols + MarkKernel::kCols - 1) / MarkKernel::kCols;
    const long long down = (octave.rows + MarkKernel::kRows - 1) / MarkKernel::kRows;
    stream.launch(across * down, MarkKernel{octave, bits, across});
    stream.launch(blocksFor<ClaimKernel>(bits.size()), ClaimKernel{octave, bits, owners_});
    emitInOrder(stream, BitCounts{bits}, EmitKeys{octave, bits, keys_, capacity_}, bits.size(),
                blockTotals_, nullptr, count);
    stream.launch(blocksFor<RefineKernel>(capacity_),
                  RefineKernel{octave, keys_, count, capacity_, owners_, extrema_});
}

}  // namespace marlo::gpu
