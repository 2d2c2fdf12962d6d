// SPDX-License-Identifier: MIT
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/acl_perms.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "AclPropagation.h"
#include "AclRequests.h"
#include "Nfs4Inheritance.h"
#include "Nfs4Names.h"
#include "PosixAclReader.h"
#include "PosixAclWriter.h"
#include "PosixInheritance.h"
#include "PropagateRequests.h"
#include "helpers/SilentMount.h"

namespace morvane {
namespace {

namespace fs = std::filesystem;

constexpr PosixRights r = PosixRead;
constexpr PosixRights none = PosixNothing;
constexpr PosixRights rw = PosixRead | PosixWrite;
constexpr PosixRights rx = PosixRead | PosixExecute;
constexpr PosixRights rwx = PosixEverything;
constexpr std::uint32_t alice = 30003;
constexpr std::uint32_t staff = 30005;
constexpr uid_t ordinaryUser = 65534;
/// The interval of a request whose client is not there to be asked.
constexpr std::chrono::hours unasked{1};

constexpr std::uint32_t thisItem = ACL_ENTRY_ONLY_INHERIT;
constexpr std::uint32_t childFiles = ACL_ENTRY_FILE_INHERIT;
constexpr std::uint32_t childFolders = ACL_ENTRY_DIRECTORY_INHERIT;
constexpr std::uint32_t allDescendants = ACL_ENTRY_LIMIT_INHERIT;

using Entries = std::vector<std::shared_ptr<MVAclEntry>>;

std::shared_ptr<MVAclEntry> entry(const CBPosixIdentity& who, PosixRights rights,
                                  std::uint32_t applies, std::int32_t tag = 1) {
    auto nodes = permissionTree(boxesOfRights(rights, tag == 2, false, true), true);
    nodes.push_back(appliesToNode(applies));
    return MVAclEntry::initWithUuid(uuidOfPosixIdentity(who), tag, std::move(nodes), false);
}

PosixAcl aclOf(const std::string& path) {
    auto acl = readPosixAcl(path);
    EXPECT_TRUE(acl) << path;
    return *acl;
}

void write(const std::string& path, const PosixList& access,
           const std::optional<PosixList>& defaults = std::nullopt) {
    const auto old = aclOf(path);
    auto acl = old;
    acl.access = access;
    acl.defaults = defaults;
    ASSERT_EQ(writePosixAcl(path, old, acl), 0);
}

mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

ino_t inodeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_ino;
}

/// A folder `top` with the files "file" and "program" and the folder "sub", which has a file and a
/// folder with a file.
class PropagateRequests : public testing::Test {
  protected:
    PropagateRequests() {
        char pattern[] = "/tmp/morvane-propagate.XXXXXX";
        outside_ = mkdtemp(pattern);
        top_ = outside_ + "/top";
        fs::create_directories(top_ + "/sub/deep");
        // Who is named after everyone has at least what everyone has.
        chmod(top_.c_str(), 0700);
        for (const auto* const file : {"/file", "/program", "/sub/file", "/sub/deep/file"})
            makeFile(top_ + file);
        chmod((top_ + "/program").c_str(), 0755);
    }
    ~PropagateRequests() override { fs::remove_all(outside_); }

    static void makeFile(const std::string& path) {
        std::ofstream(path) << "text";
        ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    }

    NSURL url() const { return NSURL::fileURLWithPath(top_); }
    Entries own() const {
        auto answer = aclEntriesOfUrl(url());
        EXPECT_TRUE(answer);
        return *answer;
    }
    NSErrorRef propagate(const Entries& entries, const PathRule& rule = {}) const {
        return propagateAclEntriesBelow(entries, url(), {}, rule, unasked);
    }
    Entries ownAnd(const std::shared_ptr<MVAclEntry>& more) const {
        auto entries = own();
        entries.push_back(more);
        return entries;
    }

    std::string outside_;
    std::string top_;
};

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

TEST_F(PropagateRequests, AFolderWithSetgidOfAnotherGroupIsNoFailureIfItHasItsListAlready) {
    chmod(outside_.c_str(), 0755);
    chmod(top_.c_str(), 0755);
    constexpr gid_t otherGroup = 1;
    for (const auto* const path :
         {"", "/file", "/program", "/sub", "/sub/file", "/sub/deep", "/sub/deep/file"})
        ASSERT_EQ(chown((top_ + path).c_str(), ordinaryUser, otherGroup), 0);
    ASSERT_EQ(chmod((top_ + "/sub").c_str(), 02755), 0);
    ASSERT_EQ(propagate(own()), nullptr);
    EXPECT_EQ(exitCodeOf([&] {
                  if (setgid(ordinaryUser) != 0 || setuid(ordinaryUser) != 0)
                      return 1;
                  return propagate(own()) ? 2 : 0;
              }),
              0);
    EXPECT_EQ(modeOf(top_ + "/sub"), 02755U);
}

TEST_F(PropagateRequests, WhatCannotBeChangedIsCountedAndTheRestIsChanged) {
    ASSERT_EQ(chown(outside_.c_str(), ordinaryUser, ordinaryUser), 0);
    for (const auto* const path : {"", "/program", "/sub", "/sub/file", "/sub/deep"})
        ASSERT_EQ(chown((top_ + path).c_str(), ordinaryUser, ordinaryUser), 0);
    chmod(top_.c_str(), 0755);
    const auto code = exitCodeOf([&] {
        if (setgid(ordinaryUser) != 0 || setuid(ordinaryUser) != 0)
            return 1;
        const auto error = propagate(own());
        if (!error || error->domain() != NSPOSIXErrorDomain || error->code() != EPERM)
            return 2;
        const auto text = error->localizedDescription();
        if (!text.starts_with("2 items could not be changed, the others are; the first are "))
            return 3;
        if (text.find('"' + top_ + "/file\" (Operation not permitted)") == std::string::npos ||
            text.find('"' + top_ + "/sub/deep/file\" (Operation not permitted)") ==
                std::string::npos)
            return 4;
        return 0;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(modeOf(top_ + "/file"), 0600U);
    EXPECT_EQ(aclOf(top_ + "/file").owner, 0U);
    EXPECT_EQ(modeOf(top_ + "/sub/file"), 0644U);
    EXPECT_EQ(modeOf(top_ + "/sub/deep"), 0755U);
}

InheritedLists plainLists() {
    InheritedLists lists;
    for (auto& level : lists.levels) {
        level.file = {rw, r, r, {}, {}, {}};
        level.executable = level.folder = {rwx, rx, rx, {}, {}, {}};
    }
    return lists;
}

FileDescriptor opened(const std::string& path) {
    return FileDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

/// Of a system that has too few of something.
class FailingWriter final : public InheritedWriter {
  public:
    Result<std::vector<EntryLoss>, WriteFailure> write(const OpenItem&, const struct stat&,
                                                       std::size_t) const override {
        return Failure{WriteFailure{ENOENT}};
    }
};

TEST_F(PropagateRequests, AWriteThatFindsNothingIsNotTakenForAnItemThatHasGone) {
    AclPropagation propagation;
    propagation.run(FailingWriter(), opened(top_), top_);
    EXPECT_EQ(propagation.items(), 6U);
    EXPECT_EQ(propagation.failures().count, 6U);
    EXPECT_EQ(propagation.failures().notReached, 0U) << "their contents could be dealt with";
}

TEST_F(PropagateRequests, AnAllowDenyListIsWrittenWithoutAFurtherDescriptor) {
    const Nfs4Item folder{{0, 0, true}, Nfs4Form::named, {}};
    EntryLossSet losses;
    const auto writer = inheritedEntriesWriter({}, folder, systemNfs4Names(), losses);
    struct stat status {};
    ASSERT_EQ(stat(top_.c_str(), &status), 0);
    const FileDescriptor item(open(top_.c_str(), O_RDONLY | O_CLOEXEC));
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    // A sanitizer looks at the object once, and needs descriptors for it.
    EXPECT_EQ(writer->write({item.get(), {}}, status, 0).error().code, EOPNOTSUPP)
        << "there is no such list";
    // All numbers up to the item's are taken.
    const rlimit few{static_cast<rlim_t>(item.get()) + 1, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_EQ(writer->write({item.get(), {}}, status, 0).error().code, EOPNOTSUPP);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(PropagateRequests, OnlyTheFirstFailuresAreNamed) {
    ASSERT_EQ(chown(top_.c_str(), ordinaryUser, ordinaryUser), 0);
    chmod(outside_.c_str(), 0755);
    chmod(top_.c_str(), 0755);
    for (int i = 0; i != 10; ++i)
        makeFile(top_ + "/more" + std::to_string(i));
    const auto code = exitCodeOf([&] {
        if (setgid(ordinaryUser) != 0 || setuid(ordinaryUser) != 0)
            return 1;
        const auto text = propagate(own())->localizedDescription();
        std::size_t named = 0;
        for (auto at = text.find(" ("); at != std::string::npos; at = text.find(" (", at + 1))
            ++named;
        return named == 5 && text.starts_with("16 items could not") ? 0 : 2;
    });
    EXPECT_EQ(code, 0);
}

TEST_F(PropagateRequests, AFolderThatCannotBeEnteredIsCountedOnceAndSaidToBeClosed) {
    ASSERT_EQ(chown(outside_.c_str(), ordinaryUser, ordinaryUser), 0);
    for (const auto* const path : {"", "/file", "/program"})
        ASSERT_EQ(chown((top_ + path).c_str(), ordinaryUser, ordinaryUser), 0);
    chmod(top_.c_str(), 0755);
    chmod((top_ + "/sub").c_str(), 0700);
    EXPECT_EQ(exitCodeOf([&] {
                  if (setgid(ordinaryUser) != 0 || setuid(ordinaryUser) != 0)
                      return 1;
                  const auto error = propagate(own());
                  if (!error || error->code() != EPERM)
                      return 2;
                  return error->localizedDescription() ==
                                 "1 item could not be changed or entered, and what is below it was "
                                 "not reached; the others are changed; the first is \"" +
                                     top_ + "/sub\" (Operation not permitted)"
                             ? 0
                             : 3;
              }),
              0);
    EXPECT_EQ(modeOf(top_ + "/file"), 0644U);
}

TEST_F(PropagateRequests, AFolderThatItsNewListOpensIsEntered) {
    for (const auto* const path :
         {"", "/file", "/program", "/sub", "/sub/file", "/sub/deep", "/sub/deep/file"})
        ASSERT_EQ(chown((top_ + path).c_str(), ordinaryUser, ordinaryUser), 0);
    chmod(outside_.c_str(), 0755);
    chmod(top_.c_str(), 0750);
    chmod((top_ + "/sub").c_str(), 0000);
    chmod((top_ + "/file").c_str(), 0000);
    EXPECT_EQ(exitCodeOf([&] {
                  if (setgid(ordinaryUser) != 0 || setuid(ordinaryUser) != 0)
                      return 1;
                  return propagate(own()) ? 2 : 0;
              }),
              0);
    EXPECT_EQ(modeOf(top_ + "/file"), 0640U);
    EXPECT_EQ(modeOf(top_ + "/sub"), 0750U);
    EXPECT_EQ(modeOf(top_ + "/sub/deep/file"), 0640U);
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

/// Fails everything, and has the work cancelled while it is at the second item.
class CancellingWriter final : public InheritedWriter {
  public:
    Result<std::vector<EntryLoss>, WriteFailure> write(const OpenItem&, const struct stat&,
                                                       std::size_t) const override {
        if (++written_ == cancelledAt_)
            propagation->cancel();
        return Failure{WriteFailure{ENOSPC}};
    }
    explicit CancellingWriter(int cancelledAt) : cancelledAt_(cancelledAt) {}

    AclPropagation* propagation = nullptr;

  private:
    const int cancelledAt_;
    mutable std::atomic<int> written_ = 0;
};

/// Of a propagation in a folder with files only, which one thread writes one after the other.
NSErrorRef cancelledAfterFailing(const std::string& folder, int items) {
    AclPropagation propagation;
    CancellingWriter writer(items);
    writer.propagation = &propagation;
    propagation.run(writer, opened(folder), folder);
    return outcomeOfPropagation(propagation, {}, NSURL::fileURLWithPath(folder));
}

TEST_F(PropagateRequests, ACancelledOneTellsWhatFailedBefore) {
    fs::remove_all(top_ + "/sub");
    makeFile(top_ + "/third");
    const auto error = cancelledAfterFailing(top_, 2);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(error->code(), ECANCELED);
    EXPECT_EQ(std::get<NSURL>(error->userInfo().at(NSURLErrorKey)), url());
    auto text = error->localizedDescription();
    // Whichever come first.
    for (const auto* const name : {"/file", "/program", "/third"}) {
        if (const auto at = text.find(top_ + name); at != std::string::npos)
            text.replace(at, top_.size() + std::strlen(name), "ITEM");
    }
    EXPECT_EQ(
        text,
        "The propagation was cancelled after 2 items. 2 items could not be changed; the first "
        "are \"ITEM\" (No space left on device), \"ITEM\" (No space left on device).");
}

TEST_F(PropagateRequests, ACancelledOneTellsASingleFailure) {
    EXPECT_EQ(cancelledAfterFailing(top_ + "/sub/deep", 1)->localizedDescription(),
              "The propagation was cancelled after 1 item. 1 item could not be changed; the first "
              "is \"" +
                  top_ + "/sub/deep/file\" (No space left on device).");
}

TEST_F(PropagateRequests, ACancelledOneWithoutFailuresTellsHowFarItCame) {
    AclPropagation propagation;
    propagation.cancel();
    propagation.run(*inheritedListWriter(plainLists()), opened(top_), top_);
    EXPECT_EQ(modeOf(top_ + "/file"), 0600U);
    const auto error = outcomeOfPropagation(propagation, {}, url());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), ECANCELED);
    EXPECT_EQ(error->localizedDescription(), "The propagation was cancelled after 0 items.");
}

/// A server that stores every list otherwise, but refuses the last one.
class RefusingLastWriter final : public InheritedWriter {
  public:
    explicit RefusingLastWriter(int items) : items_(items) {}
    Result<std::vector<EntryLoss>, WriteFailure> write(const OpenItem&, const struct stat&,
                                                       std::size_t) const override {
        if (++written_ == items_)
            return Failure{WriteFailure{EPERM}};
        return std::vector<EntryLoss>(1);
    }

  private:
    const int items_;
    mutable std::atomic<int> written_ = 0;
};

TEST_F(PropagateRequests, ARefusalIsNotHiddenByListsThatAreStoredOtherwise) {
    fs::remove_all(top_);
    fs::create_directory(top_);
    constexpr int items = 200;
    for (int i = 0; i != items; ++i)
        makeFile(top_ + "/file" + std::to_string(i));
    AclPropagation propagation;
    propagation.run(RefusingLastWriter(items), opened(top_), top_);
    EXPECT_EQ(propagation.failures().count, items);
    const auto error = outcomeOfPropagation(propagation, {}, url());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), EPERM);
    EXPECT_NE(error->localizedDescription().find("(Operation not permitted)"), std::string::npos)
        << error->localizedDescription();
}

/// A server that stores something else of every list.
class OtherwiseWriter final : public InheritedWriter {
  public:
    using Losses = std::function<std::vector<EntryLoss>(bool isFolder)>;
    explicit OtherwiseWriter(Losses losses) : losses_(std::move(losses)) {}
    Result<std::vector<EntryLoss>, WriteFailure> write(const OpenItem&, const struct stat& status,
                                                       std::size_t) const override {
        return losses_(S_ISDIR(status.st_mode));
    }

  private:
    const Losses losses_;
};

TEST_F(PropagateRequests, WhatAServerHasLeftOutIsToldOnceForAllItems) {
    const OtherwiseWriter writer([](bool isFolder) {
        std::vector<EntryLoss> losses{
            {7, EntryLossReason::stored, "Delete", "allow everyone", "not stored"},
            {0, EntryLossReason::stored, "Change Owner", "allow everyone", "not stored"},
            {1, EntryLossReason::stored, "Delete", "deny uid 4711", "not stored"}};
        losses.resize(isFolder ? 3 : 2);
        return losses;
    });
    AclPropagation propagation;
    propagation.run(writer, opened(top_), top_);
    const auto error = outcomeOfPropagation(propagation, own(), url());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), EREMOTEIO);
    const auto text = error->localizedDescription();
    EXPECT_TRUE(
        text.starts_with("6 items could not be changed as asked, the others are; the first "
                         "are "))
        << text;
    EXPECT_TRUE(
        text.ends_with(". The lists that are stored differ in: allow everyone: \"Change "
                       "Owner\", \"Delete\": not stored; deny uid 4711: \"Delete\": not "
                       "stored."))
        << text;
    const auto losses = lossesOfError(*error);
    ASSERT_EQ(losses.size(), 3U);
    EXPECT_EQ(losses[0].box, "Change Owner");
    EXPECT_EQ(identityText(*own()[losses[0].entry]->identity()), "everyone");
    EXPECT_EQ(losses[2].who, "deny uid 4711");
    EXPECT_EQ(losses[2].entry, own().size()) << "none of the entries is for them";
}

TEST_F(PropagateRequests, AServerThatMakesLossesUpCostsABound) {
    std::atomic<int> number = 0;
    const OtherwiseWriter writer([&](bool) {
        std::vector<EntryLoss> losses;
        for (int i = 0; i != 1000; ++i)
            losses.push_back({0, EntryLossReason::stored, "Delete",
                              "allow uid " + std::to_string(10000 + number++), "not stored"});
        return losses;
    });
    AclPropagation propagation;
    propagation.run(writer, opened(top_), top_);
    EXPECT_EQ(number, 6000);
    EXPECT_EQ(propagation.lost().size(), 2 * maxLossesCarried);
    const auto error = outcomeOfPropagation(propagation, own(), url());
    EXPECT_EQ(lossesOfError(*error).size(), maxLossesCarried);
    EXPECT_TRUE(error->localizedDescription().ends_with("\"Delete\": not stored; and more."));
    EXPECT_LT(error->localizedDescription().size(), 5000U);
}

TEST_F(PropagateRequests, AFileThatHasBecomeALinkSinceItWasListedIsLeftAlone) {
    /// Replaces what is beside the first file that it is to write by a link out of the tree.
    class Swapping final : public InheritedWriter {
      public:
        Swapping(std::string top, std::string target, std::vector<ino_t>& written)
            : top_(std::move(top)), target_(std::move(target)), written_(written) {}
        Result<std::vector<EntryLoss>, WriteFailure> write(const OpenItem&,
                                                           const struct stat& status,
                                                           std::size_t) const override {
            written_.push_back(status.st_ino);
            for (const auto* const name : {"/file", "/program"}) {
                if (written_.size() == 1 && inodeOf(top_ + name) != status.st_ino) {
                    fs::remove(top_ + name);
                    fs::create_symlink(target_, top_ + name);
                }
            }
            return std::vector<EntryLoss>();
        }

      private:
        const std::string top_;
        const std::string target_;
        std::vector<ino_t>& written_;
    };
    fs::remove_all(top_ + "/sub");
    makeFile(outside_ + "/elsewhere");
    std::vector<ino_t> written;
    AclPropagation propagation;
    // By a way that leads to no other mount, which would be refused as such.
    propagation.run(Swapping(top_, "../elsewhere", written), opened(top_), top_);
    EXPECT_EQ(written.size(), 1U);
    EXPECT_EQ(propagation.failures().count, 0U);
}

TEST_F(PropagateRequests, ATreeThatChangesUnderneathHarmsNothingElse) {
    fs::create_directory(outside_ + "/elsewhere");
    makeFile(outside_ + "/elsewhere/file");
    chmod((outside_ + "/elsewhere").c_str(), 0700);
    for (int i = 0; i != 50; ++i) {
        fs::create_directory(top_ + "/d" + std::to_string(i));
        makeFile(top_ + "/d" + std::to_string(i) + "/file");
    }
    std::atomic<bool> stop = false;
    std::thread changer([&] {
        std::error_code ignored;
        for (int i = 0; !stop; i = (i + 1) % 50) {
            const auto folder = top_ + "/d" + std::to_string(i);
            // The folder is one moment a folder, the next a link out of the tree, then gone.
            fs::rename(folder, outside_ + "/aside", ignored);
            fs::create_directory_symlink(outside_ + "/elsewhere", folder, ignored);
            fs::remove(folder, ignored);
            fs::remove(outside_ + "/aside/file", ignored);
            fs::rename(outside_ + "/aside", folder, ignored);
        }
    });
    const auto writer = inheritedListWriter(plainLists());
    for (int i = 0; i != 50; ++i) {
        AclPropagation propagation;
        propagation.run(*writer, opened(top_), top_);
        for (const auto& failure : propagation.failures().first)
            ADD_FAILURE() << failure.path << ": " << failure.code;
    }
    stop = true;
    changer.join();
    EXPECT_EQ(modeOf(outside_ + "/elsewhere"), 0700U);
    EXPECT_EQ(modeOf(outside_ + "/elsewhere/file"), 0600U);
    EXPECT_EQ(modeOf(top_ + "/file"), 0644U);
}

}  // namespace
}  // namespace morvane
