// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileResponse.h>

#include <cstdint>
#include <utility>

namespace morvane {

/// How far an operation on many items is.
struct MVItemCounts {
    /// Files and folders that have what was asked for.
    std::uint64_t done = 0;
    /// Those for which that failed, or which could not be reached.
    std::uint64_t failed = 0;

    bool operator==(const MVItemCounts&) const = default;
};

/// What a connector implements besides MVFileResponse, if it wants to know how many items a
/// propagation has dealt with so far.
///
/// A service tells it a few times a second while the request runs, and once more before it answers:
/// the last counts are those of the whole work. A connector that does not implement this is not
/// told, and nothing else changes for it.
class MORVANE_EXPORT MVItemProgress {
  public:
    virtual ~MVItemProgress();
    /// The answer says whether to go on, as that of MVFileResponse does. Called on a thread of the
    /// connection's.
    virtual void updateItemCounts(MVItemCounts counts, NSXPCReply<bool> reply) = 0;
};

/* MESSAGE(member, selector, parameters, arguments) */
#define MVCountedResponseMessages(MESSAGE)                                    \
    MVFileResponseMessages(MESSAGE)                                           \
    MESSAGE(updateItemCounts, "updateItemCounts:failed:reply:",               \
            (std::int64_t done, std::int64_t failed, NSXPCReply<bool> reply), \
            (done, failed, std::move(reply)))

/// MVFileResponse with the callback that came later, as it travels. A client that exports
/// MVFileResponse alone refuses that one message.
class MORVANE_EXPORT MVCountedResponse : public MVFileResponse {
  public:
    ~MVCountedResponse() override;
    virtual void updateItemCounts(std::int64_t done, std::int64_t failed,
                                  NSXPCReply<bool> reply) = 0;
};

NSXPC_DECLARE_PROTOCOL(MVCountedResponse, MORVANE_EXPORT)

}  // namespace morvane
