// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/PosixAcl.h>

#include <string>

#include "AclItem.h"

/// Reads the access-control list of a real item.
namespace morvane {

/// Whether the item at `path` has an extended attribute: 0 if it has, otherwise the errno value.
using AttributeProbe = int (*)(const char* path, const char* name);
int systemAttributeProbe(const char* path, const char* name);

/// The item's list. A file system without lists still has the three classes of the mode, which are
/// then the whole list. Otherwise an errno value, EOPNOTSUPP where the item has an allow/deny list.
Result<PosixAcl, int> readPosixAcl(const AclItem& item,
                                   AttributeProbe probe = systemAttributeProbe);
/// The same for the item at `path`.
Result<PosixAcl, int> readPosixAcl(const std::string& path,
                                   AttributeProbe probe = systemAttributeProbe);

}  // namespace morvane
