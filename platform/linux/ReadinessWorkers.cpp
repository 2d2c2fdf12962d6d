#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <MorvaneOperation/platform/linux/ReadinessWorkers.h>
#include <sys/epoll.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <system_error>
#include <unordered_map>
#include <utility>

namespace morvane {
namespace {

/// While one runs a task, the next descriptor finds another one waiting.
constexpr unsigned waitersKept = 2;
constexpr int idleMilliseconds = 10000;

class ReadinessWorkers {
  public:
    static ReadinessWorkers& shared() {
        static auto* const workers = new ReadinessWorkers;  // its threads outlive static objects
        return *workers;
    }

    void add(int descriptor, ReadableTask task, bool once) {
        {
            const std::lock_guard lock(mutex_);
            tasks_[descriptor] = {std::make_shared<const ReadableTask>(std::move(task)), once};
        }
        if (!arm(EPOLL_CTL_ADD, descriptor) &&
            (errno != EEXIST || !arm(EPOLL_CTL_MOD, descriptor))) {
            const int code = errno;
            drop(descriptor);
            throw std::system_error(code, std::generic_category(), "epoll_ctl");
        }
        try {
            ensureOneWaits();
        } catch (const std::exception&) {
            if (remove(descriptor))
                throw;
            // A waiter that was just coming back has taken it.
        }
    }

    /// For one event and one waiter.
    bool arm(int operation, int descriptor) {
        epoll_event event{};
        event.events = EPOLLIN | EPOLLRDHUP | EPOLLONESHOT;
        event.data.fd = descriptor;
        return epoll_ctl(epoll_.get(), operation, descriptor, &event) == 0;
    }

    /// Whether it was still there.
    bool remove(int descriptor) {
        epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
        return drop(descriptor);
    }

  private:
    struct Entry {
        std::shared_ptr<const ReadableTask> task;
        bool once = true;
    };

    ReadinessWorkers() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
        if (!epoll_)
            throw std::system_error(errno, std::generic_category(), "epoll_create1");
    }

    bool drop(int descriptor) {
        const std::lock_guard lock(mutex_);
        const auto dropped = tasks_.extract(descriptor);  // goes after the lock
        return !dropped.empty();
    }

    void ensureOneWaits() {
        {
            const std::lock_guard lock(mutex_);
            if (waiters_ != 0 || tasks_.empty())
                return;
            ++waiters_;
        }
        try {
            runOnWorker([this] { wait(); });
        } catch (...) {
            const std::lock_guard lock(mutex_);
            --waiters_;
            throw;
        }
    }

    void wait() {
        for (;;) {
            epoll_event event{};
            const int count = epoll_wait(epoll_.get(), &event, 1, idleMilliseconds);
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0) {
                const std::lock_guard lock(mutex_);
                if (waiters_ > 1 || tasks_.empty()) {
                    --waiters_;
                    return;
                }
                continue;
            }
            if (!run(event.data.fd))
                return;
        }
    }

    /// Whether the caller has to go on waiting.
    bool run(int descriptor) {
        std::shared_ptr<const ReadableTask> task;
        {
            const std::lock_guard lock(mutex_);
            const auto found = tasks_.find(descriptor);
            if (found == tasks_.end())
                return true;  // dropped
            task = found->second.task;
            if (found->second.once)
                tasks_.erase(found);
            --waiters_;
        }
        bool alone = false;
        try {
            ensureOneWaits();
        } catch (const std::exception&) {
            alone = true;
            const std::lock_guard lock(mutex_);
            ++waiters_;
        }
        (*task)(alone);
        task.reset();
        if (alone)
            return true;
        const std::lock_guard lock(mutex_);
        if (waiters_ >= waitersKept)
            return false;
        ++waiters_;
        return true;
    }

    const FileDescriptor epoll_;
    std::mutex mutex_;
    /// By descriptor.
    std::unordered_map<int, Entry> tasks_;
    /// Threads that wait, or are on their way to.
    unsigned waiters_ = 0;
};

}  // namespace

void runWhenReadable(int descriptor, ReadableTask task) {
    ReadinessWorkers::shared().add(descriptor, std::move(task), true);
}

void watchReadable(int descriptor, ReadableTask task) {
    ReadinessWorkers::shared().add(descriptor, std::move(task), false);
}

void watchAgain(int descriptor) {
    ReadinessWorkers::shared().arm(EPOLL_CTL_MOD, descriptor);
}

void stopWatching(int descriptor) {
    ReadinessWorkers::shared().remove(descriptor);
}

}  // namespace morvane
