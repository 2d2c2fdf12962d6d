// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_set>

#include "ItemPath.h"
#include "TreeWalk.h"

/// Adds up the sizes of what is at and below a path.
///
///     SizeWalker walker;
///     for (const auto& path : paths)
///         sizes.push_back(walker.add(path) ? walker.take() : unknown);
///
/// A size is the sum of the bytes of the regular files (not of the blocks that they take). A file
/// with several hard links is counted once, where it is met first, until the sum is taken. Symbolic
/// links are not followed, also not the path itself; other file systems and mounts are not entered.
/// What cannot be read counts as nothing and is remembered; what vanishes during the walk just
/// counts as nothing.
///
/// Two threads walk; memory grows with the depth of the tree and the number of hard-linked files.
/// One thread uses a walker; cancel() and what tells how far it is may be called from any.
namespace morvane {

class SizeWalker final : private TreeVisitor {
  public:
    /// False if the item itself could not be read, so that nothing is known of its size.
    bool add(const std::string& path, const PathRule& rule = {});

    /// The bytes so far.
    std::int64_t bytes() const { return bytes_; }
    /// The same, and begins a new sum. Not while add() runs.
    std::int64_t take();

    void cancel() { walk_.cancel(); }
    bool isCancelled() const { return walk_.isCancelled(); }

    /// Files, folders, links and others met for all sums.
    std::uint64_t items() const { return ownItems_ + walk_.items(); }
    /// What could not be read for all sums.
    WalkFailures unreadable() const { return walk_.failures(); }

  private:
    void visitFiles(const TreeFolder& in, FileNames names) override;
    void addBytes(std::int64_t bytes);
    /// The size, or 0 for a hard-linked file that was met before.
    std::int64_t countedSize(const struct statx& status);

    TreeWalk walk_;
    std::atomic<std::int64_t> bytes_ = 0;
    std::atomic<std::uint64_t> ownItems_ = 0;
    /// Of what is being walked.
    bool asksFileSystem_ = false;
    std::mutex mutex_;
    /// By their inodes: all are of one file system.
    std::unordered_set<std::uint64_t> hardLinks_;
};

}  // namespace morvane
