// SPDX-License-Identifier: BSD-3-Clause
#include "ldah_tables/command_line.h"

#include <charconv>
#include <stdexcept>

namespace marlo::tools {

int wholeNumber(const std::string& option, const std::string& text) {
    int value = -1;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || rest != end || value < 0) {
        throw std::invalid_argument(option + " needs a whole number, not '" + text + "'");
    }
    return value;
}

}  // namespace marlo::tools
