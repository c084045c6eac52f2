// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "libmarlocuda/detail/memory.h"
#include "libmarlocuda/detail/stream.h"

namespace marlo::gpu {

/// What one thread works with on the GPU: a stream and memory, kept from call to call until the
/// thread ends. Made for the GPU that is the thread's at the first call, and anew when the host has
/// since made another one the thread's.
class Session {
public:
    /// @throws Failure if the GPU cannot be used.
    static Session& ofThisThread();
    /// After a failure: the next call begins with a new stream and memory.
    static void endOfThisThread() noexcept;

    Stream stream;
    WorkingMemory memory{stream};

private:
    explicit Session(int device) : device_(device) {}

    int device_;
};

}  // namespace marlo::gpu
