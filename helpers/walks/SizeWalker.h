// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
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
/// Two threads walk; memory grows with the depth of the tree and with the number of hard-linked
/// files in each path. One thread runs a walker; cancel() and what tells how far it is may be
/// called from any.
namespace morvane {

class SizeWalker final : private TreeVisitor {
  public:
    static constexpr std::int64_t unknown = -1;
    /// A folder that is inside so many of the others in one another begins a walk of its own: each
    /// of them notes which linked files it has counted.
    static constexpr std::size_t mostWithin = 16;

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

    /// A file with several names, by its inode: all that a walk meets are of one file system.
    struct CountedLink {
        std::uint64_t inode;
        Index sum;
        bool operator==(const CountedLink&) const = default;
    };
    struct CountedLinkHash {
        std::size_t operator()(const CountedLink& link) const noexcept {
            return std::hash<std::uint64_t>()(link.inode + (std::uint64_t{link.sum} << 40));
        }
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
    /// Which hard-linked files each sum has counted.
    std::unordered_set<CountedLink, CountedLinkHash> hardLinks_;
};

}  // namespace morvane
