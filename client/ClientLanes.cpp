// SPDX-License-Identifier: MIT
#include "ClientLanes.h"

#include <exception>
#include <stdexcept>
#include <utility>

#include "ClientOperation.h"

namespace morvane {

namespace {

/// The lanes in which this thread is starting operations now. An operation that ends while it is
/// started gives its connector back to that loop, which looks again anyway.
thread_local const ClientLanes* servedHere = nullptr;

class Serving {
  public:
    explicit Serving(const ClientLanes* lanes) : former_(std::exchange(servedHere, lanes)) {}
    ~Serving() { servedHere = former_; }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;

  private:
    const ClientLanes* const former_;
};

}  // namespace

ClientLane::ClientLane(std::shared_ptr<ClientLanes> lanes,
                       std::shared_ptr<MVFileConnector> connector, bool isLong)
    : lanes_(std::move(lanes)), connector_(std::move(connector)), isLong_(isLong) {}

ClientLane::~ClientLane() {
    lanes_->giveBack(connector_, isLong_);
}

void ClientLanes::add(std::shared_ptr<ClientOperation> operation) {
    {
        const std::lock_guard lock(mutex_);
        auto& waiting = operation->isLong() ? long_ : short_;
        waiting.push_back(std::move(operation));
    }
    serve();
}

std::shared_ptr<ClientOperation> ClientLanes::next(
    std::vector<std::shared_ptr<ClientOperation>>& ended) {
    // An operation that has ended while it waited needs no connector.
    for (auto* waiting : {&short_, &long_}) {
        while (!waiting->empty() && !waiting->front()->isWaiting()) {
            ended.push_back(std::move(waiting->front()));
            waiting->pop_front();
        }
    }
    if (used_ == MVFileClient::mostConnections)
        return nullptr;
    const bool isLong = short_.empty();
    auto& waiting = isLong ? long_ : short_;
    if (waiting.empty() || (isLong && usedLong_ + 1 == MVFileClient::mostConnections))
        return nullptr;
    auto operation = std::move(waiting.front());
    waiting.pop_front();
    ++used_;
    usedLong_ += isLong ? 1 : 0;
    return operation;
}

void ClientLanes::serve() {
    if (servedHere == this)
        return;
    const Serving serving(this);
    std::vector<std::shared_ptr<ClientOperation>> ended;
    std::unique_lock lock(mutex_);
    while (const auto operation = next(ended)) {
        std::shared_ptr<MVFileConnector> connector;
        if (!idle_.empty()) {
            connector = std::move(idle_.back());
            idle_.pop_back();
        }
        lock.unlock();
        std::exception_ptr failure;
        try {
            if (!connector)
                connector = maker_();
            if (!connector)
                throw std::invalid_argument("the host has made no connector");
        } catch (const std::exception&) {
            failure = std::current_exception();
        }
        auto lane =
            std::make_shared<ClientLane>(shared_from_this(), connector, operation->isLong());
        if (failure)
            operation->failWith(failure);
        else
            operation->run(lane);
        lane.reset();
        ended.clear();
        lock.lock();
    }
    lock.unlock();
}

void ClientLanes::giveBack(std::shared_ptr<MVFileConnector> connector, bool isLong) {
    if (connector)
        connector->setProgressHandler({});
    {
        const std::lock_guard lock(mutex_);
        --used_;
        usedLong_ -= isLong ? 1 : 0;
        const bool isWanted = !short_.empty() || !long_.empty() || (keepsOne_ && idle_.empty());
        if (connector && isWanted)
            idle_.push_back(std::move(connector));
    }
    serve();
}

}  // namespace morvane
