// SPDX-License-Identifier: BSD-3-Clause
#include "libfeatures/histogram/random_descriptors.h"

#include <omp.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "libfeatures/descriptors/ldah_codes.h"
#include "libfeatures/histogram/detail/random_patch.h"
#include "support/thread_count_guard.h"

namespace marlo {

void fillRandomSift(DescMat& descriptors, int rows) {
    constexpr std::uint64_t kSeed = 1;
    DescMat words;
    allocateDescriptors(words, rows, true);
    detail::PatchRandom random(kSeed);
    detail::PatchDescriptor word{};
    for (int row = 0; row < rows; ++row) {
        word = row % 2 == 0 ? detail::randomPatchDescriptor(random) : detail::mirrored(word);
        std::memcpy(words.data + static_cast<std::size_t>(row) * words.step, word.data(),
                    sizeof word);
    }
    descriptors = std::move(words);
}

void fillRandomLdah(DescMat& descriptors, int rows) {
    DescMat words;
    fillRandomSift(words, rows);
    const ThreadCountGuard keep;
    omp_set_num_threads(1);  // histograms stay on their caller's thread
    ldahRowsFromSift(words, words);
    descriptors = std::move(words);
}

}  // namespace marlo
