// SPDX-License-Identifier: BSD-3-Clause
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr int kRows = 2000;

// A dynamic loop, appends in a critical section, a barrier: what this library's loops are made of.
long ordered() {
    std::vector<int> squares(kRows);
    std::vector<int> found;
#pragma omp parallel
    {
#pragma omp for schedule(dynamic, 8)
        for (int row = 0; row < kRows; ++row) {
            squares[static_cast<std::size_t>(row)] = row % 7;
        }
        // The barrier at the end of the first loop makes all squares visible here.
#pragma omp for schedule(dynamic, 8)
        for (int row = 0; row < kRows; ++row) {
            if (squares[static_cast<std::size_t>(kRows - 1 - row)] == 3) {
#pragma omp critical
                found.push_back(row);
            }
        }
    }
    return static_cast<long>(found.size());
}

long racing() {
    long sum = 0;
    // Static, so that every thread has its share however busy the machine is.
#pragma omp parallel for schedule(static)
    for (int row = 0; row < kRows; ++row) {
        sum += row;
    }
    return sum;
}

}  // namespace

int main(int argc, char** argv) {
    const bool race = argc == 2 && std::strcmp(argv[1], "racing") == 0;
    std::printf("%ld\n", race ? racing() : ordered());
    return 0;
}
