// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/MVOperationError.h>

#include "Model.h"

namespace morvane {

namespace {

/// What the domain and code of an error are in GLib.
std::pair<GQuark, int> domainAndCode(const NSErrorRef& error) {
    switch (refusalOfError(error)) {
        case MVRefusal::denied:
            return {MORVANE_ERROR, MORVANE_ERROR_DENIED};
        case MVRefusal::cancelled:
            return {MORVANE_ERROR, MORVANE_ERROR_DISMISSED};
        case MVRefusal::nobodyToAsk:
            return {MORVANE_ERROR, MORVANE_ERROR_NOBODY_TO_ASK};
        case MVRefusal::none:
            break;
    }
    if (error->domain() == MVEntryLossDomain || !lossesOfError(*error).empty())
        return {MORVANE_ERROR, MORVANE_ERROR_LOSSES};
    if (error->domain() == NSPOSIXErrorDomain)
        return {G_IO_ERROR, g_io_error_from_errno(static_cast<int>(error->code()))};
    if (error->domain() == MVAclErrorDomain && error->code() == MVAclChanged)
        return {MORVANE_ERROR, MORVANE_ERROR_CHANGED};
    if (error->domain() == NSCocoaErrorDomain &&
        (error->code() == NSXPCConnectionInterrupted || error->code() == NSXPCConnectionInvalid ||
         error->code() == NSXPCConnectionReplyInvalid))
        return {MORVANE_ERROR, MORVANE_ERROR_SERVICE};
    return {MORVANE_ERROR, MORVANE_ERROR_FAILED};
}

}  // namespace

std::string messageOf(const NSError& error) {
    std::string message = error.localizedDescription();
    if (const auto advice = error.localizedRecoverySuggestion(); advice && !advice->empty())
        message += ' ' + *advice;
    return shownName(message);
}

GError* newError(const NSErrorRef& error) {
    const auto [domain, code] = domainAndCode(error);
    return g_error_new_literal(domain, code, messageOf(*error).c_str());
}

GFile* newFile(const NSURL& url) {
    return url.isFileURL() ? g_file_new_for_path(url.path().c_str())
                           : g_file_new_for_uri(url.absoluteString().c_str());
}

std::optional<NSURL> urlOf(GFile* file) {
    const char* const path = g_file_peek_path(file);
    if (!path)
        return std::nullopt;
    return NSURL::fileURLWithPath(path);
}

}  // namespace morvane
