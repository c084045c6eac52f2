// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "support/system.h"

namespace marlo::detail {

/// Calls `call.operator()<P, N>()` for rows of `cols` bytes. Returns false, without a call, for a
/// width that is not 1, 2, 4, 8 or 16 64-bit words and for a way of counting bits that there is
/// not.
template <typename Call>
bool withHammingInstance(system::popcnt_t popcnt, int cols, Call&& call) {
    const auto withWidth = [&]<system::popcnt_t P>() {
        switch (cols) {
            case 8:
                call.template operator()<P, 1>();
                return true;
            case 16:
                call.template operator()<P, 2>();
                return true;
            case 32:
                call.template operator()<P, 4>();
                return true;
            case 64:
                call.template operator()<P, 8>();
                return true;
            case 128:
                call.template operator()<P, 16>();
                return true;
            default:
                return false;
        }
    };
    switch (popcnt) {
        case system::PopcntNone:
            return withWidth.template operator()<system::PopcntNone>();
        case system::PopcntX86:
            return withWidth.template operator()<system::PopcntX86>();
        case system::PopcntArm:
            return withWidth.template operator()<system::PopcntArm>();
    }
    return false;
}

}  // namespace marlo::detail
