// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <pwd.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "AclRequests.h"
#include "EffectiveAccess.h"
#include "Nfs4Access.h"
#include "PosixAccess.h"
#include "PosixAclReader.h"
#include "PosixAclWriter.h"
#include "TemporaryFolder.h"

// After the system's headers, which use some of these names.
#include <MorvaneOperation/acl_perms.h>

namespace morvane {
namespace {

/// What a process can find out about an item by trying.
enum Tried : int {
    CanRead = 1,
    CanWrite = 2,
    CanExecute = 4,
    CanCreate = 8,
    CanDelete = 16,
    CanSetAttribute = 32
};

/// Becomes the user, tries, and tells. Only calls that a child after fork may make.
int tryAs(const char* name, uid_t uid, gid_t gid, const std::string& path, bool isDirectory) {
    const std::string other = path + ".moved";
    const std::string inside = path + "/new";
    const pid_t child = fork();
    if (child == 0) {
        if (initgroups(name, gid) != 0 || setgid(gid) != 0 || setuid(uid) != 0)
            _exit(255);
        int result = 0;
        result |= access(path.c_str(), R_OK) == 0 ? CanRead : 0;
        result |= !isDirectory && access(path.c_str(), W_OK) == 0 ? CanWrite : 0;
        result |= access(path.c_str(), X_OK) == 0 ? CanExecute : 0;
        if (isDirectory && mkdir(inside.c_str(), 0700) == 0) {
            result |= CanCreate;
            rmdir(inside.c_str());
        }
        if (setxattr(path.c_str(), "user.morvane", "", 0, 0) == 0)
            result |= CanSetAttribute;
        // Taking the item out of its folder, and putting it back.
        if (rename(path.c_str(), other.c_str()) == 0) {
            result |= CanDelete;
            rename(other.c_str(), path.c_str());
        }
        _exit(result);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status);
}

int told(std::uint32_t boxes, bool isDirectory) {
    const auto has = [&](std::uint32_t box, int can) { return (boxes & box) != 0 ? can : 0; };
    int result = has(ACL_READ_DATA, CanRead) | has(ACL_SEARCH, CanExecute) |
                 has(ACL_WRITE_EXTATTRIBUTES, CanSetAttribute) | has(ACL_DELETE, CanDelete);
    return result |
           (isDirectory ? has(ACL_ADD_SUBDIRECTORY, CanCreate) : has(ACL_WRITE_DATA, CanWrite));
}

/// Makes the folder immutable or append-only, or neither again.
void setFlags(const std::string& path, int flags) {
    const FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    int now = 0;
    ASSERT_EQ(ioctl(folder.get(), FS_IOC_GETFLAGS, &now), 0);
    now = (now & ~(FS_IMMUTABLE_FL | FS_APPEND_FL)) | flags;
    ASSERT_EQ(ioctl(folder.get(), FS_IOC_SETFLAGS, &now), 0);
}

std::uint32_t boxesOf(const std::string& path, uid_t uid) {
    const auto opened = AclItem::open(path);
    const auto& item = *opened;
    return effectiveBoxes(item, *readPosixAcl(item), CBPosixUser{uid});
}

class EffectiveAccess : public testing::Test {
  protected:
    EffectiveAccess() {
        chmod(top_.c_str(), 0755);
        mkdir(folder_.c_str(), 0755);
    }
    ~EffectiveAccess() override { setFlags(folder_, 0); }

    std::uint32_t someId() { return static_cast<std::uint32_t>(random_() % 4); }
    PosixRights rights() { return static_cast<PosixRights>(random_() % 8); }

    PosixList list() {
        PosixList list{rights(), rights(), rights(), {}, {}, {}};
        for (const std::uint32_t id : {1U, 2U, 3U}) {
            if (random_() % 3 == 0)
                list.users.push_back({id, rights()});
            if (random_() % 3 == 0)
                list.groups.push_back({id, rights()});
        }
        if (!list.users.empty() || !list.groups.empty() || random_() % 4 == 0)
            list.mask = rights() | rights();
        return list;
    }

    void setList(const std::string& path, const PosixList& list) {
        const auto old = *readPosixAcl(path);
        auto acl = old;
        acl.access = list;
        ASSERT_EQ(writePosixAcl(path, old, acl), 0);
    }

    void stickOrNot(const std::string& path, bool isDirectory) {
        struct stat status {};
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        const auto sticky = isDirectory && random_() % 2 != 0 ? S_ISVTX : 0U;
        ASSERT_EQ(chmod(path.c_str(), (status.st_mode & 0777) | sticky), 0);
    }

    /// Random items and folders, with what four users find out by trying.
    void compareWithTheKernel(int rounds) {
        const std::string item = folder_ + "/item";
        for (int round = 0; round != rounds; ++round) {
            const bool isDirectory = round % 3 == 1;
            std::filesystem::remove_all(item);
            if (isDirectory)
                mkdir(item.c_str(), 0700);
            else if (round % 3 == 2)
                mkfifo(item.c_str(), 0600);
            else
                std::ofstream(item) << "text";
            const auto owner = someId();
            const auto group = someId();
            ASSERT_EQ(chown(item.c_str(), owner, group), 0);
            setList(item, list());
            stickOrNot(item, isDirectory);
            ASSERT_EQ(chown(folder_.c_str(), someId(), someId()), 0);
            setList(folder_, list());
            stickOrNot(folder_, true);
            ASSERT_EQ(chmod(top_.c_str(), random_() % 4 == 0 ? 0700 : 0755), 0);
            const int flags = std::array{0, 0, FS_IMMUTABLE_FL, FS_APPEND_FL}[random_() % 4];
            ASSERT_NO_FATAL_FAILURE(setFlags(folder_, flags));

            for (const uid_t uid : {0U, 1U, 2U, 65534U}) {
                const auto* const user = getpwuid(uid);
                ASSERT_TRUE(user);
                const int expected = told(boxesOf(item, uid), isDirectory);
                EXPECT_EQ(tryAs(user->pw_name, uid, user->pw_gid, item, isDirectory), expected)
                    << "round " << round << ", uid " << uid << ", flags " << flags << "\n"
                    << (std::system(("getfacl -p -n " + folder_ + " " + item + " >&2").c_str()),
                        "");
            }
            ASSERT_NO_FATAL_FAILURE(setFlags(folder_, 0));
        }
    }

    std::mt19937 random_{20260101};
    const TemporaryFolder temporary_;
    const std::string top_ = temporary_.path();
    const std::string folder_ = top_ + "/folder";
};

TEST_F(EffectiveAccess, IsWhatTheKernelLetsTheUserDo) {
    ASSERT_EQ(geteuid(), 0U) << "the tests of access become other users, which only root may";
    compareWithTheKernel(300);
}

TEST_F(EffectiveAccess, CountsAllGroupsOfAUser) {
    const auto child = fork();
    if (child == 0) {
        // For this process, the users are in further groups of those that the lists name.
        const auto groups = top_ + "/group";
        std::ofstream(groups)
            << "root:x:0:\ndaemon:x:1:bin,nobody\nbin:x:2:nobody\nsys:x:3:daemon,bin\n"
               "nogroup:x:65534:\n";
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount(groups.c_str(), "/etc/group", nullptr, MS_BIND, nullptr) != 0)
            _exit(1);
        if (CBIdentityAuthority::defaultIdentityAuthority().database().groupsOfUser(2).size() != 3)
            _exit(2);
        compareWithTheKernel(150);
        _exit(HasFailure() ? 3 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(EffectiveAccess, AMountPointIsNotDeleted) {
    ASSERT_EQ(mount("none", folder_.c_str(), "tmpfs", 0, nullptr), 0);
    const auto boxes = boxesOf(folder_, 0);
    const int result = tryAs("root", 0, 0, folder_, true);
    umount2(folder_.c_str(), MNT_DETACH);
    EXPECT_EQ(boxes & ACL_DELETE, 0U);
    EXPECT_EQ(result & CanDelete, 0);
    EXPECT_NE(boxesOf(folder_, 0) & ACL_DELETE, 0U);
}

TEST_F(EffectiveAccess, TheTopmostFolderIsReachedAndNotDeleted) {
    EXPECT_EQ(boxesOf("/", 0) & (ACL_DELETE | ACL_READ_DATA), std::uint32_t{ACL_READ_DATA});
    EXPECT_EQ(boxesOf("/", 65534) & (ACL_DELETE | ACL_READ_DATA), std::uint32_t{ACL_READ_DATA});
}

TEST_F(EffectiveAccess, WhoCannotEnterAFolderFarAboveHasNothing) {
    std::filesystem::create_directories(folder_ + "/1/2/3");
    std::ofstream(folder_ + "/1/2/3/file") << "text";
    EXPECT_NE(boxesOf(folder_ + "/1/2/3/file", 65534), 0U);
    ASSERT_EQ(chmod(folder_.c_str(), 0700), 0);
    EXPECT_EQ(boxesOf(folder_ + "/1/2/3/file", 65534), 0U);
    EXPECT_NE(boxesOf(folder_ + "/1/2/3/file", 0), 0U);
}

TEST_F(EffectiveAccess, ALinkInThePlaceOfTheFolderIsNotFollowed) {
    mkdir((top_ + "/other").c_str(), 0777);
    std::ofstream(folder_ + "/file") << "text";
    const auto opened = AclItem::open(folder_ + "/file");
    const auto& item = *opened;
    const auto acl = *readPosixAcl(item);
    EXPECT_NE(effectiveBoxes(item, acl, CBPosixUser{0}) & ACL_DELETE, 0U);
    std::filesystem::remove_all(folder_);
    ASSERT_EQ(symlink((top_ + "/other").c_str(), folder_.c_str()), 0);
    std::ofstream(top_ + "/other/file (deleted)") << "text";
    EXPECT_EQ(effectiveBoxes(item, acl, CBPosixUser{0}) & ACL_DELETE, 0U);
}

TEST_F(EffectiveAccess, AnAttributeOfAnyLengthIsRead) {
    const auto opened = AclItem::open(folder_);
    const auto& item = *opened;
    for (const std::size_t size : {0U, 1U, 1023U, 1024U, 1025U, 3000U}) {
        const std::vector<std::uint8_t> value(size, 7);
        ASSERT_EQ(setxattr(folder_.c_str(), "user.morvane", value.data(), size, 0), 0);
        const auto read = readAttribute(item, "user.morvane");
        ASSERT_TRUE(read) << size;
        EXPECT_EQ(*read, value);
    }
    EXPECT_EQ(readAttribute(item, "user.none").error(), ENODATA);
}

class AccessOfAList : public testing::Test {
  protected:
    static PosixRights of(const CBPosixIdentity& who, const PosixList& list,
                          bool isDirectory = false) {
        return effectiveRights({1000000, 1000001, isDirectory, list, {}}, who);
    }
    static constexpr PosixRights none = PosixNothing;
    static constexpr PosixRights r = PosixRead;
    static constexpr PosixRights rw = PosixRead | PosixWrite;
    static constexpr PosixRights x = PosixExecute;
};

TEST_F(AccessOfAList, TheOwnersRightsAreTheirOwnEvenWhereOthersHaveMore) {
    EXPECT_EQ(of(CBPosixUser{1000000}, {none, rw, rw, {}, {}, {}}), none);
}

TEST_F(AccessOfAList, TheMaskBoundsNamedUsersAndGroups) {
    const PosixList list{rw, rw, none, r, {{1000002, rw}}, {{1000003, rw}}};
    EXPECT_EQ(of(CBPosixUser{1000002}, list), r);
    EXPECT_EQ(of(CBPosixGroup{1000003}, list), r);
    EXPECT_EQ(of(CBPosixGroup{1000001}, list), r);
}

TEST_F(AccessOfAList, AGroupThatTheListDoesNotNameHasWhatOthersHave) {
    EXPECT_EQ(of(CBPosixGroup{1000009}, {rw, rw, x, {}, {}, {}}), x);
    EXPECT_EQ(of(CBEveryone{}, {rw, rw, x, {}, {}, {}}), x);
}

TEST_F(AccessOfAList, AMaskThatLetsNothingThroughLeavesTheNamedWithWhatStrangersHave) {
    const PosixList list{rw, rw, r, none, {{1000002, rw}}, {{1000003, rw}}};
    EXPECT_EQ(of(CBPosixUser{1000002}, list), r);
    EXPECT_EQ(of(CBPosixGroup{1000003}, list), r);
    EXPECT_EQ(of(CBPosixGroup{1000001}, list), none);
}

TEST_F(AccessOfAList, RootExecutesOnlyWhatAnybodyMay) {
    EXPECT_EQ(of(CBPosixUser{0}, {rw, none, none, {}, {}, {}}), rw);
    EXPECT_EQ(of(CBPosixUser{0}, {rw, none, none, x, {{1000002, x}}, {}}), rw | x);
    EXPECT_EQ(of(CBPosixUser{0}, {rw, x, none, none, {}, {}}), rw);
    EXPECT_EQ(of(CBPosixUser{0}, {none, none, none, {}, {}, {}}, true), rw | x);
}

TEST(AclAccess, IsATreeOfThreeGroups) {
    const auto answer = aclAccessOfUrl(NSURL::fileURLWithPath("/etc/passwd"),
                                       uuidOfPosixIdentity(CBPosixUser{65534}));
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->size(), 3U);
    EXPECT_EQ(MVTreeNode::permissionOf(*(*answer)[0])->name(), "Read");
    EXPECT_EQ(MVTreeNode::stateOf(*(*answer)[0]), MVStateMixed);
    EXPECT_EQ(MVTreeNode::stateOf(*(*answer)[1]), MVStateOff);
}

TEST(AclAccess, AnIdentityThatIsNoUserOrGroupIsRefused) {
    const auto answer =
        aclAccessOfUrl(NSURL::fileURLWithPath("/etc/passwd"),
                       *NSUUID::initWithUUIDString("11111111-2222-3333-4444-555555555555"));
    ASSERT_FALSE(answer);
    EXPECT_EQ(answer.error()->code(), EINVAL);
    EXPECT_EQ(answer.error()->localizedDescription(),
              "The identity is no user or group of this system.");
}

}  // namespace
}  // namespace morvane
