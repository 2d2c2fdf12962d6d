// SPDX-License-Identifier: MIT
#include "Failure.h"

#include <MorvaneOperation/MVAuthorization.h>
#include <MorvaneOperation/platform/security/AuthorizationServices.h>

#include <cerrno>

#include "Text.h"

namespace morvane {

namespace {

bool isServiceFailure(const NSError& error) {
    return error.domain() == NSCocoaErrorDomain &&
           (error.code() == NSXPCConnectionInterrupted || error.code() == NSXPCConnectionInvalid ||
            error.code() == NSXPCConnectionReplyInvalid);
}

const NSError* underlyingError(const NSError& error) {
    const auto found = error.userInfo().find(NSUnderlyingErrorKey);
    if (found == error.userInfo().end())
        return nullptr;
    const auto* underlying = std::get_if<NSErrorRef>(&found->second);
    return underlying ? underlying->get() : nullptr;
}

/// The library's texts about rights and about the installation of the helper are in English.
std::string descriptionOf(const NSError& error) {
    if (error.domain() == NSOSStatusErrorDomain || error.domain() == MVErrorDomainLaunchd)
        return sayLike(error.localizedDescription(),
                       {translatable("Authorization rights error: %1"),
                        translatable("Privileged job install error: %1")});
    return error.localizedDescription();
}

std::string adviceAboutRight(std::int64_t code) {
    switch (code) {
        case errAuthorizationDenied:
            return say(
                "An administrator's password is needed, or a rule of polkit's that allows it.");
        case errAuthorizationInteractionNotAllowed:
            return say(
                "Run the command in a desktop session or on a terminal. After 'su -c' it must "
                "be "
                "in the foreground, with its input and output on the terminal; else use "
                "'su --pty -c'.");
        case errAuthorizationInternal:
            return say("Check that polkit runs: 'systemctl status polkit'.");
        default:
            return {};
    }
}

std::string adviceAboutInstallation(std::int64_t code) {
    switch (code) {
        case kSMErrorJobMustBeEnabled:
            return say(
                "The administrator does not want the helper to run. "
                "'systemctl unmask io.github.morvaneoperation.PrivilegedHelper.service "
                "io.github.morvaneoperation.PrivilegedHelper.socket' allows it.");
        case kSMErrorAuthorizationFailure:
        case kSMErrorLaunchDeniedByUser:
            return say("Try again and allow it, or have an administrator run '%1' as root.",
                       MORVANE_INSTALLER);
        case kSMErrorJobNotFound:
            return say(
                "Nobody listens for the helper; 'systemctl status "
                "io.github.morvaneoperation.PrivilegedHelper.socket' tells why.");
        default:
            return say("Run '%1' as root; it names what is wrong.", MORVANE_INSTALLER);
    }
}

/// Advice that the kernel's short texts do not give.
std::string adviceAboutSystemError(const NSError& error) {
    // A service that knows more about the failure describes it in a text of its own.
    const bool isKernelsText = !error.userInfo().contains(NSLocalizedDescriptionKey);
    switch (error.code()) {
        case ENOENT:
            return say("Check the spelling of the path; a symbolic link may point to nothing.");
        case ENOTDIR:
            return say("A part of the path is no folder, or the item itself is none.");
        case ELOOP:
            return say("Symbolic links in the path lead to each other, or are too many.");
        case EROFS:
            return say("The file system is mounted for reading only; 'findmnt' names its options.");
        case ENOSPC:
            return isKernelsText ? say("The disk is full, or has no room for more files: 'df' and "
                                       "'df -i' tell.")
                                 : std::string();
        case EDQUOT:
            return say("The owner's share of the disk is used up; 'quota' tells how much it is.");
        case EOPNOTSUPP:
            return isKernelsText
                       ? say("The file system has no such lists, or was mounted without them.")
                       : std::string();
        case EIO:
            return say(
                "The disk has failed, or the server of a network mount; 'dmesg' may tell more.");
        case ESTALE:
            return say(
                "The server of the network mount no longer has the item; look into its folder "
                "again.");
        case ETIMEDOUT:
        case EHOSTDOWN:
        case EHOSTUNREACH:
        case ECONNREFUSED:
            return say("The server of the network mount does not answer; try again when it does.");
        case EMFILE:
        case ENFILE:
            return say("Too many files are open; close some programs, and try again.");
        default:
            return {};
    }
}

}  // namespace

std::string advice(const NSError& error, Effect effect) {
    if (const auto own = error.localizedRecoverySuggestion())
        return *own;
    if (error.domain() == NSCocoaErrorDomain) {
        switch (error.code()) {
            case NSXPCConnectionInvalid:
                return say(
                    "Check that MorvaneOperation is installed completely, or let "
                    "MORVANE_LIBEXEC_DIR name the folder of its service programs.");
            case NSXPCConnectionInterrupted:
            case NSXPCConnectionReplyInvalid:
                // The service may have gone before its work, within it, or after it.
                return effect == Effect::reads
                           ? say("Nothing was changed; try again.")
                           : say("It may have been changed, or a part of it; look before you try "
                                 "again.");
            default:
                return {};
        }
    }
    if (error.domain() == NSOSStatusErrorDomain)
        return adviceAboutRight(error.code());
    if (error.domain() == MVErrorDomainLaunchd)
        return adviceAboutInstallation(error.code());
    if (error.domain() == NSPOSIXErrorDomain) {
        switch (error.code()) {
            case EPERM:
                if (effect == Effect::changes)
                    return say("Only its owner or root may change it; it may be immutable.");
                [[fallthrough]];
            case EACCES:
                return say(
                    "You need the right to enter every folder above the item, or the item "
                    "itself; ask their owner, or run the command as a user who may.");
            default:
                return adviceAboutSystemError(error);
        }
    }
    return {};
}

bool isRefusedRight(const NSError& error) {
    return error.domain() == NSOSStatusErrorDomain || error.domain() == MVErrorDomainLaunchd;
}

std::string helpLines(const NSError& error, Effect effect) {
    std::string lines;
    if (const auto* cause = underlyingError(error))
        lines += "  " + escaped(cause->localizedDescription()) + '\n';
    if (const auto help = advice(error, effect); !help.empty())
        lines += "  " + escaped(help) + '\n';
    return lines;
}

ExitCode exitCodeOf(const NSError& error) {
    if (error.domain() == NSPOSIXErrorDomain && error.code() == EREMOTEIO)
        return ExitStoredOtherwise;
    return isServiceFailure(error) ? ExitService : ExitFailure;
}

Outcome failed(const std::string& what, const NSErrorRef& error, Effect effect) {
    return {exitCodeOf(*error), {}, failureMessage(what, *error, effect), error};
}

std::string stoppedLooking() {
    return message({say("stopped; the rest was not looked at.")});
}

std::string failureMessage(const std::string& what, const NSError& error, Effect effect) {
    // TRANSLATORS: What failed, and why.
    return message({say("%1: %2", what, escaped(descriptionOf(error)))}) + helpLines(error, effect);
}

}  // namespace morvane
