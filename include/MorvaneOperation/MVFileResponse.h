// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileSizeItem.h>
#include <MorvaneOperation/platform/xpc/NSXPCProtocol.h>

#include <memory>
#include <utility>
#include <vector>

namespace morvane {

/* MESSAGE(member, selector, parameters, arguments) */
#define MVFileResponseMessages(MESSAGE)                                                            \
    MESSAGE(progressWithReply, "progressWithReply:", (NSXPCReply<bool> reply), (std::move(reply))) \
    /* `sizes`: what is known so far. */                                                           \
    MESSAGE(updateFileSizes, "updateFileSizes:reply:",                                             \
            (std::vector<std::shared_ptr<MVFileSizeItem>> sizes, NSXPCReply<bool> reply),          \
            (std::move(sizes), std::move(reply)))

/// The questions that a service asks its client while a request runs. Each is answered with yes or
/// no; the service and the host's connector agree on what the answer means (the reference services
/// go on after a yes, and stop at a no).
class MORVANE_EXPORT MVFileResponse {
  public:
    virtual ~MVFileResponse();
    MVFileResponseMessages(NSXPC_DECLARE_MESSAGE)
};

NSXPC_DECLARE_PROTOCOL(MVFileResponse, MORVANE_EXPORT)

}  // namespace morvane
