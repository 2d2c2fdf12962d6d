// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Result.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "WalkStatus.h"

/// Holds the folders between the top of a tree and the one in which a thread of a walk is.
namespace morvane {

/// A folder on the way, and how far it has been read.
struct WalkedFolder {
    /// Empty while the stack has closed it. The folder on top is always open for reading.
    FileDescriptor descriptor;
    ItemId id;
    /// The whole path for the first of a stack.
    std::string name;
    /// Which part of the tree it is in, as the visitor numbers them.
    std::uint32_t part = 0;
    off_t position = 0;
    /// Names of sub-folders that are still to be entered, each ended by NUL.
    std::vector<char> pending = {};
    std::size_t nextPending = 0;
    bool ended = false;

    bool hasMore() const { return !ended || nextPending < pending.size(); }
};

/// Holds a bounded number of descriptors, however deep it gets: the folders in the middle are
/// closed, and opened again when the walk comes back to them. Meanwhile somebody may have moved
/// them. A folder is taken for the one that it was only if it is the same item on the same mount;
/// none is reached through a link.
class FolderStack {
  public:
    /// The first folders and the last ones stay open.
    static constexpr std::size_t heldFirst = 8;
    static constexpr std::size_t heldLast = 16;

    /// `depth` is how far below the top of the tree `first` is.
    FolderStack(WalkedFolder first, std::size_t depth);

    bool isEmpty() const { return folders_.empty(); }
    std::size_t size() const { return folders_.size(); }
    /// How far below the top of the tree the folder on top of the stack is.
    std::size_t depth() const { return depthOfFirst_ + folders_.size() - 1; }
    WalkedFolder& top() { return folders_.back(); }
    const WalkedFolder& top() const { return folders_.back(); }

    void push(WalkedFolder folder);

    /// Goes back to the nearest folder above that has more. One that cannot be found again is
    /// passed to `lost` with an errno value (ESTALE if another has its place), and left out.
    void leave(const std::function<void(const std::string& path, int code)>& lost);

    /// Of the folder on top, or of `name` in it: no longer than a path can be, and cut at the last
    /// folder that can be named otherwise.
    std::string path(const char* name = nullptr) const { return pathOf(folders_.size(), name); }

  private:
    std::string pathOf(std::size_t count, const char* name) const;
    int openAgain(std::size_t target, std::size_t from);
    /// Opens a folder of the stack by ".." from below, or by names from above.
    Result<FileDescriptor, int> climb(std::size_t target, std::size_t from) const;
    Result<FileDescriptor, int> descend(std::size_t target) const;

    const std::size_t depthOfFirst_;
    std::vector<WalkedFolder> folders_;
};

}  // namespace morvane
