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

AclAnswer emptyList(const NSURL&) {
    return {};
}

NSErrorRef losesTheService(const EntryList&, const NSURL&) {
    return lostService();
}

TEST(ALostService, HasChangedNothingThatWasOnlyRead) {
    const auto outcome = runAcl(
        {.path = "/x"},
        [](const NSURL&) {
            return AclAnswer{{}, lostService()};
        },
        Style(false));
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
    const auto outcome = runPropagate({"/x"}, emptyList, losesTheService);
    EXPECT_EQ(outcome.exitCode, ExitService);
    EXPECT_TRUE(outcome.message.ends_with(outcomeUnknown)) << outcome.message;
}

TEST(ALostService, MayHaveRenamedAPart) {
    const auto outcome = runRename({.words = {"/x", "y"}}, [](const auto&, const auto&) {
        return RenamesAnswer{{}, {}, lostService()};
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

}  // namespace
}  // namespace morvane
