// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/InheritedAcl.h>

#include <memory>

#include "AclPropagation.h"

/// POSIX lists for many items: made once into the form that the system takes.
namespace morvane {

/// What is there already is not written. An item that would lose its setgid bit is left alone
/// (EPERM), but for a file that gets another owner or group: it loses setuid and setgid before its
/// list is written.
std::unique_ptr<const InheritedWriter> inheritedListWriter(const InheritedLists& lists);

}  // namespace morvane
