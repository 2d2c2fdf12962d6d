// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

#include "AclEditor.h"

/// Files that this program writes for its user.
namespace morvane {

/// Writes all of it; false with errno set if that fails.
bool writeAll(int fd, std::string_view text);

/// Writes a file whole or not at all: what it held before stays until the new text is on the disk.
/// Anything but a regular file, such as a pipe, is simply written to.
Problem writeFile(const std::string& path, std::string_view text);

}  // namespace morvane
