// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/detail/octave_sweep.h"

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "libfeatures/detectors/detail/extremum_kernels.h"
#include "support/detail/first_exception.h"
#include "support/detail/gradient_kernels.h"

namespace marlo::detail {
namespace {

constexpr int kDifferenceSlots = 16;  // ring of difference rows: a power of two above 2 * kReach
static_assert(kDifferenceSlots > 2 * kReach && kLastSearched + 2 == kDifferences);

// The filters that make the levels of an octave: level 0 from an image that is taken to carry a
// blur of 0.5, and each level from the one before it. Three levels double the scale.
struct OctaveFilters {
    struct Filter {
        GaussWeights rows;
        GaussWeights cols;
    };
    std::vector<Filter> toLevel;

    OctaveFilters(int rows, int cols) {
        const auto add = [&](double sigma) {
            toLevel.push_back({GaussWeights(sigma, rows), GaussWeights(sigma, cols)});
        };
        add(static_cast<double>(1.5198685F));
        float sigma = 1.6F;
        for (int level = 1; level < kLevels; ++level) {
            add(static_cast<double>(0.766421F * sigma));
            sigma = sigma * 1.2599211F;
        }
    }
    [[nodiscard]] int radius(int level) const {
        return toLevel[static_cast<std::size_t>(level)].rows.radius();
    }
};

// Rows of one level that a band needs: their range, and how many of them have been made. They lie
// in a ring of as many rows as are needed at a time.
struct LevelRows {
    int first = 0;
    int last = 0;
    int made = 0;  // rows [first, made) have been there
    std::size_t slots = 0;
    std::vector<float> ring;
};

// A row length of at least `cols` floats that is an odd number of cache lines: rows of an even
// number, above all of a power of two, would compete for a few places in the first-level cache.
std::size_t spreadStride(int cols) {
    constexpr std::size_t kLine = 64 / sizeof(float);
    return ((static_cast<std::size_t>(cols) + kLine - 1) / kLine | 1) * kLine;
}

class Band {
public:
    Band(const OctaveTask& task, const OctaveFilters& filters, int first, int last)
        : task_(task),
          filters_(filters),
          rows_(static_cast<int>(task.input->rows())),
          cols_(static_cast<int>(task.input->cols())),
          first_(first),
          last_(last),
          lastLevel_(task.search ? kLevels - 1 : kLastSearched),
          stride_(spreadStride(cols_)) {
        chooseRanges();
        for (int level = 0; level <= lastLevel_; ++level) allocate(level);
        std::size_t scratch = 0;
        int radius = 0;
        for (int level = 0; level <= lastLevel_; ++level) {
            const OctaveFilters::Filter& filter = filters.toLevel[static_cast<std::size_t>(level)];
            scratch = std::max(scratch, blurScratchSize(kBlurBlockRows, cols_, filter.cols));
            radius = std::max(radius, filter.rows.radius());
        }
        scratch_.resize(scratch);
        in_.resize(static_cast<std::size_t>(kBlurBlockRows + 2 * radius));
        out_.resize(kBlurBlockRows);
        if (task.search) {
            differences_.resize(static_cast<std::size_t>(kDifferences) * kDifferenceSlots *
                                stride_);
            marks_.resize(static_cast<std::size_t>(cols_));
        }
    }

    void run() {
        LevelRows& top = levels_[static_cast<std::size_t>(lastLevel_)];
        while (top.made < top.last) {
            const int begin = top.made;
            make(lastLevel_);
            if (!task_.search) continue;
            for (int r = begin; r < top.made; ++r) {
                subtract(r);
                if (r >= first_ + 1) search(r - 1);
                refine(r - kReach);
            }
        }
        refine(last_ - 1);
    }

    OctaveExtrema extrema;

private:
    // From the last level down, each level reaches farther up and down the image than the next.
    void chooseRanges() {
        int first = first_;
        int last = last_;
        const auto widen = [&](int by) {
            first = std::max(first - by, 0);
            last = std::min(last + by, rows_);
        };
        // Gradients need a neighbour, refinement needs more of them.
        widen(task_.search ? kReach : 1);
        for (int level = lastLevel_; level >= 0; --level) {
            LevelRows& rows = levels_[static_cast<std::size_t>(level)];
            rows.first = first;
            rows.last = last;
            rows.made = first;
            widen(filters_.radius(level));
        }
    }

    void allocate(int level) {
        LevelRows& rows = levels_[static_cast<std::size_t>(level)];
        if (level == 0 && !task_.blurInput) {
            rows.made = rows.last;  // they are the input's
            return;
        }
        rows.slots = std::min(static_cast<std::size_t>(rows.last - rows.first), ringSlots(level));
        rows.ring.resize(rows.slots * stride_);
    }

    // Rows of a level that may be needed at a time. It runs ahead of the last level by the radii in
    // between and a block for each; the next level looks back by its radius; and the rows of the
    // last level's block are subtracted after they have been made.
    [[nodiscard]] std::size_t ringSlots(int level) const {
        int slots = 2 * kBlurBlockRows;
        if (level < lastLevel_) slots += filters_.radius(level + 1);
        for (int above = level + 1; above <= lastLevel_; ++above) {
            slots += filters_.radius(above) + kBlurBlockRows;
        }
        return static_cast<std::size_t>(slots);
    }

    [[nodiscard]] const float* inputRow(int r) const {
        return task_.input->data() + static_cast<std::ptrdiff_t>(r) * cols_;
    }

    // Row `r` of a level, in its ring. Level 0 has none where it is the input.
    [[nodiscard]] float* ringRow(int level, int r) {
        LevelRows& rows = levels_[static_cast<std::size_t>(level)];
        return rows.ring.data() + static_cast<std::size_t>(r - rows.first) % rows.slots * stride_;
    }
    [[nodiscard]] const float* levelRow(int level, int r) {
        return level == 0 && !task_.blurInput ? inputRow(r) : ringRow(level, r);
    }

    // Makes the next block of rows of `level`, and what it needs of the levels before.
    void make(int level) {
        LevelRows& rows = levels_[static_cast<std::size_t>(level)];
        const int begin = rows.made;
        const int end = std::min(begin + kBlurBlockRows, rows.last);
        const int radius = filters_.radius(level);
        if (level > 0) {
            LevelRows& source = levels_[static_cast<std::size_t>(level - 1)];
            const int needed = std::min(end + radius, rows_);
            while (source.made < needed) make(level - 1);
        }
        for (int r = begin - radius; r < end + radius; ++r) {
            const int source = mirrored(r, rows_);
            in_[static_cast<std::size_t>(r - begin + radius)] =
                level == 0 ? inputRow(source) : levelRow(level - 1, source);
        }
        for (int r = begin; r < end; ++r) {
            out_[static_cast<std::size_t>(r - begin)] = ringRow(level, r);
        }
        const OctaveFilters::Filter& filter = filters_.toLevel[static_cast<std::size_t>(level)];
        blur_({in_.data(), out_.data(), end - begin, cols_, &filter.rows, &filter.cols,
               scratch_.data()});
        rows.made = end;
        if (level >= kFirstSearched && level <= kLastSearched) writeGradients(level, begin, end);
        if (level == kLastSearched && task_.nextInput != nullptr) decimate(begin, end);
    }

    // The gradients that the rows [begin, end) of a level, just made, complete: all but the last
    // row, which still misses the one below it, and the row before the first.
    void writeGradients(int level, int begin, int end) {
        Gradients& gradients = (*task_.gradients)[static_cast<std::size_t>(level)];
        const int last = end == rows_ ? end : end - 1;
        for (int r = std::max(begin - 1, first_); r < std::min(last, last_); ++r) {
            const RowNeighbours neighbours{levelRow(level, std::max(r - 1, 0)), levelRow(level, r),
                                           levelRow(level, std::min(r + 1, rows_ - 1)), cols_};
            gradient_(neighbours, &gradients.first(r, 0), &gradients.second(r, 0));
        }
    }

    void decimate(int begin, int end) {
        FloatImage& half = *task_.nextInput;
        for (int r = std::max(begin, first_); r < std::min(end, last_); ++r) {
            if (r % 2 != 0 || r / 2 >= half.rows()) continue;
            const float* from = levelRow(kLastSearched, r);
            for (Eigen::Index c = 0; c < half.cols(); ++c) half(r / 2, c) = from[2 * c];
        }
    }

    [[nodiscard]] float* difference(int level, int r) {
        const int slot = level * kDifferenceSlots + r % kDifferenceSlots;
        return differences_.data() + static_cast<std::size_t>(slot) * stride_;
    }

    void subtract(int r) {
        const float* levels[kLevels];
        float* differences[kDifferences];
        for (int i = 0; i < kLevels; ++i) levels[i] = levelRow(i, r);
        for (int i = 0; i < kDifferences; ++i) differences[i] = difference(i, r);
        hasNan_[static_cast<std::size_t>(r % kDifferenceSlots)] =
            subtract_(levels, differences, cols_);
    }

    void search(int r) {
        if (r < std::max(first_, kBorder) || r >= std::min(last_, rows_ - kBorder)) return;
        DifferenceRows rows;
        bool hasNan = false;
        for (int k = 0; k < 3; ++k) {
            const int neighbour = r - 1 + k;
            hasNan |= hasNan_[static_cast<std::size_t>(neighbour % kDifferenceSlots)];
            for (int i = 0; i < kDifferences; ++i) rows[i][k] = difference(i, neighbour);
        }
        (hasNan ? markExtrema : search_)(rows, cols_, marks_.data());
        // Few pixels are marked: eight are looked at together.
        for (int c = 0; c < cols_; c += 8) {
            const auto count = static_cast<std::size_t>(std::min(8, cols_ - c));
            std::uint64_t eight = 0;
            std::copy_n(marks_.data() + c, count, reinterpret_cast<std::uint8_t*>(&eight));
            if (eight == 0) continue;
            for (std::size_t i = 0; i < count; ++i) {
                const unsigned mark = marks_[static_cast<std::size_t>(c) + i];
                for (int s = kFirstSearched; s <= kLastSearched; ++s) {
                    if (mark & (1U << (s - 1)))
                        candidates_.push_back({r, c + static_cast<int>(i), s});
                }
            }
        }
    }

    // Refines what was found in rows up to `row`.
    void refine(int row) {
        const auto at = [&](int level, int r, int c) { return difference(level, r)[c]; };
        std::size_t i = 0;
        for (; i < candidates_.size() && candidates_[i].row <= row; ++i) {
            if (const auto extremum = interpKeyPoint(at, rows_, cols_, candidates_[i])) {
                extrema[static_cast<std::size_t>(extremum->level)].push_back(*extremum);
            }
        }
        candidates_.erase(candidates_.begin(),
                          candidates_.begin() + static_cast<std::ptrdiff_t>(i));
    }

    const OctaveTask& task_;
    const OctaveFilters& filters_;
    const int rows_;
    const int cols_;
    const int first_;  // the band: rows [first_, last_)
    const int last_;
    const int lastLevel_;
    const std::size_t stride_;  // floats from one stored row to the next
    std::array<LevelRows, kLevels> levels_;
    std::vector<const float*> in_;
    std::vector<float*> out_;
    std::vector<float> scratch_;
    std::vector<float> differences_;
    std::array<bool, kDifferenceSlots> hasNan_{};
    std::vector<std::uint8_t> marks_;
    std::vector<Candidate> candidates_;
    BlurFunction* blur_ = fastest(blurKernels());
    GradientFunction* gradient_ = fastest(gradientKernels());
    DifferenceFunction* subtract_ = fastest(differenceKernels());
    ExtremumFunction* search_ = fastest(extremumKernels());
};

}  // namespace

OctaveExtrema sweepOctave(const OctaveTask& task) {
    const auto rows = static_cast<int>(task.input->rows());
    const auto cols = static_cast<int>(task.input->cols());
    for (std::size_t level = kFirstSearched; level <= kLastSearched; ++level) {
        (*task.gradients)[level].first.resize(rows, cols);
        (*task.gradients)[level].second.resize(rows, cols);
    }
    if (task.nextInput != nullptr) task.nextInput->resize(rows / 2, cols / 2);
    if (rows == 0 || cols == 0) return {};

    OctaveTask wanted = task;
    wanted.search = task.search && rows > 2 * kBorder && cols > 2 * kBorder;
    const OctaveFilters filters(rows, cols);
    // In a parallel region of the caller there is one thread for all bands.
    const int threads = omp_in_parallel() != 0 ? 1 : omp_get_max_threads();
    const int numberOfBands = std::clamp(rows / task.minBandRows, 1, threads);
    std::vector<OctaveExtrema> found(static_cast<std::size_t>(numberOfBands));
    FirstException failure;
#pragma omp parallel for schedule(static, 1) if (numberOfBands > 1)
    for (int b = 0; b < numberOfBands; ++b) {
        failure.capture([&] {
            const auto boundary = [&](int band) {
                return static_cast<int>(static_cast<std::ptrdiff_t>(rows) * band / numberOfBands);
            };
            Band band(wanted, filters, boundary(b), boundary(b + 1));
            band.run();
            found[static_cast<std::size_t>(b)] = std::move(band.extrema);
        });
    }
    failure.rethrow();

    OctaveExtrema extrema = std::move(found.front());
    for (std::size_t b = 1; b < found.size(); ++b) {
        for (std::size_t s = kFirstSearched; s <= kLastSearched; ++s) {
            extrema[s].insert(extrema[s].end(), found[b][s].begin(), found[b][s].end());
        }
    }
    return extrema;
}

}  // namespace marlo::detail
