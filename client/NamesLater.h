// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

namespace morvane {

/// Looks up the names of a list's entries on a queue, while the list goes its way without them.
class NamesLater : public std::enable_shared_from_this<NamesLater> {
  public:
    /// What is not known in time comes as tasks of `executor`.
    NamesLater(const MVFileAcl::Entries& entries, MVFileClient::Executor executor);

    /// Throws std::system_error if the queue cannot start a thread.
    void lookUp(DispatchQueue& queue);
    /// Gives the entries the names that are known by now, or very soon: most people are known at
    /// once, and nobody likes to see names change. The list may be used elsewhere then.
    void handOver();

  private:
    struct Row {
        std::weak_ptr<MVAclEntry> entry;
        NSUUID uuid;
    };

    void run();

    const std::vector<Row> rows_;
    const MVFileClient::Executor executor_;
    std::mutex mutex_;
    std::condition_variable known_;
    /// Of the first rows.
    std::vector<CBIdentityRef> found_;
    bool isHandedOver_ = false;
};

}  // namespace morvane
