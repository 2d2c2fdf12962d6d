// SPDX-License-Identifier: MIT
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/acl_perms.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "PosixAclWriter.h"
#include "PropagateRequests.h"
#include "PropagationTest.h"
#include "helpers/SilentMount.h"

namespace morvane {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t thisItem = ACL_ENTRY_ONLY_INHERIT;
constexpr std::uint32_t childFiles = ACL_ENTRY_FILE_INHERIT;
constexpr std::uint32_t childFolders = ACL_ENTRY_DIRECTORY_INHERIT;
constexpr std::uint32_t allDescendants = ACL_ENTRY_LIMIT_INHERIT;

std::shared_ptr<MVAclEntry> entry(const CBPosixIdentity& who, PosixRights rights,
                                  std::uint32_t applies, std::int32_t tag = 1) {
    auto nodes = permissionTree(boxesOfRights(rights, tag == 2, false, true), true);
    nodes.push_back(appliesToNode(applies));
    return MVAclEntry::initWithUuid(uuidOfPosixIdentity(who), tag, std::move(nodes), false);
}

void write(const std::string& path, const PosixList& access,
           const std::optional<PosixList>& defaults = std::nullopt) {
    const auto old = aclOf(path);
    auto acl = old;
    acl.access = access;
    acl.defaults = defaults;
    ASSERT_EQ(writePosixAcl(path, old, acl), 0);
}

using PropagateRequests = PropagationTest;

TEST_F(PropagateRequests, EverythingBelowGetsWhatItInherits) {
    const PosixList access{rwx, rx, rx, rwx, {{alice, rwx}}, {}};
    const PosixList defaults{rwx, rx, none, rwx, {{alice, rwx}}, {{staff, rx}}};
    write(top_, access, defaults);
    ASSERT_EQ(propagate(own()), nullptr);

    const PosixList folder{rwx, rx, none, rwx, {{alice, rwx}}, {{staff, rx}}};
    for (const auto* const path : {"/sub", "/sub/deep"}) {
        EXPECT_EQ(aclOf(top_ + path).access, folder) << path;
        EXPECT_EQ(aclOf(top_ + path).defaults, defaults) << path;
    }
    EXPECT_EQ(aclOf(top_ + "/program").access, folder);
    EXPECT_EQ(aclOf(top_).access, access) << "the folder itself stays";
}

TEST_F(PropagateRequests, AFileThatNobodyCanExecuteStaysSo) {
    write(top_, {rwx, rx, rx, {}, {}, {}}, PosixList{rwx, rx, rx, rwx, {{alice, rwx}}, {}});
    ASSERT_EQ(propagate(own()), nullptr);
    const PosixList expected{rw, r, r, rw, {{alice, rwx}}, {}};
    EXPECT_EQ(aclOf(top_ + "/file").access, expected);
    EXPECT_EQ(aclOf(top_ + "/sub/deep/file").access, expected);
    EXPECT_EQ(modeOf(top_ + "/program") & 0111, 0111U);
}

TEST_F(PropagateRequests, AFolderWithoutInheritedEntriesGivesItsOwnThreeClasses) {
    chmod(top_.c_str(), 0750);
    write(top_ + "/sub", {rwx, rwx, rwx, rwx, {{alice, rwx}}, {}},
          PosixList{rwx, r, r, {}, {}, {}});
    ASSERT_EQ(propagate(own()), nullptr);
    EXPECT_EQ(modeOf(top_ + "/file"), 0640U);
    EXPECT_EQ(modeOf(top_ + "/program"), 0750U);
    EXPECT_EQ(modeOf(top_ + "/sub"), 0750U);
    EXPECT_EQ(aclOf(top_ + "/sub").access, (PosixList{rwx, rx, none, {}, {}, {}}));
    EXPECT_EQ(aclOf(top_ + "/sub").defaults, std::nullopt);
}

TEST_F(PropagateRequests, TheOwnerAndTheGroupOfTheEntriesAreGiven) {
    ASSERT_EQ(chown(top_.c_str(), 30001, 30002), 0);
    ASSERT_EQ(propagate(own()), nullptr);
    for (const auto* const path : {"/file", "/program", "/sub", "/sub/deep/file"}) {
        EXPECT_EQ(aclOf(top_ + path).owner, 30001U) << path;
        EXPECT_EQ(aclOf(top_ + path).group, 30002U) << path;
    }
}

TEST_F(PropagateRequests, AnEntryForTheFolderAloneReachesNothing) {
    ASSERT_EQ(propagate(ownAnd(entry(CBPosixUser{alice}, rx, thisItem))), nullptr);
    EXPECT_TRUE(aclOf(top_ + "/file").access.users.empty());
    EXPECT_TRUE(aclOf(top_ + "/sub").access.users.empty());
}

TEST_F(PropagateRequests, AnEntryForChildFilesReachesNoFolder) {
    ASSERT_EQ(propagate(ownAnd(entry(CBPosixUser{alice}, r, childFiles | allDescendants))),
              nullptr);
    EXPECT_EQ(aclOf(top_ + "/file").access.users, (std::vector<PosixNamedRights>{{alice, r}}));
    EXPECT_TRUE(aclOf(top_ + "/sub").access.users.empty());
    EXPECT_TRUE(aclOf(top_ + "/sub/file").access.users.empty());
}

TEST_F(PropagateRequests, AnEntryForOneLevelGoesNoDeeper) {
    ASSERT_EQ(propagate(ownAnd(entry(CBPosixUser{alice}, r, childFiles | childFolders))), nullptr);
    const std::vector<PosixNamedRights> reached{{alice, r}};
    EXPECT_EQ(aclOf(top_ + "/file").access.users, reached);
    EXPECT_EQ(aclOf(top_ + "/sub").access.users, reached);
    EXPECT_EQ(aclOf(top_ + "/sub").defaults, std::nullopt);
    EXPECT_TRUE(aclOf(top_ + "/sub/file").access.users.empty());
    EXPECT_TRUE(aclOf(top_ + "/sub/deep").access.users.empty());
}

TEST_F(PropagateRequests, AnInheritedEntryOfAClassCountsForIt) {
    ASSERT_EQ(propagate(ownAnd(entry(CBEveryone{}, r, childFiles | childFolders | allDescendants))),
              nullptr);
    EXPECT_EQ(aclOf(top_ + "/file").access.others, r);
    EXPECT_EQ(aclOf(top_ + "/sub/deep").access.others, r);
}

TEST_F(PropagateRequests, WhatTheFileSystemCannotHoldIsRefusedBeforeAnythingChanges) {
    chmod(top_.c_str(), 0755);
    const auto before = aclOf(top_ + "/file");
    // Sub-folders would have to hand it to their files and not to their folders.
    auto oddly = entry(CBPosixUser{alice}, r, thisItem | childFolders | allDescendants);
    const auto error = propagate(ownAnd(oddly));
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(error->code(), EOPNOTSUPP);
    EXPECT_NE(error->localizedDescription().find(
                  "The file system cannot hold all that is inherited. It would lose: entry 4 ("),
              std::string::npos)
        << error->localizedDescription();
    const auto losses = lossesOfError(*error);
    ASSERT_FALSE(losses.empty());
    EXPECT_EQ(losses[0].entry, own().size());
    EXPECT_EQ(losses[0].reason, EntryLossReason::inheritance);
    EXPECT_EQ(aclOf(top_ + "/file"), before);
}

TEST_F(PropagateRequests, EntriesOfAFileAreRefused) {
    auto entries = own();
    entries.push_back(MVAclEntry::initWithUuid(uuidOfPosixIdentity(CBPosixUser{alice}), 1,
                                               permissionTree(ACL_READ_DATA, false), false));
    chmod(top_.c_str(), 0755);
    ASSERT_EQ(propagate(entries), nullptr) << "an entry that reaches nothing is no harm";
    EXPECT_TRUE(aclOf(top_ + "/file").access.users.empty());
}

TEST_F(PropagateRequests, SomethingElseThanAFolderIsRefused) {
    const auto file = NSURL::fileURLWithPath(top_ + "/file");
    EXPECT_EQ(propagateAclEntriesBelow(own(), file, {})->code(), ENOTDIR);
    EXPECT_EQ(propagateAclEntriesBelow(own(), NSURL::fileURLWithPath(top_ + "/no"), {})->code(),
              ENOENT);
    EXPECT_EQ(propagateAclEntriesBelow(own(), *NSURL::URLWithString("https://a/b"), {})->code(),
              EINVAL);
}

TEST_F(PropagateRequests, LinksAreNotFollowedAndOtherThingsAreLeftAlone) {
    fs::create_directory(outside_ + "/elsewhere");
    makeFile(outside_ + "/elsewhere/file");
    chmod((outside_ + "/elsewhere").c_str(), 0700);
    fs::create_symlink(outside_ + "/elsewhere", top_ + "/to-folder");
    fs::create_symlink(outside_ + "/elsewhere/file", top_ + "/to-file");
    fs::create_symlink("..", top_ + "/sub/loop");
    ASSERT_EQ(mkfifo((top_ + "/pipe").c_str(), 0600), 0);
    chmod(top_.c_str(), 0755);
    ASSERT_EQ(propagate(own()), nullptr);
    EXPECT_EQ(modeOf(outside_ + "/elsewhere"), 0700U);
    EXPECT_EQ(modeOf(outside_ + "/elsewhere/file"), 0600U);
    EXPECT_EQ(modeOf(top_ + "/pipe"), 0600U);
    EXPECT_EQ(modeOf(top_ + "/file"), 0644U);
}

TEST_F(PropagateRequests, AnotherFileSystemIsNotEntered) {
    chmod(top_.c_str(), 0755);
    fs::create_directory(top_ + "/mounted");
    const auto code = exitCodeOf([&] {
        if (!hasOwnMounts() ||
            mount("none", (top_ + "/mounted").c_str(), "tmpfs", 0, "mode=700") != 0)
            return 1;
        makeFile(top_ + "/mounted/file");
        if (propagate(own()))
            return 2;
        if (modeOf(top_ + "/mounted") != 0700 || modeOf(top_ + "/mounted/file") != 0600)
            return 3;
        return modeOf(top_ + "/file") == 0644 ? 0 : 4;
    });
    EXPECT_EQ(code, 0);
}

TEST_F(PropagateRequests, AProgramThatGetsAnotherOwnerDoesNotRunAsThatOne) {
    // Without lists in the file system, the mode is written.
    for (const auto* const type : {"ramfs", "tmpfs"}) {
        const auto code = exitCodeOf([&] {
            if (!hasOwnMounts() || mount("none", top_.c_str(), type, 0, "mode=711") != 0)
                return 1;
            for (const auto& [name, mode] : {std::pair("/setuid", 04755),
                                             {"/setgid", 02755},
                                             {"/inert", 02744},
                                             {"/both", 06700},
                                             {"/mine", 04755}}) {
                makeFile(top_ + name);
                if (name == std::string("/mine") ||
                    chown((top_ + name).c_str(), ordinaryUser, ordinaryUser) == 0)
                    chmod((top_ + name).c_str(), static_cast<mode_t>(mode));
            }
            if (propagate(own()))
                return 2;
            if (aclOf(top_ + "/setuid").owner != 0 || modeOf(top_ + "/setuid") != 0711)
                return 3;
            if (modeOf(top_ + "/setgid") != 0711)
                return 4;
            // The kernel leaves setgid where the group cannot execute, and the list lets it
            // execute.
            if (modeOf(top_ + "/inert") != 0711 || modeOf(top_ + "/both") != 0711)
                return 6;
            return modeOf(top_ + "/mine") == 04711 ? 0 : 5;
        });
        EXPECT_EQ(code, 0) << type;
    }
}

TEST_F(PropagateRequests, WhatIsThereAlreadyIsNotWritten) {
    auto access = aclOf(top_).access;
    access.mask = rwx;
    for (std::uint32_t user = 0; user != 160; ++user)
        access.users.push_back({alice + user, rx});
    write(top_, access, access);
    ASSERT_EQ(propagate(own()), nullptr);
    const auto changed = [&](const std::string& path) {
        struct stat status {};
        EXPECT_EQ(lstat((top_ + path).c_str(), &status), 0);
        return std::pair(status.st_ctim.tv_sec, status.st_ctim.tv_nsec);
    };
    const auto file = changed("/file");
    const auto folder = changed("/sub");
    ASSERT_EQ(aclOf(top_ + "/sub/file").access.users.size(), 160U);
    ASSERT_EQ(propagate(own()), nullptr);
    EXPECT_EQ(changed("/file"), file);
    EXPECT_EQ(changed("/sub"), folder);
}

TEST_F(PropagateRequests, OnBehalfOfAUserAFileWithFurtherNamesIsLeftAlone) {
    chmod(top_.c_str(), 0755);
    fs::create_hard_link(top_ + "/file", outside_ + "/other-name");
    const auto error = propagate(own(), PathRule{ordinaryUser});
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->code(), EMLINK);
    EXPECT_EQ(modeOf(outside_ + "/other-name"), 0600U);
    EXPECT_EQ(modeOf(top_ + "/sub/file"), 0644U);
}

TEST_F(PropagateRequests, OnBehalfOfAUserNoLinkLeadsToTheFolder) {
    fs::create_directory_symlink(top_, outside_ + "/link");
    const auto error = propagateAclEntriesBelow(
        own(), NSURL::fileURLWithPath(outside_ + "/link/sub"), {}, PathRule{ordinaryUser});
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->code(), ELOOP);
}

TEST_F(PropagateRequests, SetuidSetgidAndStickySurviveWhereTheOwnerStays) {
    chmod(top_.c_str(), 0755);
    chmod((top_ + "/program").c_str(), 06711);
    chmod((top_ + "/sub").c_str(), 03700);
    ASSERT_EQ(propagate(own()), nullptr);
    EXPECT_EQ(modeOf(top_ + "/program"), 06755U);
    EXPECT_EQ(modeOf(top_ + "/sub"), 03755U);
}

}  // namespace
}  // namespace morvane
