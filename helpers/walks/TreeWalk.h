// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/linux/FileDescriptor.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "FolderStack.h"
#include "OpenItem.h"

/// The one walk of everything below a folder.
namespace morvane {

/// How many failures of a walk are kept, each with its path, and how many bytes their paths may
/// have: as many as a person looks through. All are counted, but what a walk holds and its answer
/// carries must not grow with the tree, in which whoever has made it can have any number of items
/// fail, each with a path of megabytes.
inline constexpr std::size_t maxFailuresKept = 1000;
inline constexpr std::size_t maxFailurePathBytes = std::size_t{1} << 20;

struct WalkFailure {
    std::string path;
    /// An errno value.
    int code = 0;
};

/// What a walk could not deal with. Each item counts once.
struct WalkFailures {
    std::uint64_t count = 0;
    /// How many of them are folders below which not everything has been reached.
    std::uint64_t notReached = 0;
    /// The first ones. If all of these have the same code and a later one has another, it replaces
    /// the last.
    std::vector<WalkFailure> first;

    /// Those of them that a text names, by the same rule.
    std::vector<WalkFailure> few() const;
};

class TreeWalk;

/// An open folder of a walk, for its visitor.
class TreeFolder {
  public:
    TreeFolder(TreeWalk& walk, const FolderStack& stack) : walk_(walk), stack_(stack) {}

    int descriptor() const { return stack_.top().descriptor.get(); }
    const ItemId& id() const { return stack_.top().id; }
    /// 0 for the folder that the walk began with.
    std::size_t depth() const { return stack_.depth(); }
    /// As TreeVisitor::partOf() has told, and whoever began the walk.
    std::uint32_t part() const { return stack_.top().part; }
    bool isCancelled() const;
    /// Counts the item called `name` as a failure.
    void failed(const char* name, int code) const;

  private:
    TreeWalk& walk_;
    const FolderStack& stack_;
};

/// Names of files in one folder.
class FileNames {
  public:
    /// Each name is ended by NUL.
    explicit FileNames(std::string_view names) : names_(names) {}

    /// Stops when `visit` returns false.
    template <class Visit>
    void forEach(Visit visit) const {
        for (std::size_t at = 0; at < names_.size();) {
            const char* const name = names_.data() + at;
            if (!visit(name))
                return;
            at += std::string_view(name).size() + 1;
        }
    }

  private:
    const std::string_view names_;
};

/// What is done on a walk. Two threads call it at once.
class TreeVisitor {
  public:
    virtual ~TreeVisitor() = default;
    /// What the folder's listing calls regular files: by now the names may lead to anything.
    virtual void visitFiles(const TreeFolder& in, FileNames names) = 0;
    /// The sub-folder called `name`, before what is in it. An errno value counts it as a failure;
    /// it is entered all the same.
    virtual int visitFolder(const TreeFolder& in, const OpenItem& folder) {
        static_cast<void>(in);
        static_cast<void>(folder);
        return 0;
    }
    /// Which part of the tree the sub-folder called `name`, which is entered now, belongs to with
    /// what is in it: a number of the visitor's own.
    virtual std::uint32_t partOf(const TreeFolder& in, const char* name) {
        static_cast<void>(name);
        return in.part();
    }
    /// The sub-folder called `name` cannot be entered, which is counted as a failure.
    virtual void missFolder(const TreeFolder& in, const char* name) {
        static_cast<void>(in);
        static_cast<void>(name);
    }
};

/// Walks by descriptors, on two threads, the calling one and a second one for as long as there is
/// something to share. Links are not followed, and no other file system or mount is entered or even
/// waited for. What vanishes is not missed. A walk holds some 60 descriptors, however deep and wide
/// the tree; a folder that cannot be found again after its descriptor was let go, because it has
/// been moved, is counted as not reached. One thread uses a walk; cancel(), items() and failures()
/// may be called from any.
class TreeWalk {
  public:
    /// Deeper folders are not entered (ENAMETOOLONG): the way back takes memory. A path names at
    /// most 2,048.
    static constexpr std::size_t maxDepth = 16384;

    /// Visits everything below `folder`, which is open for reading and belongs to `part`. `path` is
    /// what failures are named by. May be called again, for another folder.
    void run(FileDescriptor folder, const std::string& path, TreeVisitor& visitor,
             std::uint32_t part = 0);

    /// Ends the walk soon, and every later one.
    void cancel() { cancelled_ = true; }
    bool isCancelled() const { return cancelled_; }

    /// Files, folders, links and others met by all walks.
    std::uint64_t items() const { return items_; }
    WalkFailures failures() const;
    /// How many they are.
    std::uint64_t failureCount() const;

    /// Counts an item of all walks as a failure.
    void failed(std::string path, int code, bool notReached);

  private:
    class Run;

    std::atomic<bool> cancelled_ = false;
    std::atomic<std::uint64_t> items_ = 0;
    mutable std::mutex mutex_;
    WalkFailures failures_;
    /// What is known of the failures that are kept.
    std::size_t pathBytes_ = 0;
    bool haveOneCode_ = true;
};

/// Whether an item could not be opened because it has gone, or because something else has its name.
bool hasGone(int code);

}  // namespace morvane
