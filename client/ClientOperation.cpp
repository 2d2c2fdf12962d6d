// SPDX-License-Identifier: MIT
#include "ClientOperation.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>
#include <system_error>

namespace morvane {

NSErrorRef errorOfFailure(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::system_error& e) {
        return NSError::errorWithDomain(NSPOSIXErrorDomain, e.code().value());
    } catch (const std::bad_alloc&) {
        return NSError::errorWithDomain(NSPOSIXErrorDomain, ENOMEM);
    } catch (const std::exception& e) {
        return NSError::errorWithDomain(NSPOSIXErrorDomain, EINVAL,
                                        {{NSLocalizedDescriptionKey, std::string(e.what())}});
    }
}

NSErrorRef cancellation() {
    return NSError::errorWithDescription(NSPOSIXErrorDomain, ECANCELED,
                                         phrase("The request was cancelled."));
}

MVFileClient::State::State(Executor givenExecutor, ConnectorMaker maker)
    : executor(std::move(givenExecutor)),
      lanes(std::make_shared<ClientLanes>(maker, true)),
      // The helper ends when nobody is connected any more.
      privilegedLanes(std::make_shared<ClientLanes>(maker, false)) {}

void MVFileClient::State::add(const std::shared_ptr<ClientOperation>& operation) {
    const std::lock_guard lock(mutex_);
    if (running_.size() >= 2 * mostRunning_) {
        std::erase_if(running_, [](const auto& known) { return known.expired(); });
        mostRunning_ = std::max<std::size_t>(running_.size(), mostConnections);
    }
    running_.push_back(operation);
}

void MVFileClient::State::cancelAll() {
    std::vector<std::weak_ptr<ClientOperation>> running;
    {
        const std::lock_guard lock(mutex_);
        running.swap(running_);
    }
    for (const auto& known : running) {
        if (const auto operation = known.lock())
            operation->cancel();
    }
}

ClientOperation::ClientOperation(std::shared_ptr<MVFileClient::State> client,
                                 MVOperationOptions options, const char* right, bool isLong)
    : client_(std::move(client)),
      options_(std::move(options)),
      right_(right),
      isLong_(isLong),
      begun_(client_->authority->now()),
      isPrivileged_(options_.privilege == MVPrivilege::always) {
    reports_->progress = std::move(options_.progress);
    reports_->itemCounts = std::move(options_.itemCounts);
}

void ClientOperation::start() {
    client_->add(shared_from_this());
    stop_.emplace(options_.stop, [weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->cancel();
    });
    if (isWaiting())
        (isPrivileged_ ? client_->privilegedLanes : client_->lanes)->add(shared_from_this());
}

void ClientOperation::cancel() {
    {
        const std::lock_guard lock(mutex_);
        isCancelled_ = true;
        if (phase_ != Phase::waiting)
            return;
    }
    fail(cancellation());
}

bool ClientOperation::isWaiting() const {
    const std::lock_guard lock(mutex_);
    return phase_ == Phase::waiting;
}

bool ClientOperation::beginSending() {
    const std::lock_guard lock(mutex_);
    if (phase_ != Phase::waiting || isCancelled_)
        return false;
    phase_ = Phase::sent;
    return true;
}

bool ClientOperation::end() {
    const std::lock_guard lock(mutex_);
    return std::exchange(phase_, Phase::ended) != Phase::ended;
}

void ClientOperation::fail(NSErrorRef error) {
    if (end())
        complete(std::move(error));
}

void ClientOperation::failWith(const std::exception_ptr& failure) {
    fail(errorOfFailure(failure));
}

void ClientOperation::run(const std::shared_ptr<ClientLane>& lane) {
    if (!isWaiting())
        return;
    lane->connector()->setProgressHandler([weak = weak_from_this()](auto sizes) {
        const auto self = weak.lock();
        return self && self->report(std::move(sizes));
    });
    lane->connector()->setCountHandler([weak = weak_from_this()](const auto& counts) {
        const auto self = weak.lock();
        return self && self->report(counts);
    });
    try {
        if (!isPrivileged_)
            return sendLater(lane, false);
        client_->authority->obtain(
            right_, begun_, lane->connector(),
            [self = shared_from_this()] { return self->isWaiting(); },
            [self = shared_from_this(), lane](NSErrorRef error) {
                self->authorized(lane, std::move(error));
            });
    } catch (const std::exception&) {
        failWith(std::current_exception());
    }
}

void ClientOperation::authorized(const std::shared_ptr<ClientLane>& lane, NSErrorRef error) {
    if (error)
        return fail(std::move(error));
    try {
        sendLater(lane, true);
    } catch (const std::exception&) {
        failWith(std::current_exception());
    }
}

void ClientOperation::sendLater(const std::shared_ptr<ClientLane>& lane, bool privileged) {
    lane->connector()->queue()->async([self = shared_from_this(), lane, privileged] {
        if (!self->beginSending())
            return;
        try {
            auto& connector = *lane->connector();
            const auto held = privileged ? connector.authConnection() : connector.connection();
            if (held)
                self->send(*held, privileged, lane);
            else
                self->fail(errorWithAdviceAboutHelper(helperMissing()));
        } catch (const std::exception&) {
            self->failWith(std::current_exception());
        }
    });
}

void ClientOperation::repeatPrivileged() {
    bool isCancelled = false;
    {
        const std::lock_guard lock(mutex_);
        // A failure may be reported although the request was sent.
        if (phase_ != Phase::sent)
            return;
        phase_ = Phase::waiting;
        isPrivileged_ = true;
        isCancelled = isCancelled_;
    }
    if (isCancelled)
        cancel();
    else
        client_->privilegedLanes->add(shared_from_this());
}

std::shared_ptr<ClientOperation::Reports> ClientOperation::reportsFor(bool& goesOn) const {
    const std::lock_guard lock(mutex_);
    goesOn = !isCancelled_;
    return isCancelled_ || phase_ == Phase::ended ? nullptr : reports_;
}

bool ClientOperation::report(std::vector<std::shared_ptr<MVFileSizeItem>> sizes) {
    bool goesOn = false;
    const auto reports = reportsFor(goesOn);
    if (reports && reports->progress && !reports->isOneWaiting.exchange(true)) {
        post([reports, sizes = std::move(sizes)] {
            reports->isOneWaiting = false;
            if (!reports->isOver)
                reports->progress(sizes);
        });
    }
    return goesOn;
}

bool ClientOperation::report(const MVItemCounts& counts) {
    bool goesOn = false;
    const auto reports = reportsFor(goesOn);
    if (!reports || !reports->itemCounts)
        return goesOn;
    const auto exchanged = [reports](std::optional<MVItemCounts> latest) {
        const std::lock_guard lock(reports->mutex);
        return std::exchange(reports->latest, latest);
    };
    if (!exchanged(counts)) {
        post([reports, exchanged] {
            const auto latest = exchanged(std::nullopt);
            if (latest && !reports->isOver)
                reports->itemCounts(*latest);
        });
    }
    return goesOn;
}

std::shared_ptr<ClientOperation::Reports> ClientOperation::takeReports() {
    const std::lock_guard lock(mutex_);
    return std::move(reports_);
}

}  // namespace morvane
