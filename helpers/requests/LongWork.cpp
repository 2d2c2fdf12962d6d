// SPDX-License-Identifier: MIT
#include "LongWork.h"

#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace morvane {

const std::shared_ptr<LongWork>& LongWork::shared() {
    // Workers may use it until the process has ended.
    static const auto& work = *new std::shared_ptr<LongWork>(std::make_shared<LongWork>(Limits{}));
    return work;
}

void LongWork::run(const std::shared_ptr<LongWork>& work, Owner owner, std::function<void()> job) {
    Jobs fresh;
    fresh.push_back({owner, std::move(job)});
    Jobs dropped;  // what they hold goes outside the lock
    const std::lock_guard lock(work->mutex_);
    if (work->isStopped_)
        return;
    work->waiting_.splice(work->waiting_.end(), fresh);
    dropped = work->start(work);
}

void LongWork::stop() {
    Jobs dropped;  // as above
    const std::lock_guard lock(mutex_);
    isStopped_ = true;
    dropped.swap(waiting_);
}

/// The next job is one of the user with the fewest running jobs, and of that user's jobs the first.
LongWork::Jobs::iterator LongWork::next() {
    const auto running = [&](const auto& isMeant) {
        return std::count_if(running_.begin(), running_.end(),
                             [&](const Job& job) { return isMeant(job.owner); });
    };
    auto best = waiting_.end();
    std::ptrdiff_t fewest = limits_.ofOneUser;
    for (auto job = waiting_.begin(); job != waiting_.end() && fewest != 0; ++job) {
        const auto& owner = job->owner;
        const auto ofUser = running([&](const Owner& each) { return each.user == owner.user; });
        const auto isFree = [&] {
            return running([&](const Owner& each) { return each.client == owner.client; }) <
                   limits_.ofOneClient;
        };
        if (ofUser < fewest && isFree()) {
            best = job;
            fewest = ofUser;
        }
    }
    return best;
}

LongWork::Jobs LongWork::start(const std::shared_ptr<LongWork>& self) noexcept {
    Jobs dropped;
    while (running_.size() < limits_.all) {
        const auto job = next();
        if (job == waiting_.end())
            break;
        try {
            // The job gets a queue of its own, so that it runs on any worker.
            DispatchQueue::serialQueue(nullptr)->async([self, job] { perform(self, job); });
            running_.splice(running_.end(), waiting_, job);
        } catch (const std::exception&) {
            if (!running_.empty())
                break;  // The next job that ends starts it.
            dropped.splice(dropped.end(), waiting_, job);
        }
    }
    return dropped;
}

void LongWork::perform(const std::shared_ptr<LongWork>& self, Jobs::iterator job) noexcept {
    try {
        job->work();
    } catch (...) {
        // The request ends with its job.
    }
    job->work = nullptr;  // what it holds goes before its place does
    Jobs ended;
    Jobs dropped;
    const std::lock_guard lock(self->mutex_);
    ended.splice(ended.end(), self->running_, job);
    dropped = self->start(self);
}

}  // namespace morvane
