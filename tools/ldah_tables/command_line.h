// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>

namespace marlo::tools {

/// The value of an option that counts something. @throws std::invalid_argument, with a sentence for
/// the user, unless `text` is a whole number and at least `least`.
int wholeNumber(const std::string& option, const std::string& text, int least);

}  // namespace marlo::tools
