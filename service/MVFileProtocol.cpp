// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/MVFileResponse.h>

// By themselves: the services need them, and not what connects hosts.
namespace morvane {

MVFileRequest::~MVFileRequest() = default;
MVFileResponse::~MVFileResponse() = default;

NSXPC_DEFINE_PROTOCOL(MVFileRequest, MVFileRequestMessages)
NSXPC_DEFINE_PROTOCOL(MVFileResponse, MVFileResponseMessages)

}  // namespace morvane
