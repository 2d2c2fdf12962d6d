// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/xpc/ConnectionErrors.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <mutex>
#include <utility>

namespace morvane {

NSErrorRef connectionError(std::int64_t code, const Phrase& text, NSErrorRef underlying) {
    NSErrorUserInfo userInfo;
    if (underlying)
        userInfo.emplace(NSUnderlyingErrorKey, std::move(underlying));
    return NSError::errorWithDescription(NSCocoaErrorDomain, code, text, {}, std::move(userInfo));
}

const NSErrorRef& shortageError() {
    static const auto& error = *new NSErrorRef(connectionError(
        NSXPCConnectionInvalid,
        phrase("There is no memory or no thread for the request now; it was not sent.")));
    return error;
}

const NSErrorRef& unreadReplyError() {
    static const auto& error = *new NSErrorRef(connectionError(
        NSXPCConnectionReplyInvalid, phrase("There is no memory for the reply to the request.")));
    return error;
}

NSErrorRef invalidError(const std::string& service, NSErrorRef reason) {
    return connectionError(
        NSXPCConnectionInvalid,
        phrase("The connection to the service \"%1\" is invalid; the request was not sent.",
               service),
        std::move(reason));
}

std::shared_ptr<const EndErrors> endErrors(const std::string& service) {
    struct Latest {
        std::mutex mutex;
        std::string service;
        std::shared_ptr<const EndErrors> errors;
    };
    static auto& latest = *new Latest;  // outlives static objects
    // The lock is not waited for: in the child of a fork, the thread that held it may not exist.
    const std::unique_lock lock(latest.mutex, std::try_to_lock);
    if (lock && latest.errors && latest.service == service)
        return latest.errors;
    shortageError();
    unreadReplyError();
    auto errors = std::make_shared<const EndErrors>(EndErrors{
        connectionError(NSXPCConnectionInterrupted,
                        phrase("The service \"%1\" went away before it answered; whether it has "
                               "carried out the request is unknown.",
                               service)),
        invalidError(service)});
    if (lock) {
        auto name = service;
        latest.service.swap(name);
        latest.errors = errors;
    }
    return errors;
}

bool isShortage(const NSErrorRef& reason) {
    constexpr std::array codes = {EAGAIN, EMFILE, ENFILE, ENOBUFS, ENOMEM};
    return reason == shortageError() ||
           (reason && reason->domain() == NSPOSIXErrorDomain &&
            std::find(codes.begin(), codes.end(), reason->code()) != codes.end());
}

}  // namespace morvane
