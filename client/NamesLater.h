// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace morvane {

/// Looks up the names of a list's entries on a queue, while the list goes its way without them.
class NamesLater : public std::enable_shared_from_this<NamesLater> {
  public:
    /// What is not known in time comes as tasks of `executor`.
    NamesLater(const MVFileAcl::Entries& entries, MVFileClient::Executor executor);

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
    void find(const Row& row);

    const std::vector<Row> rows_;
    const MVFileClient::Executor executor_;
    std::mutex mutex_;
    std::condition_variable known_;
    /// Before the list is handed over.
    std::vector<std::pair<std::weak_ptr<MVAclEntry>, CBIdentityRef>> found_;
    bool isDone_ = false;
    bool isHandedOver_ = false;
};

}  // namespace morvane
