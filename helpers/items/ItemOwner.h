// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "OpenItem.h"

/// Whom an item belongs to.
namespace morvane {

/// Gives the item, whose status is `status`, to `owner` and `group`, and takes setuid and setgid
/// from it unless it is a folder: whether the kernel does so depends on the mode and on the file
/// system, and a list written later can bring a bit to life that was without effect. 0, or an errno
/// value and the item belongs to whom it did.
int changeOwner(const OpenItem& item, const struct stat& status, std::uint32_t owner,
                std::uint32_t group);
/// Takes changeOwner() back, as far as it can be: setuid and setgid do not come back.
void giveBack(const OpenItem& item, const struct stat& status);

/// 0 or an errno value.
int changeMode(const OpenItem& item, mode_t mode);

}  // namespace morvane
