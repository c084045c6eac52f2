// SPDX-License-Identifier: BSD-3-Clause
#include "ldah_tables/command_line.h"

#include <charconv>
#include <stdexcept>

namespace marlo::tools {

int wholeNumber(const std::string& option, const std::string& text, int least) {
    int value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || rest != end || value < least) {
        throw std::invalid_argument(option + " needs a whole number, " + std::to_string(least) +
                                    " or more, not '" + text + "'");
    }
    return value;
}

}  // namespace marlo::tools
