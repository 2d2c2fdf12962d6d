// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

#include "AclEditor.h"

namespace morvane {

/// Has the user change `text` in the program that $VISUAL or $EDITOR names, or else in vi. Returns
/// nothing if the text was not changed.
std::optional<std::string> editedText(const std::string& text, Problem& problem);

}  // namespace morvane
