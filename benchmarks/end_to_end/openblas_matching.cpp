// SPDX-License-Identifier: BSD-3-Clause
#include "end_to_end/matching_systems.h"

#if defined(FEATURES_BENCH_WITH_OPENBLAS)

#include <cblas.h>

#include <algorithm>

namespace marlo::bench {
namespace {

// 1024 x 1024 products, 4 MiB, are written into the cache again and again: as fast as any size, and
// no matrix of all distances is needed.
constexpr int kBlockRows = 1024;

class OpenBlasProduct : public MatchingSystem {
public:
    OpenBlasProduct(const DescMat& query, const DescMat& train)
        : query_(query), train_(train), products_(std::size_t{kBlockRows} * kBlockRows) {
        name = "OpenBLAS sgemm alone";
        remark = "the products of all rows, in blocks of 1024 x 1024, and no search in them";
    }

    void run() override {
        for (int q = 0; q < query_.rows; q += kBlockRows) {
            for (int t = 0; t < train_.rows; t += kBlockRows) {
                cblas_sgemm(
                    CblasRowMajor, CblasNoTrans, CblasTrans, std::min(kBlockRows, query_.rows - q),
                    std::min(kBlockRows, train_.rows - t), query_.cols, 1.0F, row(query_, q),
                    query_.cols, row(train_, t), train_.cols, 0.0F, products_.data(), kBlockRows);
            }
        }
    }

private:
    static const float* row(const DescMat& rows, int i) {
        return reinterpret_cast<const float*>(rows.data + static_cast<std::size_t>(i) * rows.step);
    }

    const DescMat& query_;
    const DescMat& train_;
    std::vector<float> products_;
};

}  // namespace

std::unique_ptr<MatchingSystem> makeOpenBlasProduct(const DescMat& query, const DescMat& train) {
    if (query.type() != DescMat::Float) return nullptr;
    return std::make_unique<OpenBlasProduct>(query, train);
}

std::string openBlasVersion() {
    // It starts with the name, and names the kernels for the processor that it runs on.
    return openblas_get_config();
}

void setOpenBlasThreads(int threads) {
    openblas_set_num_threads(threads);
}

}  // namespace marlo::bench

#else

namespace marlo::bench {

std::unique_ptr<MatchingSystem> makeOpenBlasProduct(const DescMat&, const DescMat&) {
    return nullptr;
}

std::string openBlasVersion() {
    return {};
}

void setOpenBlasThreads(int) {}

}  // namespace marlo::bench

#endif
