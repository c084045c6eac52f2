// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/detectors/detail/octave_sweep.h"

#include <gtest/gtest.h>

#include <cstring>

#include "utilities/number_of_threads.h"
#include "utilities/synthetic_images.h"

namespace marlo::detail {
namespace {

struct Octave {
    std::vector<Gradients> gradients = std::vector<Gradients>(kLastSearched + 1);
    FloatImage next;
    OctaveExtrema extrema;
};

Octave sweep(const FloatImage& image, bool blurInput, int threads, int minBandRows) {
    const test::NumberOfThreads numberOfThreads(threads);
    Octave octave;
    OctaveTask task;
    task.input = &image;
    task.blurInput = blurInput;
    task.gradients = &octave.gradients;
    task.nextInput = &octave.next;
    task.search = true;
    task.minBandRows = minBandRows;
    octave.extrema = sweepOctave(task);
    return octave;
}

bool sameBits(const FloatImage& a, const FloatImage& b) {
    if (a.rows() != b.rows() || a.cols() != b.cols()) return false;
    return a.size() == 0 ||
           std::memcmp(a.data(), b.data(), static_cast<std::size_t>(a.size()) * sizeof(float)) == 0;
}

bool same(const Extremum& a, const Extremum& b) {
    return a.row == b.row && a.col == b.col && a.sigma == b.sigma && a.value == b.value &&
           a.pixelRow == b.pixelRow && a.pixelCol == b.pixelCol && a.level == b.level;
}

void expectSame(const Octave& a, const Octave& b) {
    EXPECT_TRUE(sameBits(a.next, b.next));
    for (std::size_t s = kFirstSearched; s <= kLastSearched; ++s) {
        EXPECT_TRUE(sameBits(a.gradients[s].first, b.gradients[s].first));
        EXPECT_TRUE(sameBits(a.gradients[s].second, b.gradients[s].second));
        ASSERT_EQ(a.extrema[s].size(), b.extrema[s].size());
        for (std::size_t i = 0; i < a.extrema[s].size(); ++i) {
            EXPECT_TRUE(same(a.extrema[s][i], b.extrema[s][i])) << "extremum " << i;
        }
    }
}

// Two rows a band: most of what a band makes belongs to others.
TEST(OctaveSweepTest, BandsOfTwoRowsGiveTheBitsOfOneBand) {
    for (const int rows : {1, 2, 3, 5, 10, 11, 12, 13, 26, 27, 40, 61}) {
        for (const int cols : {1, 4, 11, 12, 35}) {
            const FloatImage image =
                test::noiseImage(rows, cols, static_cast<unsigned>(rows * cols));
            for (const bool blurInput : {true, false}) {
                const Octave whole = sweep(image, blurInput, 1, 1 << 20);
                for (const int threads : {2, 5, 16}) {
                    SCOPED_TRACE(testing::Message() << rows << " x " << cols << ", " << threads
                                                    << " threads, blurInput " << blurInput);
                    expectSame(sweep(image, blurInput, threads, 2), whole);
                }
            }
        }
    }
}

TEST(OctaveSweepTest, BandsFindTheExtremaOfOneBand) {
    const FloatImage image = test::photographLikeImage(150, 120, 5);
    const Octave whole = sweep(image, true, 1, 1 << 20);
    for (std::size_t s = kFirstSearched; s <= kLastSearched; ++s) {
        EXPECT_GT(whole.extrema[s].size(), 3U) << "level " << s;
    }
    for (const int minBandRows : {2, 7, 50}) expectSame(sweep(image, true, 16, minBandRows), whole);
}

}  // namespace
}  // namespace marlo::detail
