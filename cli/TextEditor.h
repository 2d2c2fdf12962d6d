// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

#include "AclEditor.h"

namespace morvane {

/// Has the user change `text` in the program that $VISUAL or $EDITOR names, vi without one. Empty
/// if it was left as it is.
std::optional<std::string> editedText(const std::string& text, Problem& problem);

}  // namespace morvane
