#include "LongWork.h"

#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>

#include <exception>
#include <utility>

namespace morvane {
namespace {

template <class Key>
unsigned countOf(const std::map<Key, unsigned>& counts, const Key& key) {
    const auto found = counts.find(key);
    return found == counts.end() ? 0 : found->second;
}

template <class Key>
void countDown(std::map<Key, unsigned>& counts, const Key& key) {
    const auto found = counts.find(key);
    if (--found->second == 0)
        counts.erase(found);
}

}  // namespace

const std::shared_ptr<LongWork>& LongWork::shared() {
    // Workers may use it until the process has ended.
    static const auto& work = *new std::shared_ptr<LongWork>(std::make_shared<LongWork>(Limits{}));
    return work;
}

void LongWork::run(const std::shared_ptr<LongWork>& work, Owner owner, std::function<void()> job) {
    const std::lock_guard lock(work->mutex_);
    if (work->isStopped_)
        return;
    work->waiting_.push_back({owner, std::move(job)});
    work->start(work);
}

void LongWork::stop() {
    std::list<Job> dropped;  // what they hold goes outside of the lock
    const std::lock_guard lock(mutex_);
    isStopped_ = true;
    dropped.swap(waiting_);
}

/// Of the user who has the fewest that run; the first that came, of one user's.
std::list<LongWork::Job>::iterator LongWork::next() {
    auto best = waiting_.end();
    unsigned fewest = limits_.ofOneUser;
    for (auto job = waiting_.begin(); job != waiting_.end() && fewest != 0; ++job) {
        const auto running = countOf(ofUser_, job->owner.user);
        if (running < fewest && countOf(ofClient_, job->owner.client) < limits_.ofOneClient) {
            best = job;
            fewest = running;
        }
    }
    return best;
}

void LongWork::start(const std::shared_ptr<LongWork>& self) {
    while (running_ < limits_.all) {
        const auto found = next();
        if (found == waiting_.end())
            return;
        const auto owner = found->owner;
        try {
            // A queue of its own: on any worker.
            DispatchQueue::serialQueue(nullptr)->async([self, owner, job = found->job]() mutable {
                job();
                job = nullptr;  // what it holds goes before its place does
                const std::lock_guard lock(self->mutex_);
                self->ended(owner);
                self->start(self);
            });
        } catch (const std::exception&) {
            // The next that ends starts it. If none runs, it goes, and its request with it.
            if (running_ == 0)
                waiting_.erase(found);
            return;
        }
        waiting_.erase(found);
        ++running_;
        ++ofUser_[owner.user];
        ++ofClient_[owner.client];
    }
}

void LongWork::ended(const Owner& owner) {
    --running_;
    countDown(ofUser_, owner.user);
    countDown(ofClient_, owner.client);
}

}  // namespace morvane
