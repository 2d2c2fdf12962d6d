// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAuthorization.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "EditCommand.h"
#include "Failure.h"
#include "PropagateCommand.h"
#include "RenameCommand.h"
#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

constexpr const char* outcomeUnknown =
    "  It may have been changed, or a part of it; look before you try again.\n";

NSErrorRef posix(int code) {
    return NSError::errorWithDomain(NSPOSIXErrorDomain, code);
}

NSErrorRef lostService() {
    return NSError::errorWithDomain(NSCocoaErrorDomain, NSXPCConnectionInterrupted);
}

Result<EntryList> emptyList(const NSURL&) {
    return EntryList();
}

NSErrorRef losesTheService(const EntryList&, const NSURL&) {
    return lostService();
}

TEST(ALostService, HasChangedNothingThatWasOnlyRead) {
    const auto outcome = runAcl(
        {.path = "/x"}, [](const NSURL&) { return Failure{lostService()}; }, Style(false));
    EXPECT_TRUE(outcome.message.ends_with("  Nothing was changed; try again.\n"))
        << outcome.message;
}

TEST(ALostService, MayHaveWrittenTheList) {
    const acltest::World world;
    const auto outcome = runAclEdit({.path = "/", .script = "add everyone"}, emptyList,
                                    losesTheService, nullptr, nullptr, Style(false));
    EXPECT_EQ(outcome.exitCode, ExitService);
    EXPECT_TRUE(outcome.message.ends_with(outcomeUnknown)) << outcome.message;
}

TEST(ALostService, MayHavePropagatedAPart) {
    ChangeParts parts;
    parts.source = emptyList;
    Journal journal({});
    const auto outcome = runPropagate(
        {"/x"}, parts,
        {[](const auto&, const auto&) { return Propagated{lostService()}; }, emptyList, nullptr},
        journal);
    EXPECT_EQ(outcome.exitCode, ExitService);
    EXPECT_TRUE(outcome.message.ends_with(outcomeUnknown)) << outcome.message;
}

TEST(ALostService, MayHaveRenamedAPart) {
    const auto outcome = runRename({.words = {"/x", "y"}}, [](const auto&, const auto&) {
        return MVFileRenames{{}, {}, lostService()};
    });
    EXPECT_EQ(outcome.exitCode, ExitService);
    EXPECT_TRUE(outcome.message.ends_with(outcomeUnknown)) << outcome.message;
}

TEST(Advice, TellsWhoMayChangeAnItemFromWhoMayReachIt) {
    EXPECT_EQ(advice(*posix(EPERM), Effect::changes),
              "Only its owner or root may change it; it may be immutable.");
    EXPECT_EQ(advice(*posix(EACCES), Effect::changes),
              "You need the right to enter every folder above the item, or the item itself; ask "
              "their owner, or run the command as a user who may.");
}

std::string adviceAbout(const char* domain, std::int64_t code) {
    return advice(*NSError::errorWithDomain(domain, code), Effect::reads);
}

TEST(ARightThatIsRefused, ComesWithAdviceAboutRightsAndNotAboutFolders) {
    EXPECT_EQ(adviceAbout(NSOSStatusErrorDomain, errAuthorizationDenied),
              "An administrator's password is needed, or a rule of polkit's that allows it.");
    EXPECT_EQ(adviceAbout(NSOSStatusErrorDomain, errAuthorizationInteractionNotAllowed),
              "Run the command in a desktop session or on a terminal. After 'su -c' it must be in "
              "the foreground, with its input and output on the terminal; else use 'su --pty -c'.");
    EXPECT_EQ(adviceAbout(NSOSStatusErrorDomain, errAuthorizationInternal),
              "Check that polkit runs: 'systemctl status polkit'.");
    EXPECT_EQ(adviceAbout(NSOSStatusErrorDomain, errAuthorizationCanceled), "");
}

TEST(AHelperThatIsNotInstalled, ComesWithWhatAnAdministratorCanDo) {
    EXPECT_EQ(adviceAbout(MVErrorDomainLaunchd, kSMErrorJobMustBeEnabled),
              "The administrator does not want the helper to run. 'systemctl unmask "
              "io.github.morvaneoperation.PrivilegedHelper.service "
              "io.github.morvaneoperation.PrivilegedHelper.socket' allows it.");
    EXPECT_EQ(adviceAbout(MVErrorDomainLaunchd, kSMErrorLaunchDeniedByUser),
              "Try again and allow it, or have an administrator run '" MORVANE_INSTALLER
              "' as root.");
    EXPECT_EQ(adviceAbout(MVErrorDomainLaunchd, kSMErrorJobNotFound),
              "Nobody listens for the helper; 'systemctl status "
              "io.github.morvaneoperation.PrivilegedHelper.socket' tells why.");
    for (const auto code : {kSMErrorInternalFailure, kSMErrorInvalidSignature, kSMErrorToolNotValid,
                            kSMErrorServiceUnavailable})
        EXPECT_EQ(adviceAbout(MVErrorDomainLaunchd, code),
                  "Run '" MORVANE_INSTALLER "' as root; it names what is wrong.");
}

TEST(TheAdvice, ExplainsWhatTheKernelsTextsLeaveOpen) {
    for (const int code : {ENOTDIR, ELOOP, EROFS, ENOSPC, EDQUOT, EOPNOTSUPP, EIO, ESTALE,
                           ETIMEDOUT, EHOSTDOWN, EHOSTUNREACH, ECONNREFUSED, EMFILE, ENFILE})
        EXPECT_NE(advice(*posix(code), Effect::changes), "") << code;
    EXPECT_EQ(advice(*posix(EIO), Effect::reads),
              "The disk has failed, or the server of a network mount; 'dmesg' may tell more.");
    EXPECT_EQ(advice(*posix(EINVAL), Effect::reads), "");
}

TEST(TheAdvice, DoesNotContradictAServiceThatHasFoundOutMore) {
    const auto found = [](int code) {
        return NSError::errorWithDescription(
            NSPOSIXErrorDomain, code,
            phrase("The list is too long for this file system, whose disk is not full."));
    };
    EXPECT_EQ(advice(*found(ENOSPC), Effect::changes), "");
    EXPECT_EQ(advice(*found(EOPNOTSUPP), Effect::changes), "");
}

TEST(AFailure, CarriesItsErrorForPrograms) {
    const auto error = posix(EIO);
    const auto outcome = failed("it failed", error);
    EXPECT_EQ(outcome.error, error);
    EXPECT_EQ(outcome.exitCode, ExitFailure);
    EXPECT_EQ(outcome.message, failureMessage("it failed", *error));
}

}  // namespace
}  // namespace morvane
