// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "support/system.h"

namespace marlo::detail {

/// Calls `call.operator()<P, N>()` for rows of `cols` bytes. Does nothing for a width that is not
/// 1, 2, 4, 8 or 16 64-bit words and for a way of counting bits that there is not.
template <typename Call>
void withHammingInstance(system::popcnt_t popcnt, int cols, Call&& call) {
    const auto withWidth = [&]<system::popcnt_t P>() {
        switch (cols) {
            case 8:
                call.template operator()<P, 1>();
                break;
            case 16:
                call.template operator()<P, 2>();
                break;
            case 32:
                call.template operator()<P, 4>();
                break;
            case 64:
                call.template operator()<P, 8>();
                break;
            case 128:
                call.template operator()<P, 16>();
                break;
            default:
                break;
        }
    };
    switch (popcnt) {
        case system::PopcntNone:
            withWidth.template operator()<system::PopcntNone>();
            break;
        case system::PopcntX86:
            withWidth.template operator()<system::PopcntX86>();
            break;
        case system::PopcntArm:
            withWidth.template operator()<system::PopcntArm>();
            break;
    }
}

}  // namespace marlo::detail
