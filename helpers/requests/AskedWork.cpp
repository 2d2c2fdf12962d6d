// SPDX-License-Identifier: MIT
#include "AskedWork.h"

#include <MorvaneOperation/platform/dispatch/Clock.h>
#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>

#include <exception>

#include "ClientQuestion.h"
#include "WorkLeft.h"

namespace morvane {

bool hasTooMuchWorkLeft(std::uint32_t user) {
    return WorkLeft::shared().isFull(user);
}

AskedWork::AskedWork(const Client& client, std::function<void()> instead)
    : user_(client.user),
      question_(std::make_shared<ClientQuestion>(client.connection)),
      instead_(std::move(instead)) {}

AskedWork::~AskedWork() {
    if (isCounted_)
        WorkLeft::shared().remove(user_);
}

void AskedWork::begin() {
    lookLater(interval);
}

bool AskedWork::goesOn() const {
    return question_->goesOn();
}

std::function<void()> AskedWork::finish() {
    const std::lock_guard lock(mutex_);
    return std::exchange(instead_, nullptr);
}

void AskedWork::lookLater(std::chrono::milliseconds time) {
    try {
        // All tasks of the clock share one thread, which must not wait for a client.
        runAt(std::chrono::steady_clock::now() + time, [weak = weak_from_this()] {
            const auto self = weak.lock();
            if (!self)
                return;
            try {
                DispatchQueue::serialQueue(nullptr)->async([self] { self->look(); });
            } catch (const std::exception&) {
                self->lookLater(interval);  // there is no thread for it now
            }
        });
    } catch (const std::exception&) {
        // Without a clock the client is not asked.
    }
}

void AskedWork::look() {
    bool goesOn = true;
    try {
        goesOn = question_->ask();
    } catch (const std::exception&) {
        // There is no memory to ask now; it is asked again later.
    }
    std::function<void()> instead;
    {
        const std::lock_guard lock(mutex_);
        if (!instead_)
            return;
        if (!goesOn && std::exchange(isToEnd_, true)) {
            isCounted_ = WorkLeft::shared().add(user_);
            instead.swap(instead_);
        }
    }
    if (instead)
        instead();
    else
        lookLater(goesOn ? interval : grace);
}

}  // namespace morvane
