#pragma once

#include <MorvaneOperation/PosixAcl.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>

#include <string>
#include <variant>

#include "ItemPath.h"

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

/// One item, held from the time when its path was looked up: whatever the path names later, what is
/// read and written is this.
class AclItem {
  public:
    /// The item at `path`; a symbolic link is followed where the rule allows it. An errno value if
    /// there is none.
    static std::variant<AclItem, int> open(const std::string& path, const PathRule& rule = {});
    /// `descriptor` may be one that gives no right to the item (O_PATH).
    explicit AclItem(FileDescriptor descriptor);
    /// An item that somebody else holds, for as long.
    static AclItem borrowed(int descriptor);

    /// A path to this very item, good in this process for as long as the item is held.
    const std::string& path() const { return path_; }

  private:
    FileDescriptor descriptor_;
    std::string path_;
};

/// The item's list. A file system without lists still has the three classes of the mode, which are
/// then the whole list.
std::variant<PosixAcl, AclReadFailure> readPosixAcl(const AclItem& item,
                                                    AttributeProbe probe = systemAttributeProbe);
/// The same for the item at `path`.
std::variant<PosixAcl, AclReadFailure> readPosixAcl(const std::string& path,
                                                    AttributeProbe probe = systemAttributeProbe);

}  // namespace morvane
