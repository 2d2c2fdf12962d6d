#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <MorvaneOperation/platform/linux/ReadinessWorkers.h>
#include <sys/epoll.h>

#include <cerrno>
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
    /// Null if there is no descriptor left for it; asked again then.
    static ReadinessWorkers* shared() {
        try {
            static auto* const workers = new ReadinessWorkers;  // outlives static objects
            return workers;
        } catch (const std::system_error&) {
            return nullptr;
        }
    }

    /// Gives the task back if nothing can wait for the descriptor.
    ReadableTask add(int descriptor, ReadableTask task, bool once) {
        {
            const std::lock_guard lock(mutex_);
            tasks_[descriptor] = {std::move(task), once};
            if (!someoneWaits())
                return take(descriptor);
        }
        if (!arm(EPOLL_CTL_ADD, descriptor) && (errno != EEXIST || !arm(EPOLL_CTL_MOD, descriptor)))
            return remove(descriptor);
        return {};
    }

    /// For one event and one waiter.
    bool arm(int operation, int descriptor) {
        epoll_event event{};
        event.events = EPOLLIN | EPOLLRDHUP | EPOLLONESHOT;
        event.data.fd = descriptor;
        return epoll_ctl(epoll_.get(), operation, descriptor, &event) == 0;
    }

    /// Empty if it was not there any more.
    ReadableTask remove(int descriptor) {
        epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
        const std::lock_guard lock(mutex_);
        return take(descriptor);
    }

  private:
    struct Entry {
        ReadableTask task;
        bool once = true;
    };

    ReadinessWorkers() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
        if (!epoll_)
            throw std::system_error(errno, std::generic_category(), "epoll_create1");
    }

    /// Under the lock.
    ReadableTask take(int descriptor) {
        auto taken = tasks_.extract(descriptor);
        return taken ? std::move(taken.mapped().task) : ReadableTask();
    }

    /// Under the lock. Whether there is a waiter for the tasks, maybe a new one.
    bool someoneWaits() {
        if (waiters_ != 0 || tasks_.empty())
            return true;
        try {
            runOnWorker([this] { wait(); });
        } catch (const std::exception&) {
            return false;
        }
        ++waiters_;
        return true;
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
        ReadableTask task;
        bool alone = false;
        {
            const std::lock_guard lock(mutex_);
            const auto found = tasks_.find(descriptor);
            if (found == tasks_.end())
                return true;  // dropped
            if (found->second.once) {
                task = std::move(found->second.task);
                tasks_.erase(found);
            } else {
                task = found->second.task;
            }
            --waiters_;
            alone = !someoneWaits();
            if (alone)
                ++waiters_;  // this thread, in a moment
        }
        task(alone);
        task = nullptr;  // what it holds goes outside the lock
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
    auto* const workers = ReadinessWorkers::shared();
    if (!workers || workers->add(descriptor, std::move(task), true))
        throw std::system_error(EAGAIN, std::generic_category(), "waiting for a descriptor");
}

void watchReadable(int descriptor, ReadableTask task) {
    auto* const workers = ReadinessWorkers::shared();
    if (!workers || workers->add(descriptor, std::move(task), false))
        throw std::system_error(EAGAIN, std::generic_category(), "waiting for a descriptor");
}

void watchAgain(int descriptor) {
    ReadinessWorkers::shared()->arm(EPOLL_CTL_MOD, descriptor);
}

void stopWatching(int descriptor) {
    if (auto* const workers = ReadinessWorkers::shared())
        workers->remove(descriptor);
}

}  // namespace morvane
