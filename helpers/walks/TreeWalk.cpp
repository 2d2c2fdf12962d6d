// SPDX-License-Identifier: MIT
#include "TreeWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

namespace morvane {
namespace {

/// How many failures a text names. These are kept however long their paths are.
constexpr std::size_t fewFailures = 5;
/// How many jobs may wait for an idle thread.
constexpr std::size_t maxJobs = 4;
/// With fewer files than this, sharing them costs more than it saves.
constexpr std::size_t manyFiles = 64;
/// Of so many folders on the way down each keeps the names of a whole chunk; below, of a short one.
constexpr std::size_t shallow = 64;
constexpr std::size_t shortChunk = 1024;

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NONBLOCK;
constexpr int powerlessFlags = O_PATH | O_DIRECTORY;

/// A folder to be walked, or only those of its files that have names.
struct Job {
    WalkedFolder folder;
    std::size_t depth = 0;
    std::string files = {};
};

struct Buffer {
    alignas(dirent64) char bytes[32 * 1024];
};

unsigned char typeOf(int folder, const dirent64& entry) {
    struct statx status;
    if (entry.d_type != DT_UNKNOWN || statusAt(folder, entry.d_name, status) != 0)
        return entry.d_type;
    return static_cast<unsigned char>(IFTODT(status.stx_mode));
}

}  // namespace

bool hasGone(int code) {
    return code == ENOENT || code == ELOOP || code == ENOTDIR || code == ENXIO || code == EXDEV;
}

bool TreeFolder::isCancelled() const {
    return walk_.isCancelled();
}

void TreeFolder::failed(const char* name, int code) const {
    walk_.failed(stack_.path(name), code, false);
}

class TreeWalk::Run {
  public:
    Run(TreeWalk& walk, TreeVisitor& visitor, WalkedFolder root)
        : walk_(walk), visitor_(visitor), root_(root.id) {
        jobs_.push_back({std::move(root)});
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    ~Run() {
        {
            const std::lock_guard lock(mutex_);
            finished_ = true;
        }
        changed_.notify_all();
        if (second_.joinable())
            second_.join();
    }

    void work() {
        const auto buffer = std::make_unique<Buffer>();
        std::unique_lock lock(mutex_);
        while (!walk_.isCancelled() && !finished_) {
            if (jobs_.empty()) {
                if (working_ == 0)
                    break;
                idle_ = true;
                changed_.wait(lock);
                idle_ = false;
                continue;
            }
            Job job = std::move(jobs_.front());
            jobs_.pop_front();
            ++working_;
            lock.unlock();
            walk(std::move(job), *buffer);
            lock.lock();
            --working_;
        }
        changed_.notify_all();
    }

  private:
    void walk(Job job, Buffer& buffer) {
        FolderStack stack(std::move(job.folder), job.depth);
        if (!job.files.empty())
            return visitor_.visitFiles(TreeFolder(walk_, stack), FileNames(job.files));
        while (!stack.isEmpty() && !walk_.isCancelled()) {
            const auto& top = stack.top();
            if (top.nextPending < top.pending.size())
                descend(stack);
            else if (!top.ended)
                read(stack, buffer);
            else
                stack.leave(
                    [&](const std::string& path, int code) { walk_.failed(path, code, true); });
        }
    }

    /// Reads a chunk of the folder's listing, and has its files visited.
    void read(FolderStack& stack, Buffer& buffer) {
        auto& folder = stack.top();
        const int fd = folder.descriptor.get();
        folder.pending.clear();
        folder.nextPending = 0;
        const bool isDeep = stack.size() > shallow;
        const auto count =
            syscall(SYS_getdents64, fd, buffer.bytes, isDeep ? shortChunk : sizeof buffer.bytes);
        if (count <= 0) {
            if (count < 0 && errno == EINTR)
                return;
            folder.ended = true;
            if (count < 0 && !hasGone(errno))
                walk_.failed(stack.path(), errno, true);
            return;
        }
        // The names of files are moved to the front, where entries have been read already.
        std::size_t fileBytes = 0;
        std::size_t files = 0;
        std::uint64_t items = 0;
        for (long at = 0; at < count;) {
            const auto* const entry = reinterpret_cast<const dirent64*>(buffer.bytes + at);
            at += entry->d_reclen;
            folder.position = entry->d_off;
            const char* const name = entry->d_name;
            if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
                continue;
            ++items;
            const auto type = typeOf(fd, *entry);
            const std::size_t length = std::strlen(name) + 1;
            if (type == DT_DIR) {
                folder.pending.insert(folder.pending.end(), name, name + length);
            } else if (type == DT_REG) {
                std::memmove(buffer.bytes + fileBytes, name, length);
                fileBytes += length;
                ++files;
            }
        }
        if (isDeep)
            folder.pending.shrink_to_fit();
        walk_.items_ += items;
        visitFiles(stack, {buffer.bytes, fileBytes}, files);
    }

    void visitFiles(const FolderStack& stack, std::string_view names, std::size_t count) {
        if (names.empty())
            return;
        if (count >= manyFiles && idle_.load(std::memory_order_relaxed)) {
            const auto half = names.find('\0', names.size() / 2) + 1;
            if (half != names.size() && shareFiles(stack, names.substr(half)))
                names = names.substr(0, half);
        }
        visitor_.visitFiles(TreeFolder(walk_, stack), FileNames(names));
    }

    void descend(FolderStack& stack) {
        auto& parent = stack.top();
        const char* const name = parent.pending.data() + parent.nextPending;
        parent.nextPending += std::strlen(name) + 1;
        auto folder = enter(stack, name);
        if (folder.descriptor && !share(folder, stack))
            stack.push(std::move(folder));
    }

    /// The sub-folder called `name`, visited and open for reading; not open if it is not to be
    /// entered.
    WalkedFolder enter(const FolderStack& stack, const char* name) {
        const int parent = stack.top().descriptor.get();
        // The item is not opened before this is known, as opening could access another file system.
        struct statx status;
        if (const int code = statusAt(parent, name, status); code != 0)
            return notEntered(stack, name, code);
        if (!S_ISDIR(status.stx_mode) || !idOf(status).isOnMountOf(root_))
            return {};
        if (stack.depth() >= maxDepth)
            return notEntered(stack, name, ENAMETOOLONG);
        auto descriptor = openBelow(parent, name, folderFlags);
        OpenItem item{descriptor.get(), {}};
        if (!descriptor && (errno == EACCES || errno == EPERM)) {
            // It can be written without being readable, and perhaps can be read then.
            descriptor = openBelow(parent, name, powerlessFlags);
            item = {descriptor.get(), "/proc/self/fd/" + std::to_string(descriptor.get())};
        }
        int code = descriptor ? statusAt(descriptor.get(), "", status) : errno;
        if (code != 0)
            return notEntered(stack, name, code);
        const auto id = idOf(status);
        if (!id.isOnMountOf(root_))
            return {};
        code = visitor_.visitFolder(TreeFolder(walk_, stack), item);
        if (!item.path.empty()) {
            descriptor = openBelow(descriptor.get(), ".", folderFlags);
            if (!descriptor && code == 0)
                code = errno;
        }
        if (code != 0)
            walk_.failed(stack.path(name), code, !descriptor);
        const TreeFolder in(walk_, stack);
        if (descriptor)
            return {std::move(descriptor), id, name, visitor_.partOf(in, name)};
        visitor_.missFolder(in, name);
        return {};
    }

    WalkedFolder notEntered(const FolderStack& stack, const char* name, int code) {
        if (!hasGone(code)) {
            walk_.failed(stack.path(name), code, true);
            visitor_.missFolder(TreeFolder(walk_, stack), name);
        }
        return {};
    }

    /// Hands the folder to a thread that has nothing to do, if there is one.
    bool share(WalkedFolder& folder, const FolderStack& stack) {
        if (!idle_.load(std::memory_order_relaxed))
            return false;
        auto path = stack.path(folder.name.c_str());
        const std::lock_guard lock(mutex_);
        if (!isHelped())
            return false;
        folder.name = std::move(path);
        jobs_.push_back({std::move(folder), stack.depth() + 1});
        changed_.notify_one();
        return true;
    }

    bool shareFiles(const FolderStack& stack, std::string_view names) {
        const auto& top = stack.top();
        FileDescriptor descriptor(fcntl(top.descriptor.get(), F_DUPFD_CLOEXEC, 0));
        if (!descriptor)
            return false;
        const std::lock_guard lock(mutex_);
        if (!isHelped())
            return false;
        jobs_.push_back({{std::move(descriptor), top.id, stack.path(), top.part},
                         stack.depth(),
                         std::string(names)});
        changed_.notify_one();
        return true;
    }

    /// Whether a second thread takes another job.
    bool isHelped() {
        if (jobs_.size() >= maxJobs)
            return false;
        if (second_.joinable())
            return true;
        idle_ = false;
        try {
            second_ = std::thread([this] { work(); });
        } catch (const std::system_error&) {
            return false;  // The walk goes on with one thread.
        }
        return true;
    }

    TreeWalk& walk_;
    TreeVisitor& visitor_;
    const ItemId root_;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Job> jobs_;
    std::size_t working_ = 0;
    bool finished_ = false;
    /// Whether a thread has nothing to do; true while the second has not begun.
    std::atomic<bool> idle_ = true;
    std::thread second_;
};

void TreeWalk::run(FileDescriptor folder, const std::string& path, TreeVisitor& visitor,
                   std::uint32_t part) {
    struct statx status;
    if (const int code = statusAt(folder.get(), "", status, true); code != 0)
        return failed(path, code, true);
    Run run(*this, visitor, {std::move(folder), idOf(status), path, part});
    run.work();
}

WalkFailures TreeWalk::failures() const {
    const std::lock_guard lock(mutex_);
    return failures_;
}

std::uint64_t TreeWalk::failureCount() const {
    const std::lock_guard lock(mutex_);
    return failures_.count;
}

void TreeWalk::failed(std::string path, int code, bool notReached) {
    const std::lock_guard lock(mutex_);
    ++failures_.count;
    failures_.notReached += notReached ? 1 : 0;
    auto& first = failures_.first;
    const bool isKept =
        first.size() < fewFailures ||
        (first.size() < maxFailuresKept && pathBytes_ + path.size() <= maxFailurePathBytes);
    const bool isOther = !first.empty() && first.front().code != code;
    if (!isKept && !(isOther && haveOneCode_))
        return;
    if (!isKept) {
        pathBytes_ -= first.back().path.size();
        first.pop_back();
    }
    haveOneCode_ &= !isOther;
    pathBytes_ += path.size();
    first.push_back({std::move(path), code});
}

std::vector<WalkFailure> WalkFailures::few() const {
    if (first.size() <= fewFailures)
        return first;
    std::vector<WalkFailure> few(first.begin(), first.begin() + fewFailures);
    const auto isOther = [&](const WalkFailure& each) { return each.code != few.front().code; };
    const auto other = std::find_if(first.begin(), first.end(), isOther);
    if (other != first.end() && std::none_of(few.begin(), few.end(), isOther))
        few.back() = *other;
    return few;
}

}  // namespace morvane
