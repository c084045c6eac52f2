// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libfeatures/features_export.h"

namespace marlo {

/// Keeps the number of OpenMP threads of the calling thread over a scope: the number of threads
/// that its next parallel region may have when the guard is made is set again when it ends.
///
///     {
///         const ThreadCountGuard guard;
///         matches = matcher.match(query, train);  // sets the number of threads
///     }
///
/// For calls that change the setting, such as DescMatcherDistFrac::match(). It holds for the OpenMP
/// runtime that this library was linked with, and for the thread that makes the guard.
class FEATURES_EXPORT ThreadCountGuard {
public:
    ThreadCountGuard() noexcept;
    ~ThreadCountGuard();
    ThreadCountGuard(const ThreadCountGuard&) = delete;
    ThreadCountGuard& operator=(const ThreadCountGuard&) = delete;

private:
    int threadCount_;
};

}  // namespace marlo
