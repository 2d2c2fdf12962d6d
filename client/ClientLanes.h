// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace morvane {

class ClientOperation;
class ClientLanes;

/// One operation's use of a connector. Its end lets the next operation have the connector.
class ClientLane {
  public:
    ClientLane(std::shared_ptr<ClientLanes> lanes, std::shared_ptr<MVFileConnector> connector,
               bool isLong);
    ~ClientLane();
    ClientLane(const ClientLane&) = delete;
    ClientLane& operator=(const ClientLane&) = delete;

    const std::shared_ptr<MVFileConnector>& connector() const { return connector_; }

  private:
    const std::shared_ptr<ClientLanes> lanes_;
    const std::shared_ptr<MVFileConnector> connector_;
    const bool isLong_;
};

/// Gives each operation a connector of its own, as many as there may be, and has the others wait.
/// Short operations go first, and one connector is kept for them. It may be used on any thread.
class ClientLanes : public std::enable_shared_from_this<ClientLanes> {
  public:
    /// With `keepsOne`, a connector that nobody uses is kept for the next operation.
    ClientLanes(MVFileClient::ConnectorMaker maker, bool keepsOne)
        : maker_(std::move(maker)), keepsOne_(keepsOne) {}

    /// Has `operation` run once a connector is free.
    void add(std::shared_ptr<ClientOperation> operation);

  private:
    friend class ClientLane;
    void giveBack(std::shared_ptr<MVFileConnector> connector, bool isLong);
    /// Starts whatever can start.
    void serve();
    /// Returns the next operation that can start, and counts it as started; null if none can. The
    /// operations that have ended meanwhile are moved to `ended`: they may hold objects of their
    /// host, which must not be destroyed while the lock is held.
    std::shared_ptr<ClientOperation> next(std::vector<std::shared_ptr<ClientOperation>>& ended);

    const MVFileClient::ConnectorMaker maker_;
    const bool keepsOne_;
    std::mutex mutex_;
    std::deque<std::shared_ptr<ClientOperation>> short_;
    std::deque<std::shared_ptr<ClientOperation>> long_;
    std::vector<std::shared_ptr<MVFileConnector>> idle_;
    std::size_t used_ = 0;
    std::size_t usedLong_ = 0;
};

}  // namespace morvane
