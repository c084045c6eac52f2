// SPDX-License-Identifier: BSD-3-Clause
#pragma once

namespace marlo::bench {

/// Bytes of memory that this process has now.
double residentBytes();
/// The most that it has had at once since the start or since resetPeak().
double peakBytes();
/// From here on the peak is what is resident now. Where the kernel refuses, it stays the peak since
/// the start.
void resetPeak();

}  // namespace marlo::bench
