// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/MVFileResponse.h>

// By themselves: the services need them, and not what connects hosts.
namespace morvane {

MVFileRequest::~MVFileRequest() = default;
MVFileResponse::~MVFileResponse() = default;

}  // namespace morvane
