#include "SizeWalker.h"

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
#include <limits>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

namespace morvane {
namespace {

/// Folders that one thread holds open; of deeper trees the upper ones are closed and opened again.
constexpr std::size_t openFolders = 128;
/// Folders that wait for an idle thread.
constexpr std::size_t waitingFolders = 4;

constexpr int openFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

class Descriptor {
  public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() { close(); }
    int get() const { return fd_; }
    void close() {
        if (fd_ >= 0)
            ::close(std::exchange(fd_, -1));
    }

  private:
    int fd_;
};

using FileId = SizeWalker::FileId;

struct FileIdHash {
    std::size_t operator()(const FileId& id) const {
        return static_cast<std::size_t>((id.inode ^ (id.device << 48)) * 0x9e3779b97f4a7c15u);
    }
};

FileId idOf(const struct statx& status) {
    // Filled in: errno is not 0 after a failure.
    // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult)
    return {std::uint64_t{status.stx_dev_major} << 32 | status.stx_dev_minor, status.stx_ino};
}

/// 0 or the error number. Never starts an automount.
int statusOf(int folder, const char* name, struct statx& status, int flags = 0) {
    constexpr unsigned wanted = STATX_TYPE | STATX_SIZE | STATX_NLINK | STATX_INO;
    return ::statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | flags, wanted, &status) ==
                   0
               ? 0
               : errno;
}

std::int64_t sum(std::int64_t a, std::int64_t b) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    return a > most - b ? most : a + b;  // sparse files can claim more than there is
}

struct WalkedFolder {
    Descriptor descriptor;
    FileId id;
    std::string name;  // the whole path for the first of a stack
    off_t position = 0;
    /// Names of sub-folders that are still to be walked, each ended by NUL.
    std::vector<char> pending = {};
    std::size_t nextPending = 0;
    bool ended = false;
};

}  // namespace

struct SizeWalker::Shared {
    std::mutex mutex;
    std::unordered_set<FileId, FileIdHash> hardLinks;
};

/// The walk of one tree, by the calling thread and a second one, which begins when there is a
/// sub-folder to hand over.
class SizeWalk {
  public:
    SizeWalk(SizeWalker& walker, WalkedFolder root)
        : walker_(walker),
          device_(root.id.device),
          nextTelling_(walker.pace_.now() + walker.pace_.interval) {
        waiting_.push_back(std::move(root));
    }
    SizeWalk(const SizeWalk&) = delete;
    SizeWalk& operator=(const SizeWalk&) = delete;
    ~SizeWalk() {
        {
            const std::lock_guard lock(mutex_);
            finished_ = true;
        }
        changed_.notify_all();
        if (second_.joinable())
            second_.join();
    }

    std::int64_t run() {
        work(true);
        if (second_.joinable())
            second_.join();
        return bytes_;
    }

  private:
    using Stack = std::vector<WalkedFolder>;
    struct Buffer {
        alignas(dirent64) char bytes[64 * 1024];
    };

    void work(bool first);
    void walk(Stack& stack, Buffer& buffer, bool first);
    void readChunk(Stack& stack, Buffer& buffer);
    void descend(Stack& stack);
    void leave(Stack& stack);
    bool handOver(WalkedFolder& folder, const Stack& stack);
    void tell();
    void cannotRead(const Stack& stack, const char* name, int error) {
        if (error != ENOENT)
            walker_.cannotRead(pathOf(stack, name), error);
    }
    static std::string pathOf(const Stack& stack, const char* name);

    SizeWalker& walker_;
    const std::uint64_t device_;
    std::atomic<std::int64_t> bytes_ = 0;
    std::chrono::steady_clock::time_point nextTelling_;  // the first thread's

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<WalkedFolder> waiting_;
    std::size_t working_ = 0;
    bool finished_ = false;
    /// Whether a thread has nothing to do; true while the second has not begun.
    std::atomic<bool> idle_ = true;
    std::thread second_;
};

void SizeWalk::work(bool first) {
    const auto buffer = std::make_unique<Buffer>();
    std::unique_lock lock(mutex_);
    while (!walker_.cancelled_ && !finished_) {
        if (waiting_.empty()) {
            if (working_ == 0)
                break;
            idle_ = true;
            if (first) {
                changed_.wait_until(lock, nextTelling_);
                lock.unlock();
                tell();
                lock.lock();
            } else {
                changed_.wait(lock);
            }
            idle_ = false;
            continue;
        }
        Stack stack;
        stack.push_back(std::move(waiting_.front()));
        waiting_.pop_front();
        ++working_;
        lock.unlock();
        walk(stack, *buffer, first);
        lock.lock();
        --working_;
    }
    changed_.notify_all();
}

void SizeWalk::walk(Stack& stack, Buffer& buffer, bool first) {
    while (!stack.empty() && !walker_.cancelled_) {
        const auto& top = stack.back();
        if (top.nextPending < top.pending.size())
            descend(stack);
        else if (!top.ended)
            readChunk(stack, buffer);
        else
            leave(stack);
        if (first)
            tell();
    }
}

void SizeWalk::readChunk(Stack& stack, Buffer& buffer) {
    auto& folder = stack.back();
    const int fd = folder.descriptor.get();
    folder.pending.clear();
    folder.nextPending = 0;
    const auto count = ::syscall(SYS_getdents64, fd, buffer.bytes, sizeof buffer.bytes);
    if (count <= 0) {
        if (count < 0 && errno == EINTR)
            return;
        folder.ended = true;
        if (count < 0)
            cannotRead(stack, nullptr, errno);
        return;
    }
    std::int64_t bytes = 0;
    std::uint64_t items = 0;
    for (long at = 0; at < count && !walker_.cancelled_;) {
        const auto* const entry = reinterpret_cast<const dirent64*>(buffer.bytes + at);
        at += entry->d_reclen;
        folder.position = entry->d_off;
        const char* const name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
            continue;
        ++items;
        bool isFolder = entry->d_type == DT_DIR;
        if (entry->d_type == DT_REG || entry->d_type == DT_UNKNOWN) {
            struct statx status;
            if (const int error = statusOf(fd, name, status); error != 0) {
                cannotRead(stack, name, error);
                continue;
            }
            isFolder = S_ISDIR(status.stx_mode);
            if (S_ISREG(status.stx_mode) && idOf(status).device == device_)
                bytes = sum(bytes,
                            walker_.countedSize(idOf(status), status.stx_nlink, status.stx_size));
        }
        if (isFolder)
            folder.pending.insert(folder.pending.end(), name, name + std::strlen(name) + 1);
    }
    walker_.items_ += items;
    auto before = bytes_.load();
    while (!bytes_.compare_exchange_weak(before, sum(before, bytes))) {
    }
}

void SizeWalk::descend(Stack& stack) {
    auto& parent = stack.back();
    const char* const name = parent.pending.data() + parent.nextPending;
    parent.nextPending += std::strlen(name) + 1;
    struct statx status;
    if (const int error = statusOf(parent.descriptor.get(), name, status, AT_STATX_DONT_SYNC);
        error != 0) {
        cannotRead(stack, name, error);
        return;
    }
    // Not opened before this is known: opening could wake another file system.
    if (!S_ISDIR(status.stx_mode) || idOf(status).device != device_)
        return;
    WalkedFolder folder{Descriptor(::openat(parent.descriptor.get(), name, openFlags)),
                        idOf(status), name};
    if (folder.descriptor.get() < 0) {
        cannotRead(stack, name, errno);
        return;
    }
    if (handOver(folder, stack))
        return;
    stack.push_back(std::move(folder));
    if (stack.size() > openFolders)
        stack[stack.size() - 1 - openFolders].descriptor.close();
}

void SizeWalk::leave(Stack& stack) {
    const auto child = std::move(stack.back());
    stack.pop_back();
    if (stack.empty() || stack.back().descriptor.get() >= 0)
        return;
    auto& folder = stack.back();
    folder.descriptor = Descriptor(::openat(child.descriptor.get(), "..", openFlags));
    struct statx status;
    int error = folder.descriptor.get() < 0
                    ? errno
                    : statusOf(folder.descriptor.get(), "", status, AT_EMPTY_PATH);
    if (error == 0 && idOf(status) != folder.id)
        error = ESTALE;  // moved elsewhere meanwhile
    if (error == 0 && ::lseek(folder.descriptor.get(), folder.position, SEEK_SET) < 0)
        error = errno;
    if (error != 0) {
        folder.pending.clear();
        folder.nextPending = 0;
        folder.ended = true;
        // The way further up leads through this folder.
        if (folder.descriptor.get() < 0)
            folder.descriptor = Descriptor(::fcntl(child.descriptor.get(), F_DUPFD_CLOEXEC, 0));
        cannotRead(stack, nullptr, error);
    }
}

bool SizeWalk::handOver(WalkedFolder& folder, const Stack& stack) {
    if (!idle_.load(std::memory_order_relaxed))
        return false;
    auto path = pathOf(stack, folder.name.c_str());
    const std::lock_guard lock(mutex_);
    if (waiting_.size() >= waitingFolders)
        return false;
    if (!second_.joinable()) {
        try {
            second_ = std::thread([this] { work(false); });
        } catch (const std::system_error&) {
            idle_ = false;  // one thread has to do
            return false;
        }
        idle_ = false;
    }
    folder.name = std::move(path);
    waiting_.push_back(std::move(folder));
    changed_.notify_one();
    return true;
}

void SizeWalk::tell() {
    const auto now = walker_.pace_.now();
    if (now < nextTelling_)
        return;
    nextTelling_ = now + walker_.pace_.interval;
    if (walker_.progress_ && !walker_.progress_(bytes_, walker_.items_))
        walker_.cancel();
}

std::string SizeWalk::pathOf(const Stack& stack, const char* name) {
    std::string path = stack.front().name;
    const auto append = [&](const char* component) {
        if (!path.ends_with('/'))
            path += '/';
        path += component;
    };
    for (std::size_t i = 1; i < stack.size(); ++i)
        append(stack[i].name.c_str());
    if (name)
        append(name);
    return path;
}

SizeWalker::SizeWalker(Progress progress, Pace pace)
    : progress_(std::move(progress)), pace_(std::move(pace)), shared_(std::make_unique<Shared>()) {}

SizeWalker::~SizeWalker() = default;

std::int64_t SizeWalker::sizeOf(const std::string& path) {
    return sizeAt(path, AT_FDCWD, path.c_str(), 0);
}

std::int64_t SizeWalker::sizeOf(const std::string& path, int item) {
    return sizeAt(path, item, "", AT_EMPTY_PATH);
}

std::int64_t SizeWalker::sizeAt(const std::string& path, int folder, const char* name, int flags) {
    if (cancelled_)
        return 0;
    struct statx status;
    if (const int error = statusOf(folder, name, status, flags); error != 0) {
        cannotRead(path, error);
        return 0;
    }
    ++items_;
    if (S_ISREG(status.stx_mode))
        return countedSize(idOf(status), status.stx_nlink, status.stx_size);
    if (!S_ISDIR(status.stx_mode))
        return 0;
    WalkedFolder root{Descriptor(::openat(folder, *name ? name : ".", openFlags)), {}, path};
    int error = root.descriptor.get() < 0
                    ? errno
                    : statusOf(root.descriptor.get(), "", status, AT_EMPTY_PATH);
    if (error != 0) {
        cannotRead(path, error);
        return 0;
    }
    root.id = idOf(status);
    return SizeWalk(*this, std::move(root)).run();
}

std::int64_t SizeWalker::countedSize(const FileId& id, std::uint32_t links, std::uint64_t size) {
    if (links > 1) {
        const std::lock_guard lock(shared_->mutex);
        if (!shared_->hardLinks.insert(id).second)
            return 0;
    }
    return static_cast<std::int64_t>(size);
}

void SizeWalker::cannotRead(std::string path, int error) {
    const std::lock_guard lock(shared_->mutex);
    if (unreadable_.count++ == 0) {
        unreadable_.first = std::move(path);
        unreadable_.error = error;
    }
}

}  // namespace morvane
