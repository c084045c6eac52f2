// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <vector>

#include "libfeatures/features_export.h"
#include "support/bin_io.h"
#include "support/desc_mat.h"
#include "support/system.h"

namespace marlo {

/// What the descriptors of an image are like on the whole: how many of them are nearest to each of
/// 1024 fixed ones, the visual words. Two images that show the same things have similar histograms,
/// so that of many images the few that are worth matching can be told at once.
/// J. Sivic and A. Zisserman, Video Google: A Text Retrieval Approach to Object Matching in Videos,
/// ICCV 2003; here the words are not learned from the images but drawn once, for all
/// (fillRandomLdah(), fillRandomSift()), so that histograms made anywhere can be compared.
///
/// distance() compares counts, so give it images with about as many descriptors: ask a selector for
/// the same number of keypoints. Scaling the counts helps little; docs/similarity.md has figures.
///
/// The words of each type are made when the first histogram of the type is, once in a process, and
/// are never freed; those of LDAH rows of more than 16 bytes when the first such rows are
/// classified, which takes some tenths of a second. Histograms may be constructed and used on
/// several threads at once; a single one is used by one thread at a time. Everything runs on the
/// calling thread.
class FEATURES_EXPORT FeatureHistogram {
public:
    /// A histogram of nothing. `type` says which words and which distance classify() uses: those of
    /// LDAH rows for DescriptorType::LDAH, those of SIFT rows for any other.
    /// @throws std::bad_alloc if there is not enough memory, std::system_error if the once-only
    ///         construction of the words fails.
    explicit FeatureHistogram(DescriptorType type);

    /// Replaces the counts by those of `descriptors`: each row counts for the word nearest to it,
    /// for the first of several. So the counts add up to the number of rows. They are all 0 for a
    /// matrix without rows that has the columns described below.
    ///
    /// LDAH: rows are read as 64-bit words whatever their type, N = cols / 8 of them (of float rows
    /// the first bytes), and compared by Hamming distance with the visual words read as rows of N
    /// 64-bit words one after the other. Where N is not 1, 2, 4, 8 or 16 nothing happens. LDAH rows
    /// have N = 2; the words of the longer rows are further random LDAH rows, several in a row.
    ///
    /// SIFT: rows are of 128 floats, compared by cvSiftDistance(). A row that holds a NaN or an
    /// infinity, or lies so far off that its distances are infinite, counts for word 0.
    ///
    /// `descriptors` may be a view, with rows at any address.
    /// @throws std::invalid_argument if the histogram is one of SIFT rows and there are rows of
    ///         anything but 128 floats, std::bad_alloc if there is not enough memory,
    ///         std::system_error as the constructor. The counts are unchanged in each case.
    void classify(const DescMat& descriptors);

    /// classify() for rows of N 64-bit words, whatever the type of the histogram, with the kernels
    /// for a way of counting bits. The library has it for PopcntArm and PopcntNone and for N = 1,
    /// 2, 4, 8 and 16; all ways give the same counts, on any processor.
    /// @throws std::invalid_argument if there are rows and they have fewer than 8 N bytes,
    ///         std::bad_alloc if there is not enough memory. The counts are unchanged in both
    ///         cases.
    template <system::popcnt_t P, int N>
    void classifyLdah(const DescMat& descriptors);

    /// The sum of the absolute differences of the counts, whatever types the two histograms have.
    /// Differences are taken in 32 bits: counts that differ by 2^31 or more do not give what they
    /// should, and exactly 2^31 counts as -2^31.
    /// @throws std::invalid_argument unless both have 1024 bins.
    [[nodiscard]] long distance(const FeatureHistogram& other) const;

    /// Appends the counts: 1024 unsigned 32-bit integers in the machine's byte order, 4096 bytes,
    /// and nothing else. Those of LDAH rows can be compared as long as ldahTablesIdentifier() says
    /// the same.
    /// @throws std::invalid_argument unless there are 1024 bins, std::bad_alloc if there is not
    ///         enough memory.
    void writeBin(BinWriter& writer) const;
    /// Takes the counts from what writeBin() wrote; the type stays that of the construction.
    /// @throws std::runtime_error "file too small" if fewer than 4096 bytes are left. The histogram
    ///         and the reader's position are unchanged then.
    void readBin(BinReader& reader);

    std::vector<std::uint32_t> bins;  ///< 1024 counts, bin i for word i
    DescriptorType descriptorType;
};

}  // namespace marlo
