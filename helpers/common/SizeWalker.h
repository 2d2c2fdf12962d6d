#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

/// Adds up the sizes of what lies below a path.
///
///     SizeWalker walker([&](std::int64_t bytes, std::uint64_t items) { return host.goesOn(); });
///     for (const auto& path : paths)
///         sizes.push_back(walker.sizeOf(path));
///
/// A size is the sum of the bytes of the regular files (not of the blocks that they take). A file
/// with several hard links is counted once per walker, where it is met first. Symbolic links are
/// not followed, also not the path itself; other file systems are not entered. What cannot be read
/// counts as nothing and is remembered; what vanishes during the walk just counts as nothing.
///
/// Two threads walk; memory grows with the depth of the tree and the number of hard-linked files.
/// One thread uses a walker; cancel() may be called from any.
namespace morvane {

/// How often progress is told.
struct ProgressPace {
    using Clock = std::chrono::steady_clock;
    /// Often enough to look alive and to be stopped, too seldom to cost anything.
    std::chrono::milliseconds interval{250};
    std::function<Clock::time_point()> now = &Clock::now;
};

class SizeWalker {
  public:
    using Pace = ProgressPace;

    /// Told on the thread that called sizeOf(), about once in an interval while it runs: the bytes
    /// of this path so far, and the items that this walker has met. False stops the walk.
    using Progress = std::function<bool(std::int64_t bytes, std::uint64_t items)>;

    struct Unreadable {
        std::uint64_t count = 0;
        std::string first;
        /// The system's error number for the first.
        int error = 0;
    };

    struct FileId {
        std::uint64_t device;
        std::uint64_t inode;
        bool operator==(const FileId&) const = default;
    };

    explicit SizeWalker(Progress progress = {}, Pace pace = {});
    ~SizeWalker();

    /// In bytes. After a cancellation what was counted until then.
    std::int64_t sizeOf(const std::string& path);
    /// The same of an item that is open already, with O_PATH at least; `path` is for messages.
    std::int64_t sizeOf(const std::string& path, int item);

    /// Counts an item as unreadable. Any thread.
    void cannotRead(std::string path, int error);

    void cancel() { cancelled_ = true; }
    bool isCancelled() const { return cancelled_; }

    /// Files, folders, links and others met by all walks.
    std::uint64_t items() const { return items_; }
    /// What all walks could not read.
    const Unreadable& unreadable() const { return unreadable_; }

  private:
    friend class SizeWalk;
    struct Shared;

    std::int64_t sizeAt(const std::string& path, int folder, const char* name, int flags);
    /// The size, or 0 for a hard-linked file that was met before. Both threads.
    std::int64_t countedSize(const FileId& id, std::uint32_t links, std::uint64_t size);

    Progress progress_;
    const Pace pace_;
    std::atomic<bool> cancelled_ = false;
    std::atomic<std::uint64_t> items_ = 0;
    Unreadable unreadable_;
    std::unique_ptr<Shared> shared_;
};

}  // namespace morvane
