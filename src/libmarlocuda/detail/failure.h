// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <stdexcept>
#include <string>

namespace marlo::gpu {

/// What the entry points return.
enum Status : int {
    Success = 0,
    NoUsableGpu = 1,
    NotEnoughResources = 2,
    ProcessingError = 3,
    InvalidArgument = 4,
};

/// Thrown by everything below the entry points, which turn it into its status.
class Failure : public std::runtime_error {
public:
    Failure(Status status, const std::string& reason)
        : std::runtime_error(reason), status_(status) {}
    [[nodiscard]] Status status() const { return status_; }

private:
    Status status_;
};

}  // namespace marlo::gpu
