// SPDX-License-Identifier: BSD-3-Clause
#include "utilities/memory.h"

#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>

namespace marlo::bench {
namespace {

// A field of the kernel's report on this process, in bytes.
double statusBytes(std::string_view field) {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(field)) return 1024.0 * std::atof(line.c_str() + field.size());
    }
    return 0.0;
}

}  // namespace

double residentBytes() {
    return statusBytes("VmRSS:");
}

double peakBytes() {
    return statusBytes("VmHWM:");
}

void resetPeak() {
    std::ofstream("/proc/self/clear_refs") << 5;
}

}  // namespace marlo::bench
