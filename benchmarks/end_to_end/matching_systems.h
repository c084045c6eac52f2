// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "libfeatures/base/d_match.h"
#include "libfeatures/matchers/i_descriptor_matcher.h"
#include "support/desc_mat.h"

namespace marlo::bench {

/// The two nearest train rows of every query row.
struct Neighbours {
    std::vector<int> nearest;           ///< -1 where there is none
    std::vector<float> distance;        ///< of the nearest
    std::vector<float> secondDistance;  ///< infinite where there is only one train row
};

/// One way of comparing all query rows with all train rows. Descriptor matrices that a system is
/// made with must outlive it.
class MatchingSystem {
public:
    MatchingSystem() = default;
    MatchingSystem(const MatchingSystem&) = delete;
    MatchingSystem& operator=(const MatchingSystem&) = delete;
    virtual ~MatchingSystem() = default;

    /// The whole search, which is what is timed.
    virtual void run() = 0;
    /// What the last run() found, in the form of this program; empty if the system keeps nothing.
    [[nodiscard]] virtual Neighbours neighbours() const { return {}; }

    std::string name;
    std::string remark;  ///< what to know when comparing
};

/// A matcher of this library, with its own parameters.
class LibfeaturesMatching : public MatchingSystem {
public:
    LibfeaturesMatching(std::string systemName, std::unique_ptr<IDescriptorMatcher> matcher,
                        const DescMat& query, const DescMat& train);
    void run() override;

    [[nodiscard]] const std::vector<DMatch>& matches() const { return matches_; }

private:
    std::unique_ptr<IDescriptorMatcher> matcher_;
    const DescMat& query_;
    const DescMat& train_;
    std::vector<DMatch> matches_;
};

/// A loop over the words of binary rows with the bit-count instruction and nothing else: what a
/// programmer writes first. `queriesAtOnce`: 1, or 4, which reads a train row once for four query
/// rows. Empty for float rows.
std::unique_ptr<MatchingSystem> makeBitCountLoop(const DescMat& query, const DescMat& train,
                                                 int queriesAtOnce);

// Others, for the rows that they know; empty for other rows and if built without them. A version is
// empty if built without the system.

/// BFMatcher::knnMatch.
std::unique_ptr<MatchingSystem> makeOpenCvMatching(const DescMat& query, const DescMat& train);
std::string openCvVersion();
void setOpenCvThreads(int threads);

/// IndexBinaryFlat and IndexFlatL2. Uses OpenMP threads and those of the BLAS.
std::unique_ptr<MatchingSystem> makeFaissMatching(const DescMat& query, const DescMat& train);
std::string faissVersion();

/// The matrix product that float distances can be made from, without anything that follows.
std::unique_ptr<MatchingSystem> makeOpenBlasProduct(const DescMat& query, const DescMat& train);
std::string openBlasVersion();
void setOpenBlasThreads(int threads);

}  // namespace marlo::bench
