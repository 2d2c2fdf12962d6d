#pragma once

#include <MorvaneOperation/InheritedAcl.h>

#include <cstdint>
#include <memory>

#include "AclPropagation.h"

/// POSIX lists for many items: made once into the form that the system takes.
namespace morvane {

/// What is there already is not written. An item that would lose its setgid bit is left alone
/// (EPERM), but for a file that gets another owner or group: it loses setuid and setgid before its
/// list is written.
std::unique_ptr<const InheritedWriter> inheritedListWriter(const InheritedLists& lists);

/// Gives the item, whose status is `status`, to `owner` and `group`, and takes setuid and setgid
/// from it unless it is a folder: whether the kernel does so depends on the mode and on the file
/// system, and a list written later can bring a bit to life that was without effect. 0, or an errno
/// value and the item belongs to whom it did.
int changeOwner(const OpenItem& item, const struct stat& status, std::uint32_t owner,
                std::uint32_t group);
/// Takes changeOwner() back, as far as it can be: setuid and setgid do not come back.
void giveBack(const OpenItem& item, const struct stat& status);

}  // namespace morvane
