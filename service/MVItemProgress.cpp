// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVItemProgress.h>

namespace morvane {

MVItemProgress::~MVItemProgress() = default;
MVCountedResponse::~MVCountedResponse() = default;

NSXPC_DEFINE_PROTOCOL(MVCountedResponse, MVCountedResponseMessages)

}  // namespace morvane
