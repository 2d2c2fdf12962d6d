// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace morvane {

/// Returns `reason`, and with it the question whether the one of `names` is meant that is most like
/// `word`, if any is like it.
std::string withQuestion(const std::string& reason, std::string_view word,
                         const std::vector<std::string_view>& names);

}  // namespace morvane
