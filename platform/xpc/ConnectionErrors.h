// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <memory>
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

/// What ends the requests of a connection to one service. Made with the connection: there may be no
/// memory when they are needed.
struct EndErrors {
    NSErrorRef interrupted;
    NSErrorRef invalid;
};
/// Connections to the same service, made one after the other, share theirs. Throws std::bad_alloc.
std::shared_ptr<const EndErrors> endErrors(const std::string& service);
/// That the connection to `service` cannot be used, and why.
NSErrorRef invalidError(const std::string& service, NSErrorRef reason = nullptr);

/// Whether what made a service unreachable may be over when the next request comes.
bool isShortage(const NSErrorRef& reason);

}  // namespace morvane
