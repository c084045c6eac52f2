// SPDX-License-Identifier: BSD-3-Clause
#include "libmarlocuda/detail/gradient.h"
#include "libmarlocuda/detail/orientations.h"
#include "libmarlocuda/detail/scan.h"

namespace marlo::gpu {
namespace {

// Sums that take the samples of a window in turn, one for each of the threads that share the work.
// What the sum of a bin is depends on it: it is the CPU's number.
constexpr int kSums = 4;

// The window of a histogram: a disc around (row, col), without the last two rows and columns.
struct Window {
    MARLO_GPU_FUNCTION Window(const Extremum& extremum, const Image& level)
        : row(extremum.row),
          col(extremum.col),
          weightFactor(-1.0F / (4.5F * (extremum.sigma * extremum.sigma))) {
        const int r0 = static_cast<int>(row + 0.5F);
        const int c0 = static_cast<int>(col + 0.5F);
        const int radius = static_cast<int>(extremum.sigma * 1.5F * 3.0F);
        squaredRadius = static_cast<float>(radius * radius) + 0.5F;
        beginRow = greatest(r0 - radius, 0);
        endRow = least(r0 + radius + 1, level.rows - 2);
        beginCol = greatest(c0 - radius, 0);
        endCol = least(c0 + radius + 1, level.cols - 2);
    }

    // The weight of a sample is the product of one for its row and one for its column.
    MARLO_GPU_FUNCTION float weight(int place, float centre) const {
        const float distance = static_cast<float>(place) - centre;
        return exponential(distance * distance * weightFactor);
    }

    float row;
    float col;
    float weightFactor;
    float squaredRadius;
    int beginRow;
    int endRow;
    int beginCol;
    int endCol;
};

// Adds every kSums-th sample of a window, from `turn` on, to the bin of its direction.
MARLO_GPU_FUNCTION inline void addSamples(const Window& window, const Image& level, int turn,
                                          float (&bins)[kBins]) {
    int before = 0;  // samples in the rows above
    for (int r = window.beginRow; r < window.endRow; ++r) {
        const float dr = static_cast<float>(r) - window.row;
        const float squaredRow = dr * dr;
        const float squaredRest = window.squaredRadius - squaredRow;
        if (!(squaredRest > 0.0F)) continue;
        const float rowWeight = window.weight(r, window.row);
        // The columns of the disc and up to one more at each end: every sample is tested.
        const float reach = sqrtf(squaredRest);
        const int begin = greatest(static_cast<int>(window.col - reach), window.beginCol);
        const int end = least(static_cast<int>(window.col + reach) + 2, window.endCol);
        for (int c = begin + (turn - before % kSums + kSums) % kSums; c < end; c += kSums) {
            const float dc = static_cast<float>(c) - window.col;
            if (!(dc * dc + squaredRow < window.squaredRadius)) continue;
            const Gradient gradient = gradientAt(level, r, c);
            const float magnitude = gradient.magnitude();
            if (magnitude <= 0.0F) continue;
            const float direction = gradient.direction();
            if (!(direction == direction)) continue;
            // Half a bin beyond pi belongs to the last bin, not to the first.
            const int bin = least(static_cast<int>(direction * 5.729578F + 18.00573F), kBins - 1);
            bins[bin] += window.weight(c, window.col) * rowWeight * magnitude;
        }
        if (end > begin) before += end - begin;
    }
}

// The place of a peak between -0.5 and 0.5 bins from its centre, from the bins around it.
MARLO_GPU_FUNCTION inline float peakOffset(float left, float centre, float right) {
    if (centre < 0.0F) {
        left = -left;
        centre = -centre;
        right = -right;
    }
    return (left - right) * 0.5F / (left - 2.0F * centre + right);
}

// Writes the angles of the peaks of at least 0.8 times the highest bin; returns their number.
MARLO_GPU_FUNCTION inline unsigned findPeaks(const float (&bins)[kBins], float* angles) {
    float highest = bins[0];
    for (int i = 1; i < kBins; ++i) highest = highest < bins[i] ? bins[i] : highest;
    const float threshold = 0.8F * highest;
    unsigned count = 0;
    for (int i = 0; i < kBins; ++i) {
        const float left = bins[(i + kBins - 1) % kBins];
        const float right = bins[(i + 1) % kBins];
        if (!(bins[i] > left && bins[i] > right && bins[i] >= threshold)) continue;
        const float offset = peakOffset(left, bins[i], right);
        angles[count] = (static_cast<float>(i) + offset) * 0.17453294F - 3.0543263F;
        ++count;
    }
    return count;
}

// kSums threads for each extremum.
struct HistogramKernel {
    static constexpr int kThreads = 128;
    static constexpr int kExtrema = kThreads / kSums;
    struct Histogram {
        float bins[kBins];
        float unused;  // an odd length: the same bin of 32 threads lies in 32 banks of memory
    };
    struct Shared {
        // By extremum and thread, and then, smoothed, by extremum and pass.
        Histogram histograms[kExtrema][kSums];
    };

    MARLO_GPU_FUNCTION void operator()(const Block<kThreads>& block, Shared& shared) const {
        const long long size = *count < capacity ? *count : capacity;
        const long long step = static_cast<long long>(block.count) * kExtrema;
        for (long long first = static_cast<long long>(block.index) * kExtrema; first < size;
             first += step) {
            block.forEachThread([&](int t) {
                float(&bins)[kBins] = shared.histograms[t / kSums][t % kSums].bins;
                for (int i = 0; i < kBins; ++i) bins[i] = 0.0F;
                const long long i = first + t / kSums;
                if (i >= size || extrema[i].level == 0) return;
                const Image level = levelOf(extrema[i]);
                addSamples(Window(extrema[i], level), level, t % kSums, bins);
            });
            // From here on the threads of an extremum share its bins.
            block.forEachThread([&](int t) {
                Histogram(&sums)[kSums] = shared.histograms[t / kSums];
                for (int i = t % kSums; i < kBins; i += kSums) {
                    sums[0].bins[i] =
                        (sums[0].bins[i] + sums[1].bins[i]) + (sums[2].bins[i] + sums[3].bins[i]);
                }
            });
            for (int pass = 0; pass < 6; ++pass) {
                block.forEachThread([&](int t) {
                    const float(&old)[kBins] = shared.histograms[t / kSums][pass % 2].bins;
                    float(&smooth)[kBins] = shared.histograms[t / kSums][1 - pass % 2].bins;
                    for (int i = t % kSums; i < kBins; i += kSums) {
                        // The float just below 1/3 for the last bin, the one nearest to it for the
                        // others.
                        const float third = i == kBins - 1 ? 0.3333333F : 0.33333334F;
                        smooth[i] =
                            (old[(i + kBins - 1) % kBins] + old[i] + old[(i + 1) % kBins]) * third;
                    }
                });
            }
            block.forEachThread([&](int t) {
                const long long i = first + t / kSums;
                if (t % kSums != 0 || i >= size) return;
                counts[i] = extrema[i].level == 0 ? 0U
                                                  : findPeaks(shared.histograms[t / kSums][0].bins,
                                                              angles + i * kMostOrientations);
            });
        }
    }

    MARLO_GPU_FUNCTION Image levelOf(const Extremum& extremum) const {
        return {const_cast<float*>(octave.levels[extremum.level]), octave.rows, octave.cols};
    }

    Octave octave;
    const Extremum* extrema;
    const unsigned* count;
    long long capacity;
    unsigned* counts;
    float* angles;
};

struct OrientationCounts {
    const unsigned* counts;
    const unsigned* extremumCount;
    long long capacity;

    MARLO_GPU_FUNCTION long long size() const {
        return *extremumCount < capacity ? *extremumCount : capacity;
    }
    MARLO_GPU_FUNCTION unsigned operator()(long long i) const { return counts[i]; }
};

struct EmitKeypoints {
    const Extremum* extrema;
    OrientationCounts counts;
    const float* angles;
    float octaveFactor;
    std::uint8_t octave;
    KeypointRecord* keypoints;

    MARLO_GPU_FUNCTION void operator()(long long i, unsigned place) const {
        const Extremum& extremum = extrema[i];
        for (unsigned k = 0; k < counts(i) && place + k < counts.capacity; ++k) {
            keypoints[place + k] = {octaveFactor * extremum.col,
                                    octaveFactor * extremum.row,
                                    octaveFactor * extremum.sigma,
                                    angles[i * kMostOrientations + k],
                                    fabsf(extremum.value),
                                    octave,
                                    static_cast<std::uint8_t>(extremum.level),
                                    {0, 0}};
        }
    }
};

}  // namespace

Orientations::Orientations(MemoryPlan& plan, long long capacity)
    : capacity_(capacity),
      counts_(plan.take<unsigned>(capacity)),
      angles_(plan.take<float>(capacity * kMostOrientations)),
      blockTotals_(plan.take<unsigned>(scanPieces(capacity))) {}

void Orientations::run(Stream& stream, const Octave& octave, int octaveNumber,
                       const Extremum* extrema, const unsigned* extremumCount,
                       KeypointRecord* keypoints, const unsigned* begin, unsigned* end) {
    const long long batches =
        (capacity_ + HistogramKernel::kExtrema - 1) / HistogramKernel::kExtrema;
    stream.launch(blocksOfLoop(batches),
                  HistogramKernel{octave, extrema, extremumCount, capacity_, counts_, angles_});
    const OrientationCounts counts{counts_, extremumCount, capacity_};
    const EmitKeypoints emit{extrema,
                             counts,
                             angles_,
                             static_cast<float>(1 << octaveNumber),
                             static_cast<std::uint8_t>(octaveNumber),
                             keypoints};
    emitInOrder(stream, counts, emit, capacity_, blockTotals_, begin, end);
}

}  // namespace marlo::gpu
