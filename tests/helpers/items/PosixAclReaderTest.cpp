// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "PosixAclReader.h"
#include "TemporaryFolder.h"

namespace morvane {
namespace {

/// A folder of its own for each test.
class PosixAclReader : public testing::Test {
  protected:
    PosixAclReader() { chmod(folder_.c_str(), 0755); }

    std::string file(mode_t mode) {
        const std::string path = folder_ + "/file";
        std::ofstream(path) << "text";
        chmod(path.c_str(), mode);
        return path;
    }
    std::string directory(mode_t mode) {
        const std::string path = folder_ + "/folder";
        mkdir(path.c_str(), mode);
        chmod(path.c_str(), mode);
        return path;
    }
    static void setfacl(const std::string& what, const std::string& path) {
        ASSERT_EQ(std::system(("setfacl " + what + " '" + path + "'").c_str()), 0);
    }
    static PosixAcl acl(const std::string& path) {
        const auto read = readPosixAcl(path);
        EXPECT_TRUE(read);
        return read ? *read : PosixAcl{};
    }
    static int failure(const std::string& path, AttributeProbe probe = systemAttributeProbe) {
        const auto read = readPosixAcl(path, probe);
        EXPECT_FALSE(read);
        return read ? 0 : read.error();
    }

    const TemporaryFolder temporary_;
    const std::string folder_ = temporary_.path();
};

TEST_F(PosixAclReader, AFileWithoutAListHasTheThreeClassesOfItsMode) {
    const PosixAcl list = acl(file(0640));
    EXPECT_EQ(list.owner, getuid());
    EXPECT_EQ(list.group, getgid());
    EXPECT_FALSE(list.isDirectory);
    EXPECT_EQ(list.access,
              (PosixList{PosixRead | PosixWrite, PosixRead, PosixNothing, {}, {}, {}}));
    EXPECT_FALSE(list.defaults);
}

TEST_F(PosixAclReader, NamedEntriesAndTheMaskAreReadAsStoredAndSortedById) {
    const std::string path = file(0600);
    setfacl("-m u:3002:rw,u:3001:r,g:4001:rx,m::r", path);
    EXPECT_EQ(acl(path).access, (PosixList{PosixRead | PosixWrite,
                                           PosixNothing,
                                           PosixNothing,
                                           PosixRead,
                                           {{3001, PosixRead}, {3002, PosixRead | PosixWrite}},
                                           {{4001, PosixRead | PosixExecute}}}));
}

TEST_F(PosixAclReader, AFoldersDefaultListIsRead) {
    const std::string path = directory(0755);
    setfacl("-d -m u:3001:rwx,o::-", path);
    const PosixAcl list = acl(path);
    EXPECT_TRUE(list.isDirectory);
    ASSERT_TRUE(list.defaults);
    EXPECT_EQ(*list.defaults, (PosixList{PosixEverything,
                                         PosixRead | PosixExecute,
                                         PosixNothing,
                                         PosixEverything,
                                         {{3001, PosixEverything}},
                                         {}}));
}

TEST_F(PosixAclReader, AFolderWithoutADefaultListHasNone) {
    EXPECT_FALSE(acl(directory(0755)).defaults);
}

TEST_F(PosixAclReader, ASymbolicLinkAtTheEndIsFollowed) {
    const std::string path = file(0604);
    const std::string link = folder_ + "/link";
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    EXPECT_EQ(acl(link), acl(path));
}

TEST_F(PosixAclReader, AFifoIsReadWithoutWaitingForItsOtherEnd) {
    const std::string path = folder_ + "/fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(acl(path).access.owner, PosixRead | PosixWrite);
}

TEST_F(PosixAclReader, ANameThatIsNotUtf8IsRead) {
    const std::string path = folder_ + "/\xff\n";
    std::ofstream(path) << "text";
    chmod(path.c_str(), 0400);
    EXPECT_EQ(acl(path).access.owner, PosixRead);
}

TEST_F(PosixAclReader, AFileSystemWithoutListsStillHasTheMode) {
    // The kernel's own file system of processes carries none.
    EXPECT_EQ(acl("/proc/version").access,
              (PosixList{PosixRead, PosixRead, PosixRead, {}, {}, {}}));
    EXPECT_TRUE(acl("/proc").isDirectory);
}

TEST_F(PosixAclReader, AMissingItemIsENOENT) {
    EXPECT_EQ(failure(folder_ + "/missing"), ENOENT);
}

TEST_F(PosixAclReader, AFileInThePlaceOfAFolderIsENOTDIR) {
    EXPECT_EQ(failure(file(0600) + "/below"), ENOTDIR);
}

TEST_F(PosixAclReader, ALinkToItselfIsELOOP) {
    const std::string link = folder_ + "/loop";
    ASSERT_EQ(symlink(link.c_str(), link.c_str()), 0);
    EXPECT_EQ(failure(link), ELOOP);
}

TEST_F(PosixAclReader, AnItemWithAnNfs4ListOfTheClientIsAKindThatIsNotShown) {
    EXPECT_EQ(failure(file(0600),
                      [](const char*, const char* name) {
                          return std::string_view(name) == "system.nfs4_acl" ? 0 : EOPNOTSUPP;
                      }),
              EOPNOTSUPP);
}

TEST_F(PosixAclReader, AnItemWithAnNfs4ListOfALocalFileSystemIsAKindThatIsNotShown) {
    EXPECT_EQ(failure(file(0600),
                      [](const char*, const char* name) {
                          return std::string_view(name) == "system.nfs4_acl_xdr" ? 0 : ENODATA;
                      }),
              EOPNOTSUPP);
}

TEST_F(PosixAclReader, AFailureToLookForAnNfs4ListIsNotTakenForNone) {
    EXPECT_EQ(failure(file(0600), [](const char*, const char*) { return EIO; }), EIO);
}

TEST_F(PosixAclReader, AnItemThatWasOpenedIsReadWhateverHasItsPathByThen) {
    const std::string path = file(0600);
    const auto opened = AclItem::open(path);
    ASSERT_TRUE(opened);
    std::filesystem::rename(path, folder_ + "/aside");
    ASSERT_EQ(mkdir(path.c_str(), 0777), 0);
    const auto read = readPosixAcl(*opened);
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->isDirectory);
    EXPECT_EQ(read->access, acl(folder_ + "/aside").access);
}

}  // namespace
}  // namespace morvane
