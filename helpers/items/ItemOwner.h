// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "OpenItem.h"

/// Changes the owner of an item.
namespace morvane {

/// Gives the item, whose status is `status`, to `owner` and `group`, and takes setuid and setgid
/// from it unless it is a folder: whether the kernel does so depends on the mode and on the file
/// system, and a list that is written later can make a bit effective that was not. Returns 0, or an
/// errno value if nothing was changed.
int changeOwner(const OpenItem& item, const struct stat& status, std::uint32_t owner,
                std::uint32_t group);
/// Reverts changeOwner(), but for setuid and setgid, which stay cleared.
void giveBack(const OpenItem& item, const struct stat& status);

/// 0 or an errno value.
int changeMode(const OpenItem& item, mode_t mode);

}  // namespace morvane
