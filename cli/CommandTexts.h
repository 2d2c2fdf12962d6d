// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// The texts that the build makes of the table of commands: the completion of three shells, and the
/// lists of the manual.
namespace morvane {

std::string bashCompletion();
std::string zshCompletion();
std::string fishCompletion();

/// The manual with its lists of options and of an edit's commands, in place of the lines
/// `.\" options` and `.\" edit commands` of `text`.
std::string manualWithLists(const std::string& text);

}  // namespace morvane
