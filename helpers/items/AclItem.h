// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Result.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ItemPath.h"

/// One open item whose list is read or written, of either kind.
namespace morvane {

/// One item, held from the time when its path was looked up: whatever the path names later, what is
/// read and written is this.
class AclItem {
  public:
    /// The item at `path`; a symbolic link is followed where the rule allows it. An errno value if
    /// there is none.
    static Result<AclItem, int> open(const std::string& path, const PathRule& rule = {});
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

/// The kernel gives and takes no attribute that is longer.
inline constexpr std::size_t maxAttributeSize = 65536;

/// The value of an extended attribute of any length, or an errno value.
Result<std::vector<std::uint8_t>, int> readAttribute(const AclItem& item, const char* name);

}  // namespace morvane
