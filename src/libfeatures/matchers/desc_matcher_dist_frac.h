// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QString>
#include <memory>
#include <vector>

#include "libfeatures/base/d_match.h"
#include "libfeatures/features_export.h"
#include "libfeatures/matchers/desc_matcher_dist_frac_base.h"
#include "libfeatures/matchers/i_descriptor_matcher.h"
#include "support/desc_mat.h"

namespace marlo {

/// Nearest neighbours that pass the ratio test, found by comparing all rows with all rows.
///
/// A query row is matched to its nearest train row if nearest / second-nearest distance is below
/// `distanceFraction` and the nearest is no further than `maxHammingDistance` (binary rows) or
/// `maxDistance` (float rows). Of train rows at the same distance the first is the nearest and the
/// next the second-nearest; two at distance 0 make a row ambiguous. With a single train row there
/// is no second, the ratio counts as 0 and the score is 1, however far the two are apart.
/// D. Lowe, Distinctive Image Features from Scale-Invariant Keypoints, IJCV 60(2), 2004, sec. 7.1.
///
/// Binary rows (type DescMat::Byte) of 8, 16, 32, 64 or 128 columns are compared by Hamming
/// distance, float rows of any width by cvSiftDistance(). Runs on OpenMP threads; results are the
/// same for any number of them and on any processor. Memory beyond the result: twice the train rows
/// for binary rows, half of them for floats, and a few bytes a row. Float search is fast because
/// few distances have to be computed; where all rows are nearly alike, or nearly all differ in
/// length by orders of magnitude, it is no faster than computing all.
///
/// **Number of threads.** For binary rows that it compares, match() sets the OpenMP thread count of
/// its caller: to 1 before the search, if there are at least as many processors as blocks of 728
/// query rows, and after it to what omp_get_num_threads() was, which outside a parallel region is 1
/// again. So later parallel regions of the calling thread, the host's own and those of later calls
/// into this library included, run on one thread. Put a ThreadCountGuard around the call to keep
/// your setting. Matches are appended in an unnamed OpenMP critical section: do not call match()
/// from inside one of your own.
///
/// Use an object from one thread at a time: match() records the kernel that it used.
class FEATURES_EXPORT DescMatcherDistFrac : public IDescriptorMatcher,
                                            public DescMatcherDistFracBase {
public:
    DescMatcherDistFrac();
    ~DescMatcherDistFrac() override;

    [[nodiscard]] std::unique_ptr<IDescriptorMatcher> clone() const override;

    /// The `distance` of a match is its score, 1 - nearest / second-nearest: larger is better. Best
    /// first; matches of the same score with the larger query index first.
    ///
    /// No matches and no error for what cannot be compared: an empty matrix, binary rows of other
    /// widths, matrices of different widths, float query rows with binary train rows. A row that
    /// holds a NaN or an infinity is never matched. Of float train rows under binary query rows the
    /// first bytes are taken.
    /// @throws std::bad_alloc if there is not enough memory.
    [[nodiscard]] std::vector<DMatch> match(const DescMat& query,
                                            const DescMat& train) const override;

    /// The kernel for the matrices of the last match(), if neither was empty, whether or not they
    /// could be compared: "CPU Float" for float rows, for binary rows "CPU SSE" (128 bits), "CPU
    /// SSE generic" or "CPU ARM" by the processor's bit count; on a processor without one they
    /// leave the name as it was. Empty before the first; a clone starts with the name of its
    /// original.
    [[nodiscard]] QString kernelName() const override;
};

}  // namespace marlo
