#pragma once

#include <MorvaneOperation/InheritedAcl.h>

#include <cstdint>
#include <memory>

#include "AclPropagation.h"

/// POSIX lists for many items: made once into the form that the system takes.
namespace morvane {

/// What is there already is not written. An item that would lose its setgid bit is left alone
/// (EPERM), but for a file that gets another owner or group: the system takes setuid and setgid
/// from it.
std::unique_ptr<const InheritedWriter> inheritedListWriter(const InheritedLists& lists);

/// 0 or an errno value.
int writeOwner(const OpenItem& item, std::uint32_t owner, std::uint32_t group);

}  // namespace morvane
