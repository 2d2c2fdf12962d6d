// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <sys/stat.h>

#include <cstdint>

/// Examines the items of a walk without waiting for a file system that it does not enter.
namespace morvane {

/// Identifies an item. The inode number alone would not suffice, as it is reused once the item is
/// gone.
struct ItemId {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    /// The mount through which the item was found; the same folder in another mount counts as
    /// another item.
    std::uint64_t mount = 0;
    std::int64_t bornSeconds = 0;
    std::uint32_t bornNanoseconds = 0;
    bool operator==(const ItemId&) const = default;
    bool isOnMountOf(const ItemId& other) const {
        return device == other.device && mount == other.mount;
    }
};

ItemId idOf(const struct statx& status);

/// The status of the item called `name` in `folder`, or of `folder` itself if the name is empty: 0
/// or an errno value (EXDEV for another mount that may not be looked at). Links are not followed
/// and automounts not started. Only what the kernel has cached is used, so that no file system is
/// asked that does not answer, unless `askFileSystem` is set.
int statusAt(int folder, const char* name, struct statx& status, bool askFileSystem = false);

/// Whether the kernel knows the sizes of what is in the open folder as well as its file system
/// does. That of a network mount may have changed elsewhere.
bool knowsSizes(int folder);

/// Opens `name` in `folder` with open()'s `flags`, without following a link and without going on to
/// another mount (EXDEV). Empty, with errno set, if that cannot be done.
FileDescriptor openBelow(int folder, const char* name, int flags);

}  // namespace morvane
