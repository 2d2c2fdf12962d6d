// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVOperationError.h>
#include <MorvaneOperation/MVServiceNames.h>
#include <MorvaneOperation/platform/host/FileAccess.h>

#include <cerrno>
#include <utility>

namespace morvane {
namespace {

constexpr int readAndWrite = 4 | 2;

/// The path under NSURLErrorKey, which holds a URL or a path; empty without one.
std::string pathOf(const NSError& error) {
    const auto found = error.userInfo().find(NSURLErrorKey);
    if (found == error.userInfo().end())
        return {};
    if (const auto* url = std::get_if<NSURL>(&found->second))
        return url->path();
    if (const auto* path = std::get_if<std::string>(&found->second))
        return *path;
    return {};
}

}  // namespace

NSErrorRef errorWithError(const NSErrorRef& error, std::optional<std::string> description) {
    auto message = error->localizedDescription();
    if (const auto suggestion = error->localizedRecoverySuggestion())
        message += " " + *suggestion;
    auto userInfo = error->userInfo();
    if (description) {
        userInfo.insert_or_assign(NSLocalizedDescriptionKey, std::move(*description));
    } else {
        userInfo.erase(NSLocalizedDescriptionKey);
    }
    userInfo.insert_or_assign(NSLocalizedRecoverySuggestionErrorKey, std::move(message));
    return NSError::errorWithDomain(error->domain(), error->code(), std::move(userInfo));
}

bool isPermissionError(const NSErrorRef& error) {
    if (!error || error->domain() != NSPOSIXErrorDomain)
        return false;
    if (error->code() == EACCES)
        return true;
    if (error->code() != EPERM)
        return false;
    const auto path = pathOf(*error);
    if (path.empty() || path.front() == '\0')
        return false;
    const int code = FileAccess::current().access(path.c_str(), readAndWrite);
    return code == 0 || code == EACCES;
}

NSErrorRef errorWithAdviceAboutHelper(NSErrorRef error) {
    if (error->domain() != NSCocoaErrorDomain)
        return error;
    auto userInfo = error->userInfo();
    Phrase suggestion;
    if (error->code() == NSXPCConnectionInvalid) {
        if (!userInfo.contains(NSLocalizedRecoverySuggestionErrorKey))
            suggestion = phrase(
                "Try again; the helper is then looked after. 'systemctl status "
                "%1.service' tells why.",
                MVPrivilegedHelperName);
    } else if (error->code() == NSXPCConnectionInterrupted) {
        userInfo.try_emplace(
            NSUnderlyingErrorKey,
            NSError::errorWithDescription(
                error->domain(), error->code(),
                phrase("If the helper has failed, 'systemctl status %1.service' tells why.",
                       MVPrivilegedHelperName)));
    }
    return NSError::errorWithDescription(error->domain(), error->code(), {}, suggestion,
                                         std::move(userInfo));
}

}  // namespace morvane
