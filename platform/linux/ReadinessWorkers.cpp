// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <MorvaneOperation/platform/linux/ReadinessWorkers.h>
#include <sys/epoll.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <mutex>
#include <system_error>
#include <unordered_map>
#include <utility>

namespace morvane {
namespace {

/// While one worker runs a task, the next descriptor finds another one waiting.
constexpr unsigned waitersKept = 2;
constexpr int idleMilliseconds = 10000;

class ReadinessWorkers {
  public:
    explicit ReadinessWorkers(std::uint32_t events)
        : events_(events | EPOLLONESHOT), epoll_(epoll_create1(EPOLL_CLOEXEC)) {
        if (!epoll_)
            throw std::system_error(errno, std::generic_category(), "epoll_create1");
    }

    /// Returns false, and drops the task, if the descriptor cannot be waited for.
    bool add(int descriptor, ReadyTask task, bool once) {
        auto shared = std::make_shared<const ReadyTask>(std::move(task));
        Task dropped;
        {
            const std::lock_guard lock(mutex_);
            tasks_[descriptor] = {std::move(shared), once};
            if (!someoneWaits()) {
                dropped = take(descriptor);
                return false;
            }
        }
        if (arm(EPOLL_CTL_ADD, descriptor) || (errno == EEXIST && arm(EPOLL_CTL_MOD, descriptor)))
            return true;
        remove(descriptor);
        return false;
    }

    /// Has the kernel report one event, to one waiting thread.
    bool arm(int operation, int descriptor) {
        epoll_event event{};
        event.events = events_;
        event.data.fd = descriptor;
        return epoll_ctl(epoll_.get(), operation, descriptor, &event) == 0;
    }

    void remove(int descriptor) {
        epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
        Task dropped;  // outside the lock
        const std::lock_guard lock(mutex_);
        dropped = take(descriptor);
    }

  private:
    /// The task is shared, so that running it needs no memory.
    using Task = std::shared_ptr<const ReadyTask>;
    struct Entry {
        Task task;
        bool once = true;
    };

    /// Under the lock.
    Task take(int descriptor) {
        auto taken = tasks_.extract(descriptor);
        return taken ? std::move(taken.mapped().task) : nullptr;
    }

    /// Returns whether a thread waits for the tasks; starts one if necessary. To be called with the
    /// lock held.
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
            if (count < 0) {
                giveUp();
                return;
            }
            if (count == 0) {
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

    /// Called if the kernel cannot wait. The tasks that would never run are run here, without
    /// blocking; a descriptor that is watched may be ready when a thread waits again.
    void giveUp() {
        for (bool first = true;; first = false) {
            Task task;
            {
                const std::lock_guard lock(mutex_);
                if (first)
                    --waiters_;
                if (waiters_ != 0)
                    return;  // The thread that waits now runs the others.
                for (const auto& [descriptor, entry] : tasks_) {
                    if (!entry.once)
                        continue;
                    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
                    task = take(descriptor);
                    break;
                }
            }
            if (!task)
                return;
            (*task)(true);
        }
    }

    /// Runs the task; returns whether the caller has to go on waiting.
    bool run(int descriptor) {
        Task task;
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
                ++waiters_;  // This thread will wait again.
        }
        (*task)(alone);
        task = nullptr;  // What the task holds is destroyed without the lock.
        if (alone)
            return true;
        const std::lock_guard lock(mutex_);
        if (waiters_ >= waitersKept)
            return false;
        ++waiters_;
        return true;
    }

    const std::uint32_t events_;
    const FileDescriptor epoll_;
    std::mutex mutex_;
    /// The tasks by descriptor.
    std::unordered_map<int, Entry> tasks_;
    /// How many threads wait or are about to.
    unsigned waiters_ = 0;
};

/// A descriptor may be waited for in both directions at a time, so both are made as soon as one is
/// needed.
struct AllWorkers {
    ReadinessWorkers readers{EPOLLIN | EPOLLRDHUP};
    ReadinessWorkers writers{EPOLLOUT};
};

/// Returns null if no descriptor is left for them; the next call tries again.
AllWorkers* allWorkers() {
    try {
        static auto* const workers = new AllWorkers;  // outlives static objects
        return workers;
    } catch (const std::system_error&) {
        return nullptr;
    }
}

void add(ReadinessWorkers AllWorkers::*which, int descriptor, ReadyTask task, bool once) {
    auto* const workers = allWorkers();
    if (!workers || !(workers->*which).add(descriptor, std::move(task), once))
        throw std::system_error(EAGAIN, std::generic_category(), "waiting for a descriptor");
}

}  // namespace

void runWhenReadable(int descriptor, ReadyTask task) {
    add(&AllWorkers::readers, descriptor, std::move(task), true);
}

void runWhenWritable(int descriptor, ReadyTask task) {
    add(&AllWorkers::writers, descriptor, std::move(task), true);
}

void watchReadable(int descriptor, ReadyTask task) {
    add(&AllWorkers::readers, descriptor, std::move(task), false);
}

void watchAgain(int descriptor) {
    allWorkers()->readers.arm(EPOLL_CTL_MOD, descriptor);
}

void stopWatching(int descriptor) {
    if (auto* const workers = allWorkers())
        workers->readers.remove(descriptor);
}

}  // namespace morvane
