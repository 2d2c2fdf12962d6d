// SPDX-License-Identifier: MIT
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/acl_perms.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "WhoCanCommand.h"

namespace morvane {
namespace {

bool has(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

/// A file of uid 3999999990 that everyone may read, on a system of two users.
class WhoCan : public testing::Test {
  protected:
    Outcome run(const WhoCanOptions& options) { return runWhoCan(options, parts, Style(false)); }

    static EntryList entries(PosixRights others = PosixRead, bool isDirectory = false) {
        const PosixAcl acl{3999999990,
                           3999999990,
                           isDirectory,
                           {PosixRead | others, PosixNothing, others, std::nullopt, {}, {}},
                           {}};
        auto entries = entriesOfPosixAcl(acl);
        const auto origin = MVAclOrigin::initWithValues({NSURL::fileURLWithPath("/notes"),
                                                         isDirectory,
                                                         acl.owner,
                                                         acl.group,
                                                         MVAclStorage::posix,
                                                         {}});
        for (const auto& entry : entries)
            entry->setOrigin(origin);
        return entries;
    }

    static CBIdentityRef user(std::uint32_t uid, const char* name) {
        return std::make_shared<CBIdentity>(uuidOfPosixIdentity(CBPosixUser{uid}), name, false);
    }

    bool goesOn = true;
    RightSources parts{[](const NSURL&) { return entries(); },
                       [](const NSURL&, const std::vector<NSUUID>& whom) {
                           return std::vector<Result<PermissionList>>(
                               whom.size(), permissionTree(ACL_READ_DATA, false));
                       },
                       [] {
                           return std::vector{user(3999999991, "alice"), user(3999999992, "bob")};
                       },
                       [](std::uint32_t) { return std::vector<std::uint32_t>(); },
                       [](const NSURL& url) { return url; },
                       [this] { return goesOn; }};
};

TEST_F(WhoCan, SaysThatTheUsersWereNotListedInTime) {
    parts.identities = [] { return std::optional<std::vector<CBIdentityRef>>(); };
    const auto outcome = run({{"notes"}, "read", true});
    EXPECT_EQ(outcome.exitCode, ExitSuccess);
    EXPECT_TRUE(has(outcome.output, "uid 3999999990"));
    EXPECT_TRUE(
        outcome.output.ends_with("The users of this system were not listed in time; told are "
                                 "those whom the list names.\n"))
        << outcome.output;
    EXPECT_TRUE(has(run({{"notes"}, "read", true, true}).output, "\"complete\": false"));
}

TEST_F(WhoCan, NamesThoseWhoHaveWhatEveryoneHasOnlyIfAsked) {
    const auto brief = run({{"notes"}, "read"}).output;
    EXPECT_FALSE(has(brief, "alice"));
    EXPECT_TRUE(has(brief, "everyone else   everyone\n")) << brief;
    const auto whole = run({{"notes"}, "read", true}).output;
    EXPECT_TRUE(has(whole, "user alice      everyone\n")) << whole;
}

TEST_F(WhoCan, EndsAtOnceWhenTheUserHasStoppedIt) {
    goesOn = false;
    const auto outcome = run({{"notes", "more"}, ""});
    EXPECT_EQ(outcome.exitCode, ExitInterrupted);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.message, "morvane: stopped; the rest was not looked at.\n");
}

TEST_F(WhoCan, NamesAFolderAboveOnlyIfOneMayKeepOut) {
    parts.access = [](const NSURL&, const std::vector<NSUUID>& whom) {
        return std::vector<Result<PermissionList>>(whom.size(), permissionTree(0, false));
    };
    parts.list = [](const NSURL& url) {
        return url.lastPathComponent() == "notes" ? entries() : entries(PosixExecute, true);
    };
    const auto open = run({{"/top/notes"}, "read"}).output;
    EXPECT_TRUE(has(open, "The mount or a flag of the item forbids some of")) << open;
    EXPECT_FALSE(has(open, "keeps out")) << open;
    const auto refused = NSError::errorWithDomain(NSPOSIXErrorDomain, EACCES);
    parts.list = [&](const NSURL& url) -> Result<EntryList> {
        if (url.lastPathComponent() == "notes")
            return entries();
        return Failure{refused};
    };
    const auto unseen = run({{"/top/notes"}, "read"}).output;
    EXPECT_TRUE(has(unseen, "A folder above keeps out, whatever the list says: ")) << unseen;
    EXPECT_FALSE(has(unseen, "forbids")) << unseen;
}

TEST_F(WhoCan, TellsWhyThePermissionsAreNotKnown) {
    const auto gone = NSError::errorWithDomain(NSPOSIXErrorDomain, ENOENT);
    parts.access = [&](const NSURL&, const std::vector<NSUUID>& whom) {
        return std::vector<Result<PermissionList>>(whom.size(), Failure{gone});
    };
    const auto outcome = run({{"notes"}, ""});
    EXPECT_EQ(outcome.exitCode, ExitFailure);
    EXPECT_TRUE(outcome.message.starts_with("morvane: cannot tell the access to 'notes': "))
        << outcome.message;
}

}  // namespace
}  // namespace morvane
