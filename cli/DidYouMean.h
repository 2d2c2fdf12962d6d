// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace morvane {

/// `reason`, with a question for the one of `names` that is most like `word`, if one is like it at
/// all.
std::string withQuestion(const std::string& reason, std::string_view word,
                         const std::vector<std::string_view>& names);

}  // namespace morvane
