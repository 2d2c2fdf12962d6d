// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Result.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ItemPath.h"

/// Holds an open item while its list, of either kind, is read or written.
namespace morvane {

/// An item that is held from the time when its path was looked up: whatever the path names later,
/// this item is read and written.
class AclItem {
  public:
    /// Opens the item at `path`, following a symbolic link if the rule allows it; an errno value if
    /// there is none.
    static Result<AclItem, int> open(const std::string& path, const PathRule& rule = {});
    /// `descriptor` may be one that gives no right to the item (O_PATH).
    explicit AclItem(FileDescriptor descriptor);
    /// Refers to an item that somebody else holds, and may be used for as long as that.
    static AclItem borrowed(int descriptor);

    /// A path to this very item, good in this process for as long as the item is held.
    const std::string& path() const { return path_; }

  private:
    FileDescriptor descriptor_;
    std::string path_;
};

/// The kernel reads and writes no attribute that is longer.
inline constexpr std::size_t maxAttributeSize = 65536;

/// The value of an extended attribute of any length, or an errno value.
Result<std::vector<std::uint8_t>, int> readAttribute(const AclItem& item, const char* name);

}  // namespace morvane
