#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <string>

/// The errors that end a connection's requests.
namespace morvane {

/// Of NSCocoaErrorDomain.
NSErrorRef connectionError(std::int64_t code, std::string text, NSErrorRef underlying = nullptr);

/// There is no memory or no thread for a request, which was not sent. Made on the first call, for
/// good, so that it is there when it is needed.
const NSErrorRef& shortageError();
/// Likewise for a reply that has come.
const NSErrorRef& unreadReplyError();

/// Whether what made a service unreachable may be over when the next request comes.
bool isShortage(const NSErrorRef& reason);

}  // namespace morvane
