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

/// What a service asks of its client while a request runs. Each message is answered with yes or no;
/// what the answer means is between the service and the host's connector (the reference services go
/// on while it is yes, and stop at a no).
class MORVANE_EXPORT MVFileResponse {
  public:
    virtual ~MVFileResponse();
    MVFileResponseMessages(NSXPC_DECLARE_MESSAGE)
};

NSXPC_PROTOCOL(MVFileResponse, MVFileResponseMessages)

}  // namespace morvane
