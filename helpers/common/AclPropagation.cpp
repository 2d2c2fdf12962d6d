#include "AclPropagation.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <system_error>
#include <thread>

namespace morvane {
namespace {

constexpr std::size_t maxFailuresKept = 5;
/// The bytes of names that are handed over together.
constexpr std::size_t batchBytes = std::size_t{8} * 1024;
/// Of more than so many jobs that wait, files are dealt with where they are met.
constexpr std::size_t manyJobs = 256;

constexpr int fileFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
constexpr int powerlessFlags = O_PATH | O_NOFOLLOW | O_CLOEXEC;

struct Folder {
    FileDescriptor descriptor;
    std::string path;
    /// Of what is in it.
    std::size_t level = 0;
};

/// A sub-folder, or files, of one folder: their names, each ended by NUL.
struct Job {
    std::shared_ptr<Folder> in;
    std::vector<char> names;
    bool isFolder = false;
};

}  // namespace

class AclPropagation::Walk {
  public:
    Walk(AclPropagation& propagation, const std::shared_ptr<Folder>& root, dev_t device)
        : p_(propagation),
          device_(device),
          nextTelling_(std::chrono::steady_clock::now() + propagation.interval_) {
        list(root, false);
    }

    void run() {
        tell();
        std::thread second;
        try {
            second = std::thread([this] { work(false); });
        } catch (const std::system_error&) {
            // One thread has to do.
        }
        work(true);
        if (second.joinable())
            second.join();
    }

  private:
    void work(bool first) {
        std::unique_lock lock(mutex_);
        while (!p_.cancelled_) {
            if (jobs_.empty()) {
                if (working_ == 0)
                    break;
                if (first) {
                    changed_.wait_until(lock, nextTelling_);
                    lock.unlock();
                    tell();
                    lock.lock();
                } else {
                    changed_.wait(lock);
                }
                continue;
            }
            // The last first: then few folders are open at a time.
            const Job job = std::move(jobs_.back());
            jobs_.pop_back();
            ++working_;
            lock.unlock();
            if (job.isFolder)
                enter(*job.in, job.names.data(), first);
            else
                writeFiles(*job.in, job.names, first);
            lock.lock();
            --working_;
        }
        changed_.notify_all();
    }

    void push(Job job) {
        const std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
        changed_.notify_one();
    }

    bool tooMany() {
        const std::lock_guard lock(mutex_);
        return jobs_.size() > manyJobs;
    }

    /// Hands over what is in the folder.
    void list(const std::shared_ptr<Folder>& folder, bool first) {
        alignas(dirent64) char buffer[32768];
        std::vector<char> files;
        const auto handOver = [&] {
            if (files.empty())
                return;
            if (tooMany())
                writeFiles(*folder, files, first);
            else
                push({folder, files, false});
            files.clear();
        };
        while (!p_.cancelled_) {
            const auto count =
                syscall(SYS_getdents64, folder->descriptor.get(), buffer, sizeof buffer);
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                notFound(*folder, nullptr, errno);
            if (count <= 0)
                break;
            for (long at = 0; at < count;) {
                const auto* const entry = reinterpret_cast<const dirent64*>(buffer + at);
                at += entry->d_reclen;
                const char* const name = entry->d_name;
                if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
                    continue;
                const auto type = typeOf(*folder, name, entry->d_type);
                const char* const end = name + std::strlen(name) + 1;
                if (type == DT_DIR)
                    push({folder, {name, end}, true});
                if (type != DT_REG)
                    continue;
                files.insert(files.end(), name, end);
                if (files.size() > batchBytes)
                    handOver();
            }
        }
        handOver();
    }

    unsigned char typeOf(const Folder& folder, const char* name, unsigned char type) {
        if (type != DT_UNKNOWN)
            return type;
        struct stat status {};
        if (fstatat(folder.descriptor.get(), name, &status,
                    AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0)
            return type;
        return static_cast<unsigned char>(IFTODT(status.st_mode));
    }

    /// Opens the item with `flags`, or so that it can be written without being readable.
    FileDescriptor open(const Folder& in, const char* name, int flags, OpenItem& item) {
        FileDescriptor opened(openat(in.descriptor.get(), name, flags));
        if (!opened && (errno == EACCES || errno == EPERM)) {
            opened = FileDescriptor(openat(in.descriptor.get(), name, powerlessFlags));
            if (opened)
                item.path = "/proc/self/fd/" + std::to_string(opened.get());
        }
        item.descriptor = opened.get();
        return opened;
    }

    void enter(const Folder& in, const char* name, bool first) {
        // Not opened before this is known: opening could wake another file system.
        struct stat status {};
        if (fstatat(in.descriptor.get(), name, &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0)
            return notFound(in, name, errno);
        if (!S_ISDIR(status.st_mode) || status.st_dev != device_)
            return;
        OpenItem item;
        auto descriptor = open(in, name, folderFlags, item);
        if (!descriptor || fstat(item.descriptor, &status) != 0)
            return notFound(in, name, errno);
        if (!S_ISDIR(status.st_mode) || status.st_dev != device_)
            return;
        const int code = p_.writer_->write(item, status, in.level);
        ++p_.items_;
        if (code != 0)
            failed(in, name, code);
        if (!item.path.empty()) {
            // With its new list it can perhaps be read.
            descriptor = FileDescriptor(openat(descriptor.get(), ".", folderFlags));
            if (!descriptor)
                return notFound(in, name, errno);
        }
        const auto folder = std::make_shared<Folder>();
        folder->descriptor = std::move(descriptor);
        folder->path = pathOf(in, name);
        folder->level = std::min(in.level + 1, InheritedWriter::levels - 1);
        list(folder, first);
        if (first)
            tell();
    }

    void writeFiles(const Folder& in, const std::vector<char>& names, bool first) {
        for (const char* name = names.data(); name != names.data() + names.size() && !p_.cancelled_;
             name += std::strlen(name) + 1) {
            writeFile(in, name);
            if (first)
                tell();
        }
    }

    void writeFile(const Folder& in, const char* name) {
        OpenItem item;
        const auto descriptor = open(in, name, fileFlags, item);
        struct stat status {};
        if (!descriptor || fstat(item.descriptor, &status) != 0)
            return notFound(in, name, errno);
        if (!S_ISREG(status.st_mode) || status.st_dev != device_)
            return;
        ++p_.items_;
        if (p_.onBehalfOf_ && status.st_nlink > 1 && status.st_uid != *p_.onBehalfOf_)
            return failed(in, name, EMLINK);
        if (const int code = p_.writer_->write(item, status, in.level))
            failed(in, name, code);
    }

    void tell() {
        const auto now = std::chrono::steady_clock::now();
        if (now < nextTelling_)
            return;
        nextTelling_ = now + p_.interval_;
        if (p_.progress_ && !p_.progress_(p_.items_))
            p_.cancel();
    }

    static std::string pathOf(const Folder& in, const char* name) {
        return name ? (in.path.ends_with('/') ? in.path : in.path + '/') + name : in.path;
    }

    void notFound(const Folder& in, const char* name, int code) {
        // It has gone, or something else has its name.
        if (code != ENOENT && code != ELOOP && code != ENOTDIR && code != ENXIO)
            failed(in, name, code);
    }

    void failed(const Folder& in, const char* name, int code) {
        const std::lock_guard lock(mutex_);
        if (p_.failureCount_++ < maxFailuresKept)
            p_.firstFailures_.push_back({pathOf(in, name), code});
    }

    AclPropagation& p_;
    const dev_t device_;
    std::chrono::steady_clock::time_point nextTelling_;  // the first thread's

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Job> jobs_;
    std::size_t working_ = 0;
};

AclPropagation::AclPropagation(std::unique_ptr<const InheritedWriter> writer,
                               std::optional<std::uint32_t> onBehalfOf, Progress progress,
                               std::chrono::milliseconds interval)
    : progress_(std::move(progress)),
      interval_(interval),
      writer_(std::move(writer)),
      onBehalfOf_(onBehalfOf) {}

AclPropagation::~AclPropagation() = default;

void AclPropagation::run(FileDescriptor folder, std::string path) {
    struct stat status {};
    if (fstat(folder.get(), &status) != 0) {
        ++failureCount_;
        firstFailures_.push_back({std::move(path), errno});
        return;
    }
    const auto root = std::make_shared<Folder>();
    root->descriptor = std::move(folder);
    root->path = std::move(path);
    Walk(*this, root, status.st_dev).run();
}

}  // namespace morvane
