// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVItemProgress.h>
#include <MorvaneOperation/platform/foundation/NSObject.h>

#include <memory>

namespace morvane {

class MVConnector;

/// The object that a connector exports to the services. It passes each callback on to its
/// connector, on the thread on which the callback arrives. It holds the connector weakly; when the
/// connector is gone, nothing is called and the reply is dropped without an answer.
class MORVANE_EXPORT MVConnectResponder : public NSObject, public MVCountedResponse {
  public:
    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }

    /// Null when the connector is gone.
    std::shared_ptr<MVConnector> connector() const;
    void setConnector(std::weak_ptr<MVConnector> connector);

    void progressWithReply(NSXPCReply<bool> reply) override;
    void updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>> sizes,
                         NSXPCReply<bool> reply) override;
    /// For a connector that is an MVItemProgress; for any other one the work goes on.
    void updateItemCounts(std::int64_t done, std::int64_t failed, NSXPCReply<bool> reply) override;

  private:
    std::weak_ptr<MVConnector> connector_;
};

}  // namespace morvane
