// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// In which order the CPU runs the blocks of a kernel, and in each the threads, and how many blocks
/// share work that any number may. No result may depend on it, as none may depend on what a GPU
/// does first.
namespace marlo::gpu {

struct CpuOrder {
    enum Kind { Forward, Backward, Shuffled };
    static inline Kind kind = Forward;
    /// Of a kernel that loops over its items.
    static inline long long mostBlocks = 4096;

    /// The i-th of `count` to run.
    static int place(int i, int count) {
        if (kind == Backward) return count - 1 - i;
        if (kind == Shuffled) {
            // A step that has no divisor in common with the count reaches every place once.
            long step = 0x9e3779b1L % count | 1L;
            while (commonDivisor(step, count) != 1) step += 2;
            return static_cast<int>((static_cast<long>(i) * step + count / 3) % count);
        }
        return i;
    }

private:
    static long commonDivisor(long a, long b) { return b == 0 ? a : commonDivisor(b, a % b); }
};

}  // namespace marlo::gpu
