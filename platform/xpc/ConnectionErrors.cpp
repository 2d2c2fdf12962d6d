#include <MorvaneOperation/platform/xpc/ConnectionErrors.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace morvane {

NSErrorRef connectionError(std::int64_t code, std::string text, NSErrorRef underlying) {
    NSErrorUserInfo userInfo{{NSLocalizedDescriptionKey, std::move(text)}};
    if (underlying)
        userInfo.emplace(NSUnderlyingErrorKey, std::move(underlying));
    return NSError::errorWithDomain(NSCocoaErrorDomain, code, std::move(userInfo));
}

const NSErrorRef& shortageError() {
    static const auto& error = *new NSErrorRef(
        connectionError(NSXPCConnectionInvalid,
                        "There is no memory or no thread for the request now; it was not sent."));
    return error;
}

const NSErrorRef& unreadReplyError() {
    static const auto& error = *new NSErrorRef(connectionError(
        NSXPCConnectionReplyInvalid, "There is no memory for the reply to the request."));
    return error;
}

bool isShortage(const NSErrorRef& reason) {
    constexpr std::array codes = {EAGAIN, EMFILE, ENFILE, ENOBUFS, ENOMEM};
    return reason == shortageError() ||
           (reason && reason->domain() == NSPOSIXErrorDomain &&
            std::find(codes.begin(), codes.end(), reason->code()) != codes.end());
}

}  // namespace morvane
