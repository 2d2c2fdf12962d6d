// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVConnector.h>

#include <functional>
#include <memory>
#include <vector>

namespace morvane {

/// A connector that is ready: it knows what may come back with every message, and nothing needs to
/// be derived from it.
///
///     auto connector = MVConnector::init<MVFileConnector>();
///     connector->connection()
///         ->remoteObjectProxyWithErrorHandler<MVFileRequest>(onError)
///         ->getAclEntriesWithUrl(url, [](auto entries, NSErrorRef error) { redraw(); });
///
/// For a host that sends messages itself; MVFileClient has the operations made of them.
class MORVANE_EXPORT MVFileConnector final : public MVConnector, public MVItemProgress {
  public:
    /// Learns what is known of the sizes so far (nothing, if the service merely asks) and answers
    /// whether to go on.
    using ProgressHandler = std::function<bool(std::vector<std::shared_ptr<MVFileSizeItem>>)>;

    /// Use MVConnector::init().
    explicit MVFileConnector(Creation creation);
    ~MVFileConnector() override;
    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }

    /// Any thread; without one every question is answered with yes. It is called on a thread of the
    /// connection's. A question does not say which request it belongs to: give one connector one
    /// long request at a time.
    void setProgressHandler(ProgressHandler handler);

    /// Learns how many items a propagation has dealt with, and answers whether to go on.
    using CountHandler = std::function<bool(const MVItemCounts&)>;
    /// As setProgressHandler().
    void setCountHandler(CountHandler handler);

    EncodableClasses remoteEncodableClasses() override;
    EncodableClasses exportedEncodableClasses() override;
    void progressWithReply(NSXPCReply<bool> reply) override;
    void updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>> sizes,
                         NSXPCReply<bool> reply) override;
    void updateItemCounts(MVItemCounts counts, NSXPCReply<bool> reply) override;

  private:
    struct MORVANE_INTERNAL State;
    std::unique_ptr<State> state_;
};

}  // namespace morvane
