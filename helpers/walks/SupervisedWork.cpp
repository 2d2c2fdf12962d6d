// SPDX-License-Identifier: MIT
#include "SupervisedWork.h"

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "WorkLeft.h"

namespace morvane {
namespace {

/// What the two threads know of the work.
struct Progress {
    std::mutex mutex;
    std::condition_variable ended;
    bool isDone = false;
    /// Whether it was left, and takes a place of its user.
    bool isCounted = false;
    std::exception_ptr failure;
};

}  // namespace

WorkEnd supervise(std::function<void()> work, const WorkSupervision& supervision) {
    const auto user = supervision.user;
    if (WorkLeft::shared().isFull(user))
        return WorkEnd::tooMuchLeft;
    const auto progress = std::make_shared<Progress>();
    std::thread thread;
    try {
        thread = std::thread([progress, user, work = std::move(work)]() mutable {
            std::exception_ptr failure;
            try {
                work();
            } catch (...) {
                failure = std::current_exception();
            }
            work = nullptr;  // This comes before anybody is notified that the work is done.
            const std::lock_guard lock(progress->mutex);
            progress->isDone = true;
            progress->failure = failure;
            if (progress->isCounted)
                WorkLeft::shared().remove(user);
            progress->ended.notify_one();
        });
    } catch (const std::system_error&) {
        return WorkEnd::noThread;
    }
    const auto isDone = [&] { return progress->isDone; };
    std::unique_lock lock(progress->mutex);
    while (!progress->ended.wait_for(lock, supervision.interval, isDone)) {
        lock.unlock();
        bool goesOn = true;
        try {
            goesOn = supervision.goesOn();
            if (!goesOn)
                supervision.cancel();
        } catch (const std::exception&) {
            goesOn = true;  // There is no memory to ask now; it is asked again later.
        }
        lock.lock();
        if (goesOn)
            continue;
        if (!progress->ended.wait_for(lock, supervision.grace, isDone)) {
            progress->isCounted = WorkLeft::shared().add(user);
            thread.detach();
            return WorkEnd::left;
        }
        break;
    }
    lock.unlock();
    thread.join();
    if (progress->failure)
        std::rethrow_exception(progress->failure);
    return WorkEnd::done;
}

}  // namespace morvane
