#include "Failure.h"

#include <cerrno>
#include <optional>

#include "Text.h"

namespace morvane {

namespace {

bool isServiceFailure(const NSError& error) {
    return error.domain() == NSCocoaErrorDomain &&
           (error.code() == NSXPCConnectionInterrupted || error.code() == NSXPCConnectionInvalid ||
            error.code() == NSXPCConnectionReplyInvalid);
}

/// What a person can do about it; empty if there is nothing to say.
std::string advice(const NSError& error) {
    if (const auto own = error.localizedRecoverySuggestion())
        return *own;
    if (error.domain() == NSCocoaErrorDomain) {
        switch (error.code()) {
            case NSXPCConnectionInvalid:
                return "Check that MorvaneOperation is installed completely, or let "
                       "MORVANE_LIBEXEC_DIR name the folder of its service programs.";
            case NSXPCConnectionInterrupted:
            case NSXPCConnectionReplyInvalid:
                return "Nothing was changed; try again.";
            default:
                return {};
        }
    }
    if (error.domain() == NSPOSIXErrorDomain) {
        switch (error.code()) {
            case EACCES:
            case EPERM:
                return "You need the right to enter every folder above the item; ask their owner, "
                       "or run the command as a user who may.";
            case ENOENT:
                return "Check the spelling of the path; a symbolic link may point to nothing.";
            default:
                return {};
        }
    }
    return {};
}

const NSError* underlyingError(const NSError& error) {
    const auto found = error.userInfo().find(NSUnderlyingErrorKey);
    if (found == error.userInfo().end())
        return nullptr;
    const auto* underlying = std::get_if<NSErrorRef>(&found->second);
    return underlying ? underlying->get() : nullptr;
}

}  // namespace

ExitCode exitCodeOf(const NSError& error) {
    return isServiceFailure(error) ? ExitService : ExitFailure;
}

std::string failureMessage(const std::string& what, const std::string& path, const NSError& error) {
    std::string text =
        "morvane: " + what + " '" + escaped(path) + "': " + escaped(error.localizedDescription());
    text += '\n';
    if (const auto* cause = underlyingError(error))
        text += "  " + escaped(cause->localizedDescription()) + '\n';
    if (const std::string help = advice(error); !help.empty())
        text += "  " + escaped(help) + '\n';
    return text;
}

}  // namespace morvane
