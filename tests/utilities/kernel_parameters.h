// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "support/detail/kernel_list.h"

namespace marlo::detail {

/// GoogleTest prints the parameter of a failed test with this.
template <typename Function>
void PrintTo(const Kernel<Function>& kernel, std::ostream* out) {
    *out << kernel.name;
}

}  // namespace marlo::detail

namespace marlo::test {

/// The kernels of a table as parameters of a test.
template <typename Function>
auto everyKernel(detail::KernelList<Function> kernels) {
    return testing::ValuesIn(std::vector<detail::Kernel<Function>>(kernels.begin(), kernels.end()));
}

struct KernelName {
    template <typename Kernel>
    std::string operator()(const testing::TestParamInfo<Kernel>& info) const {
        return info.param.name;
    }
};

/// A test that runs for every kernel of a table; skips those that need another processor.
template <typename Function>
class KernelTest : public testing::TestWithParam<detail::Kernel<Function>> {
protected:
    void SetUp() override {
        if (!this->GetParam().isSupported()) {
            GTEST_SKIP() << this->GetParam().name << " needs another processor";
        }
    }
};

}  // namespace marlo::test
