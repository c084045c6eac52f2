// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <vector>

#include "support/log.h"

namespace marlo::test {

/// Keeps every line that the library's log writes while this object lives.
class CapturedLog {
public:
    CapturedLog();
    ~CapturedLog();
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    /// The lines so far in full: "LEVEL [FILE:LINE] CATEGORY|TEXT", "[]" where there is no source
    /// position.
    [[nodiscard]] std::vector<std::string> lines() const { return lines_; }

private:
    std::vector<std::string> lines_;
};

}  // namespace marlo::test
