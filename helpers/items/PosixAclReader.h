#pragma once

#include <MorvaneOperation/PosixAcl.h>

#include <string>
#include <variant>

#include "AclItem.h"

/// Reads the access-control list of a real item.
namespace morvane {

/// Why a list could not be read: an errno value, and for an item whose list is an allow/deny list,
/// true (the value is then EOPNOTSUPP).
struct AclReadFailure {
    int code = 0;
    bool otherKindOfList = false;
    bool operator==(const AclReadFailure&) const = default;
};

/// Whether the item at `path` has an extended attribute: 0 if it has, otherwise the errno value.
using AttributeProbe = int (*)(const char* path, const char* name);
int systemAttributeProbe(const char* path, const char* name);

/// The item's list. A file system without lists still has the three classes of the mode, which are
/// then the whole list.
std::variant<PosixAcl, AclReadFailure> readPosixAcl(const AclItem& item,
                                                    AttributeProbe probe = systemAttributeProbe);
/// The same for the item at `path`.
std::variant<PosixAcl, AclReadFailure> readPosixAcl(const std::string& path,
                                                    AttributeProbe probe = systemAttributeProbe);

}  // namespace morvane
