// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/xpc/NSXPCProtocol.h>

#include <cstdint>
#include <utility>

/// What the soak's host and its service speak.
namespace morvane {

#define CountedMessages(MESSAGE)                                                                   \
    /* The `number`-th request of `sender`. The reply says how many of that sender's requests came \
       out of their order so far, as this process of the service has seen them. */                 \
    MESSAGE(                                                                                       \
        count, "count:sender:reply:",                                                              \
        (std::int64_t number, std::int64_t sender, NSXPCReply<std::int64_t, NSErrorRef> reply),    \
        (number, sender, std::move(reply)))

class Counted {
  public:
    virtual ~Counted() = default;
    CountedMessages(NSXPC_DECLARE_MESSAGE)
};
NSXPC_PROTOCOL(Counted, CountedMessages)

}  // namespace morvane
