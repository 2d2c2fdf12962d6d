// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ItemPath.h"
#include "TreeWalk.h"

/// Adds up the sizes of what is at and below each of several paths.
///
///     SizeWalker walker(paths);
///     walker.run();
///     for (const auto& sum : walker.sums())
///         sizes.push_back(sum.bytes);
///
/// A size is the sum of the bytes of the regular files (not of the blocks that they take). A file
/// with several hard links is counted once within each path. Symbolic links are not followed, also
/// not the path itself; other file systems and mounts are not entered. What cannot be read counts
/// as nothing and is remembered; what vanishes during the walk just counts as nothing.
///
/// The paths are walked in their order. A folder that is right inside one of the others, as their
/// paths tell, is added up along with that one, so that a tree of paths is walked once.
///
/// Two threads walk; memory grows with the depth of the tree and the number of names that
/// hard-linked files have. One thread runs a walker; cancel() and what tells how far it is may be
/// called from any.
namespace morvane {

class SizeWalker final : private TreeVisitor {
  public:
    static constexpr std::int64_t unknown = -1;

    struct Sum {
        /// Unknown before it is begun, and where the item itself could not be read.
        std::int64_t bytes = unknown;
        bool isDone = false;
    };

    explicit SizeWalker(std::vector<std::string> paths, PathRule rule = {});

    /// Called once.
    void run();

    /// One for each path, in their order.
    std::vector<Sum> sums() const;

    void cancel() { walk_.cancel(); }
    bool isCancelled() const { return walk_.isCancelled(); }

    /// Files, folders, links and others met.
    std::uint64_t items() const { return ownItems_ + walk_.items(); }
    /// What could not be read.
    WalkFailures unreadable() const { return walk_.failures(); }

  private:
    using Index = std::uint32_t;

    /// How far the sum of a path is. What is below the top describes the walk that it is part of.
    struct State {
        std::atomic<std::int64_t> bytes = unknown;
        std::atomic<bool> isMet = false;
        bool isDone = false;
        /// The sum that counts everything that this one does; the walk begins with its own.
        Index within = 0;
        /// How far below the top of the walk its folder is.
        std::size_t depth = 0;
    };

    void walk(Index path);
    /// A sum that is neither begun nor done, of the sub-folder called `name`; `in.part()` if none
    /// is asked for.
    Index meet(const TreeFolder& in, const char* name);

    void visitFiles(const TreeFolder& in, FileNames names) override;
    std::uint32_t partOf(const TreeFolder& in, const char* name) override;
    void missFolder(const TreeFolder& in, const char* name) override;

    /// Adds to a sum and to those that it is within, up to `end`, which has the bytes already.
    void addBytes(std::int64_t bytes, Index sum, Index end);
    /// The same for one name of a hard-linked file, unless it has been met before.
    void addLinked(const struct statx& status, Index sum);
    /// The nearest sum that both are within.
    Index common(Index a, Index b) const;

    const std::vector<std::string> paths_;
    const PathRule rule_;
    std::unordered_map<std::string_view, Index> indexes_;
    std::vector<State> states_;
    /// No sum: the end of all that count something.
    const Index none_;

    TreeWalk walk_;
    std::atomic<std::uint64_t> ownItems_ = 0;
    /// Of what is being walked.
    bool asksFileSystem_ = false;
    mutable std::mutex mutex_;
    /// The sums of this walk.
    std::vector<Index> met_;
    /// In which sums a hard-linked file was met, by its inode: all are of one file system. Those
    /// that these are within are not noted, so that memory does not grow with how deep they are.
    std::unordered_multimap<std::uint64_t, Index> hardLinks_;
};

}  // namespace morvane
