// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/histogram/feature_histogram.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "libfeatures/base/detail/float_search.h"
#include "libfeatures/base/detail/hamming_instance.h"
#include "libfeatures/base/detail/hamming_kernels.h"
#include "libfeatures/base/detail/hamming_search.h"
#include "libfeatures/base/detail/screen_kernels.h"
#include "libfeatures/histogram/random_descriptors.h"

namespace marlo {
namespace {

constexpr int kWords = 1024;
constexpr int kLdahBytes = 16;
constexpr int kSiftColumns = 128;
constexpr int kWordBytes = 8;
constexpr int kMostWordsOfARow = 16;

// Made by the first call, complete when any call returns. Never freed: histograms may be used while
// the process ends.
template <typename Fill>
const DescMat& madeOnce(std::once_flag& once, const DescMat*& made, Fill&& fill) {
    std::call_once(once, [&] {
        auto words = std::make_unique<DescMat>();
        fill(*words);
        made = words.release();
    });
    return *made;
}

const DescMat& ldahVocabulary() {
    static std::once_flag once;
    static const DescMat* vocabulary = nullptr;
    return madeOnce(once, vocabulary, [](DescMat& words) { fillRandomLdah(words, kWords); });
}

// What the vocabulary goes on with, for longer rows: it begins with the same bytes.
const DescMat& longLdahVocabulary() {
    constexpr int kRows = kWords * kMostWordsOfARow * kWordBytes / kLdahBytes;
    static std::once_flag once;
    static const DescMat* vocabulary = nullptr;
    return madeOnce(once, vocabulary, [](DescMat& words) { fillRandomLdah(words, kRows); });
}

const DescMat& siftVocabulary() {
    static std::once_flag once;
    static const DescMat* vocabulary = nullptr;
    return madeOnce(once, vocabulary, [](DescMat& words) { fillRandomSift(words, kWords); });
}

// The bytes of the vocabulary as rows of `bytes` bytes, one after the other.
DescMat ldahWords(int bytes) {
    const DescMat& vocabulary = bytes <= kLdahBytes ? ldahVocabulary() : longLdahVocabulary();
    DescMat words(0, bytes, DescMat::Byte);
    words.rows = kWords;
    words.cols = bytes;
    words.data = vocabulary.data;
    words.step = static_cast<std::size_t>(bytes);
    return words;
}

// Calls search(first, last, nearest) for blocks of the rows, few enough to stay in the cache with
// what the search keeps of them, and counts what it finds. A row that is near to nothing counts for
// word 0, where a plain scan would have begun.
template <typename Distance, typename Search>
std::vector<std::uint32_t> countNearest(std::ptrdiff_t rows, Search&& search) {
    constexpr std::ptrdiff_t kBlockRows = 64;
    using Nearest = detail::TwoNearest<Distance>;
    std::vector<std::uint32_t> counts(kWords, 0);
    for (std::ptrdiff_t first = 0; first < rows; first += kBlockRows) {
        const std::ptrdiff_t last = std::min(first + kBlockRows, rows);
        Nearest nearest[kBlockRows];
        search(first, last, nearest);
        std::for_each(nearest, nearest + (last - first), [&counts](const Nearest& of) {
            ++counts[of.index == Nearest::kNoIndex ? 0 : of.index];
        });
    }
    return counts;
}

template <system::popcnt_t P, int N>
std::vector<std::uint32_t> countNearestLdah(const DescMat& descriptors) {
    const detail::HammingTrain<N> words(*detail::fastest(detail::hammingKernels<P, N>()),
                                        ldahWords(N * kWordBytes));
    return countNearest<std::uint64_t>(
        descriptors.rows,
        [&](std::ptrdiff_t first, std::ptrdiff_t last, detail::TwoNearestBits* nearest) {
            words.search(descriptors, first, last, nearest, nullptr);
        });
}

std::vector<std::uint32_t> countNearestSift(const DescMat& descriptors) {
    using Train = detail::FloatTrain;
    const Train words(*detail::fastest(detail::screenKernels()), descriptors, siftVocabulary(),
                      Train::Preparation::onCaller);
    return countNearest<float>(descriptors.rows, [&](std::ptrdiff_t first, std::ptrdiff_t last,
                                                     detail::TwoNearestFloat* nearest) {
        words.search(first, last, nearest, nullptr);
    });
}

void requireAllBins(const std::vector<std::uint32_t>& bins) {
    if (bins.size() != kWords) {
        throw std::invalid_argument("A histogram of descriptors has 1024 bins.");
    }
}

}  // namespace

FeatureHistogram::FeatureHistogram(DescriptorType type) : bins(kWords, 0), descriptorType(type) {
    if (type == DescriptorType::LDAH) {
        ldahVocabulary();
    } else {
        siftVocabulary();
    }
}

void FeatureHistogram::classify(const DescMat& descriptors) {
    if (descriptorType == DescriptorType::LDAH) {
        // Columns beyond whole words do not count.
        const int bytes = descriptors.cols / kWordBytes * kWordBytes;
        detail::withHammingInstance(system::hasPOPCNT(), bytes, [&]<system::popcnt_t P, int N>() {
            bins = countNearestLdah<P, N>(descriptors);
        });
        return;
    }
    if (descriptors.rows == 0) {
        bins.assign(kWords, 0);
        return;
    }
    if (descriptors.type() != DescMat::Float || descriptors.cols != kSiftColumns) {
        throw std::invalid_argument("SIFT histograms are made of rows of 128 floats.");
    }
    bins = countNearestSift(descriptors);
}

template <system::popcnt_t P, int N>
void FeatureHistogram::classifyLdah(const DescMat& descriptors) {
    const std::size_t rowBytes =
        static_cast<std::size_t>(descriptors.cols) * descriptors.elemSizeBytes();
    if (descriptors.rows != 0 && rowBytes < std::size_t{N} * kWordBytes) {
        throw std::invalid_argument("The rows of descriptors are too short.");
    }
    bins = countNearestLdah<P, N>(descriptors);
}

long FeatureHistogram::distance(const FeatureHistogram& other) const {
    requireAllBins(bins);
    requireAllBins(other.bins);
    long total = 0;
    for (std::size_t i = 0; i < kWords; ++i) {
        // Without sign until the end, where a value of 2^31 becomes -2^31.
        const std::uint32_t difference = bins[i] - other.bins[i];
        const bool isNegative = static_cast<std::int32_t>(difference) < 0;
        total += static_cast<std::int32_t>(isNegative ? 0 - difference : difference);
    }
    return total;
}

void FeatureHistogram::writeBin(BinWriter& writer) const {
    requireAllBins(bins);
    writer.writeBytes(bins.data(), kWords * sizeof(bins[0]));
}

void FeatureHistogram::readBin(BinReader& reader) {
    std::vector<std::uint32_t> read(kWords);
    reader.readBytes(read.data(), kWords * sizeof(read[0]));
    bins = std::move(read);
}

#define MARLO_INSTANCES(N)                                                               \
    template FEATURES_EXPORT void FeatureHistogram::classifyLdah<system::PopcntArm, N>(  \
        const DescMat&);                                                                 \
    template FEATURES_EXPORT void FeatureHistogram::classifyLdah<system::PopcntNone, N>( \
        const DescMat&);
MARLO_INSTANCES(1)
MARLO_INSTANCES(2)
MARLO_INSTANCES(4)
MARLO_INSTANCES(8)
MARLO_INSTANCES(16)
#undef MARLO_INSTANCES

}  // namespace marlo
