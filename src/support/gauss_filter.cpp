// SPDX-License-Identifier: BSD-3-Clause
#include "support/gauss_filter.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "support/detail/gauss_kernels.h"

namespace marlo {
namespace {

using detail::BlurFunction;
using detail::GaussWeights;
using detail::kBlurBlockRows;
using detail::mirrored;

// One thread's rows [first, last) of the image, with what they need of rows that are overwritten.
struct Band {
    int first = 0;
    int last = 0;
    std::vector<float> above;    // rows before the next block, which the band has overwritten
    std::vector<float> below;    // rows after the band, which another band overwrites
    std::vector<float> scratch;  // of the kernel
    std::vector<const float*> in;
    std::vector<float*> out;
};

class InPlaceBlur {
public:
    InPlaceBlur(float* data, int rows, int cols, double sigma)
        : data_(data),
          rows_(rows),
          cols_(cols),
          rowWeights_(sigma, rows),
          colWeights_(sigma, cols),
          radius_(rowWeights_.radius()),
          savedRows_(radius_ + kBlurBlockRows) {
        const int numberOfBands =
            std::clamp(rows / (4 * radius_ + kBlurBlockRows), 1, omp_get_max_threads());
        bands_.resize(static_cast<std::size_t>(numberOfBands));
        const std::size_t saved =
            static_cast<std::size_t>(savedRows_) * static_cast<std::size_t>(cols);
        for (int b = 0; b < numberOfBands; ++b) {
            Band& band = bands_[static_cast<std::size_t>(b)];
            band.first = static_cast<int>(static_cast<std::ptrdiff_t>(rows) * b / numberOfBands);
            band.last =
                static_cast<int>(static_cast<std::ptrdiff_t>(rows) * (b + 1) / numberOfBands);
            band.above.resize(saved);
            if (band.last < rows) band.below.resize(saved);
            band.scratch.resize(detail::blurScratchSize(kBlurBlockRows, cols, colWeights_));
            band.in.resize(static_cast<std::size_t>(kBlurBlockRows + 2 * radius_));
            band.out.resize(kBlurBlockRows);
        }
    }

    void run() {
        const auto numberOfBands = static_cast<std::ptrdiff_t>(bands_.size());
        // All bands save their surroundings before any band writes.
#pragma omp parallel for schedule(static) if (numberOfBands > 1)
        for (std::ptrdiff_t b = 0; b < numberOfBands; ++b) {
            saveSurroundings(bands_[static_cast<std::size_t>(b)]);
        }
#pragma omp parallel for schedule(static) if (numberOfBands > 1)
        for (std::ptrdiff_t b = 0; b < numberOfBands; ++b) {
            blur(bands_[static_cast<std::size_t>(b)]);
        }
    }

private:
    float* row(int r) const {
        return data_ + static_cast<std::ptrdiff_t>(r) * cols_;
    }
    float* slot(std::vector<float>& rows, int r) const {
        return rows.data() + static_cast<std::ptrdiff_t>(r % savedRows_) * cols_;
    }
    void copyRow(int r, std::vector<float>& to) const {
        std::memcpy(slot(to, r), row(r), static_cast<std::size_t>(cols_) * sizeof(float));
    }

    void saveSurroundings(Band& band) const {
        for (int r = std::max(band.first - radius_, 0); r < band.first; ++r) copyRow(r, band.above);
        if (band.last == rows_) return;
        for (int r = band.last; r < band.last + radius_; ++r) copyRow(r, band.below);
    }

    void blur(Band& band) const {
        for (int begin = band.first; begin < band.last; begin += kBlurBlockRows) {
            const int end = std::min(begin + kBlurBlockRows, band.last);
            for (int r = begin - radius_; r < end + radius_; ++r) {
                const int source = mirrored(r, rows_);
                const bool overwritten = source < begin;
                const bool ofNextBand = source >= band.last;
                band.in[static_cast<std::size_t>(r - begin + radius_)] =
                    overwritten  ? slot(band.above, source)
                    : ofNextBand ? slot(band.below, source)
                                 : row(source);
            }
            for (int r = begin; r < end; ++r)
                band.out[static_cast<std::size_t>(r - begin)] = row(r);
            // This block's own input is read before it is overwritten; the next block's is not.
            for (int r = begin; r < end; ++r) copyRow(r, band.above);
            blur_({band.in.data(), band.out.data(), end - begin, cols_, &rowWeights_, &colWeights_,
                   band.scratch.data()});
        }
    }

    float* data_;
    int rows_;
    int cols_;
    GaussWeights rowWeights_;
    GaussWeights colWeights_;
    int radius_;
    int savedRows_;  // slots of a band's saved rows: row r lies in slot r % savedRows_
    BlurFunction* blur_ = detail::fastest(detail::blurKernels());
    std::vector<Band> bands_;
};

}  // namespace

void conv_in_place(float* data, int rows, int cols, double sigma) {
    if (rows < 0 || cols < 0) {
        throw std::invalid_argument("An image to blur cannot have a negative size.");
    }
    // Row numbers and radii are added and multiplied as int below.
    constexpr int kMost = 1 << 28;
    if (rows > kMost || cols > kMost) {
        throw std::invalid_argument(
            "An image to blur cannot have more than 268435456 rows or columns.");
    }
    if (!(sigma >= 0.0) || std::isinf(sigma)) {
        throw std::invalid_argument("The sigma of a blur must be finite and not negative.");
    }
    if (rows == 0 || cols == 0 || sigma == 0.0) return;
    InPlaceBlur(data, rows, cols, sigma).run();
}

}  // namespace marlo
