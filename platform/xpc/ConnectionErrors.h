// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <memory>
#include <string>

/// The errors that end a connection's requests.
namespace morvane {

/// Returns an error of NSCocoaErrorDomain.
NSErrorRef connectionError(std::int64_t code, const Phrase& text, NSErrorRef underlying = nullptr);

/// Returns the error which says that there was no memory or no thread for a request, so that it was
/// not sent. It is made on the first call and kept, so that it exists when it is needed.
const NSErrorRef& shortageError();
/// Returns the error which says the same of a reply that has arrived.
const NSErrorRef& unreadReplyError();

/// The errors that end the requests of a connection to one service. They are made with the
/// connection, as there may be no memory when they are needed.
struct EndErrors {
    NSErrorRef interrupted;
    NSErrorRef invalid;
};
/// Returns the errors, which connections share that are made to the same service one after the
/// other. Throws std::bad_alloc.
std::shared_ptr<const EndErrors> endErrors(const std::string& service);
/// Returns the error which says that the connection to `service` cannot be used, and why.
NSErrorRef invalidError(const std::string& service, NSErrorRef reason = nullptr);

/// Whether the reason why a service could not be reached may have passed when the next request is
/// made.
bool isShortage(const NSErrorRef& reason);

}  // namespace morvane
