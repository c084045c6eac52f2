// SPDX-License-Identifier: BSD-3-Clause
#include "end_to_end/matching_systems.h"

#if defined(FEATURES_BENCH_WITH_FAISS)

#include <faiss/IndexBinaryFlat.h>
#include <faiss/IndexFlat.h>
#include <faiss/utils/utils.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace marlo::bench {
namespace {

constexpr faiss::Index::idx_t kNearest = 2;

bool isGenericBuild() {
    return faiss::get_compile_options().find("AVX") == std::string::npos;
}

// The index is filled beforehand: a copy of the train rows, of which the times say nothing.
template <typename Index, typename Element, typename Distance>
class FaissMatching : public MatchingSystem {
public:
    FaissMatching(const DescMat& query, const DescMat& train, int dimensions)
        : query_(reinterpret_cast<const Element*>(query.data)),
          queryRows_(query.rows),
          index_(dimensions),
          distances_(static_cast<std::size_t>(kNearest * queryRows_)),
          labels_(distances_.size()) {
        index_.add(train.rows, reinterpret_cast<const Element*>(train.data));
        if (isGenericBuild()) {
            remark = "its package is built for any x86-64 processor: no AVX2, no POPCNT";
        }
    }

    void run() override {
        index_.search(queryRows_, query_, kNearest, distances_.data(), labels_.data());
    }

    [[nodiscard]] Neighbours neighbours() const override {
        Neighbours found;
        for (std::size_t i = 0; i < distances_.size(); i += kNearest) {
            found.nearest.push_back(static_cast<int>(labels_[i]));
            found.distance.push_back(distance(i));
            found.secondDistance.push_back(distance(i + 1));
        }
        return found;
    }

private:
    [[nodiscard]] float distance(std::size_t i) const {
        if (labels_[i] < 0) return std::numeric_limits<float>::infinity();
        const auto value = static_cast<float>(distances_[i]);
        return std::is_same_v<Distance, float> ? std::sqrt(value) : value;  // floats are squares
    }

    const Element* query_;
    faiss::Index::idx_t queryRows_;
    Index index_;
    std::vector<Distance> distances_;
    std::vector<faiss::Index::idx_t> labels_;
};

}  // namespace

std::unique_ptr<MatchingSystem> makeFaissMatching(const DescMat& query, const DescMat& train) {
    std::unique_ptr<MatchingSystem> system;
    if (query.type() == DescMat::Byte) {
        system = std::make_unique<FaissMatching<faiss::IndexBinaryFlat, std::uint8_t, int>>(
            query, train, 8 * query.cols);
        system->name = "FAISS IndexBinaryFlat";
    } else {
        system = std::make_unique<FaissMatching<faiss::IndexFlatL2, float, float>>(query, train,
                                                                                   query.cols);
        system->name = "FAISS IndexFlatL2";
    }
    return system;
}

std::string faissVersion() {
    return std::to_string(FAISS_VERSION_MAJOR) + '.' + std::to_string(FAISS_VERSION_MINOR) + '.' +
           std::to_string(FAISS_VERSION_PATCH) + ", compiled as " + faiss::get_compile_options() +
           (isGenericBuild() ? " (no AVX2, no POPCNT)" : "");
}

}  // namespace marlo::bench

#else

namespace marlo::bench {

std::unique_ptr<MatchingSystem> makeFaissMatching(const DescMat&, const DescMat&) {
    return nullptr;
}

std::string faissVersion() {
    return {};
}

}  // namespace marlo::bench

#endif
