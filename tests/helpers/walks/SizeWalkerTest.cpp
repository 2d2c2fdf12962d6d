// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include "OrdinaryUser.h"
#include "SizeWalker.h"
#include "TemporaryFolder.h"

namespace morvane {
namespace {

namespace fs = std::filesystem;

constexpr auto unknown = SizeWalker::unknown;

/// Walks each path by itself, and keeps what the last walk has told.
class Walks {
  public:
    std::int64_t sizeOf(const fs::path& path) {
        SizeWalker walker({path});
        walker.run();
        items_ = walker.items();
        unreadable_ = walker.unreadable();
        EXPECT_TRUE(walker.sums().at(0).isDone);
        return walker.sums().at(0).bytes;
    }
    std::uint64_t items() const { return items_; }
    const WalkFailures& unreadable() const { return unreadable_; }

  private:
    std::uint64_t items_ = 0;
    WalkFailures unreadable_;
};

/// Walks all of them at once.
std::vector<std::int64_t> sizesOf(SizeWalker& walker) {
    walker.run();
    std::vector<std::int64_t> sizes;
    for (const auto& sum : walker.sums()) {
        EXPECT_TRUE(sum.isDone);
        sizes.push_back(sum.bytes);
    }
    return sizes;
}

class SizeWalkerTest : public testing::Test {
  protected:
    void write(const fs::path& name, std::int64_t size) const {
        fs::create_directories((folder / name).parent_path());
        const int fd = ::open((folder / name).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::ftruncate(fd, size), 0);
        ::close(fd);
    }

    /// The same count by another program in another language.
    static std::vector<std::int64_t> counted(const std::vector<fs::path>& paths) {
        std::string command = "python3 '" SIZE_WALK_COUNTER "'";
        for (const auto& path : paths)
            command += " '" + path.string() + "'";
        std::vector<std::int64_t> sizes;
        FILE* const pipe = ::popen(command.c_str(), "r");
        for (long long size = 0; std::fscanf(pipe, "%lld", &size) == 1;)
            sizes.push_back(size);
        EXPECT_EQ(::pclose(pipe), 0);
        return sizes;
    }
    void expectEqualsCount() const {
        Walks walks;
        EXPECT_EQ(std::vector{walks.sizeOf(folder)}, counted({folder}));
        EXPECT_EQ(walks.unreadable().count, 0u);
    }

    const TemporaryFolder temporary;
    const fs::path& folder = temporary.path();
};

TEST_F(SizeWalkerTest, AFileHasItsOwnSize) {
    write("a", 1234);
    Walks walks;
    EXPECT_EQ(walks.sizeOf(folder / "a"), 1234);
    EXPECT_EQ(walks.items(), 1u);
}

TEST_F(SizeWalkerTest, AFolderHasTheSumOfTheFilesBelow) {
    write("a", 1);
    write("b/c/d", 20);
    write("b/e", 300);
    fs::create_directory(folder / "empty");
    Walks walks;
    EXPECT_EQ(walks.sizeOf(folder), 321);
    EXPECT_EQ(walks.items(), 7u);
    expectEqualsCount();
}

TEST_F(SizeWalkerTest, ManyFoldersAreSharedByTwoThreadsAndEqualAnIndependentCount) {
    for (int i = 0; i < 40; ++i) {
        for (int j = 0; j < 50; ++j)
            write(std::to_string(i % 7) + "/" + std::to_string(i) + "/" + std::to_string(j),
                  i * 1000 + j);
    }
    for (int i = 0; i < 20; ++i)
        expectEqualsCount();
}

TEST_F(SizeWalkerTest, AFolderOfManyEntriesIsReadInSeveralChunks) {
    for (int i = 0; i < 6000; ++i)
        write("wide/a-rather-long-name-for-a-file-" + std::to_string(i), 3);
    for (int i = 0; i < 1000; ++i)
        write("wide/sub" + std::to_string(i) + "/file", 5);
    Walks walks;
    EXPECT_EQ(walks.sizeOf(folder), 6000 * 3 + 1000 * 5);
}

TEST_F(SizeWalkerTest, AHardLinkedFileCountsOnceWithinEachItem) {
    write("one/file", 100);
    fs::create_directory(folder / "two");
    fs::create_hard_link(folder / "one/file", folder / "one/again");
    fs::create_hard_link(folder / "one/file", folder / "two/again");
    Walks walks;
    EXPECT_EQ(walks.sizeOf(folder / "one"), 100);
    EXPECT_EQ(walks.sizeOf(folder / "two"), 100);
    EXPECT_EQ(walks.sizeOf(folder / "one/again"), 100);
    EXPECT_EQ(counted({folder / "one", folder / "two"}), (std::vector<std::int64_t>{100, 100}));
    expectEqualsCount();
}

TEST_F(SizeWalkerTest, ASparseFileCountsAsItClaims) {
    write("sparse", std::int64_t{1} << 40);
    Walks walks;
    EXPECT_EQ(walks.sizeOf(folder), std::int64_t{1} << 40);
    expectEqualsCount();
}

TEST_F(SizeWalkerTest, LinksAreNotFollowedAlsoNotThePathItself) {
    write("real/file", 10);
    fs::create_directory_symlink("..", folder / "real/up");
    fs::create_symlink("loop", folder / "loop");
    fs::create_symlink(folder / "real/file", folder / "link");
    Walks walks;
    EXPECT_EQ(walks.sizeOf(folder), 10);
    EXPECT_EQ(walks.sizeOf(folder / "real/up"), 0);
    EXPECT_EQ(walks.sizeOf(folder / "link"), 0);
    EXPECT_EQ(walks.unreadable().count, 0u);
    expectEqualsCount();
}

TEST_F(SizeWalkerTest, NamesMayBeAnyBytes) {
    write(fs::path("caf\xe9/\xff\n'\x01") / "x", 7);
    Walks walks;
    EXPECT_EQ(walks.sizeOf(folder), 7);
    expectEqualsCount();
}

TEST_F(SizeWalkerTest, OtherKindsOfFilesCountAsNothing) {
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    Walks walks;
    EXPECT_EQ(walks.sizeOf(folder), 0);
    EXPECT_EQ(walks.sizeOf(folder / "fifo"), 0);
    EXPECT_EQ(walks.sizeOf("/dev/null"), 0);
}

TEST_F(SizeWalkerTest, OtherFileSystemsAreNotEntered) {
    write("file", 5);
    fs::create_directory(folder / "mount");
    const pid_t child = ::fork();
    if (child == 0) {
        if (::unshare(CLONE_NEWNS) != 0 ||
            ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("none", (folder / "mount").c_str(), "tmpfs", 0, nullptr) != 0)
            ::_exit(2);
        write("mount/x", 100);
        Walks walks;
        const bool isAlone = walks.sizeOf(folder) == 5 && walks.sizeOf(folder / "mount") == 100;
        SizeWalker both({folder, folder / "mount"});
        ::_exit(isAlone && sizesOf(both) == std::vector<std::int64_t>{5, 100} ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_NE(WEXITSTATUS(status), 2) << "mounting is not allowed here; it takes root";
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(SizeWalkerTest, AMissingPathIsReportedAsUnreadable) {
    Walks walks;
    EXPECT_EQ(walks.sizeOf(folder / "none"), unknown);
    const auto unreadable = walks.unreadable();
    EXPECT_EQ(unreadable.count, 1u);
    EXPECT_EQ(unreadable.notReached, 0u);
    EXPECT_EQ(unreadable.first.at(0).path, folder / "none");
    EXPECT_EQ(unreadable.first.at(0).code, ENOENT);
}

TEST_F(SizeWalkerTest, WhatAnUnprivilegedUserCannotReadIsCountedAndTheFirstIsNamed) {
    write("open/file", 10);
    write("closed/file", 100);
    ASSERT_EQ(::chmod(folder.c_str(), 0755), 0);
    ASSERT_EQ(::chmod((folder / "closed").c_str(), 0), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        if (!becomeOrdinaryUser())
            ::_exit(2);
        Walks walks;
        bool right = walks.sizeOf(folder) == 10;
        const auto unreadable = walks.unreadable();
        right = right && unreadable.count == 1 && unreadable.notReached == 1 &&
                unreadable.first.at(0).path == folder / "closed" &&
                unreadable.first.at(0).code == EACCES;
        ::_exit(right && walks.sizeOf(folder / "closed") == unknown ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    ASSERT_EQ(::chmod((folder / "closed").c_str(), 0755), 0);
}

TEST_F(SizeWalkerTest, ATreeDeeperThanTheDescriptorsAndThePathLimitIsCounted) {
    constexpr int depth = 1200;
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < depth; ++i) {
        for (const char* const side : {"a", "z"}) {
            const int file = ::openat(fd, side, O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
            ASSERT_EQ(::ftruncate(file, 1), 0);
            ::close(file);
        }
        ASSERT_EQ(::mkdirat(fd, "m", 0755), 0);
        ASSERT_EQ(::mkdirat(fd, "n", 0755), 0);
        const int next = ::openat(fd, i % 2 ? "m" : "n", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(fd);
        fd = next;
    }
    ::close(fd);
    Walks walks;
    EXPECT_EQ(walks.sizeOf(folder), 2 * depth);
    EXPECT_EQ(walks.unreadable().count, 0u);
    EXPECT_EQ(walks.items(), 4u * depth + 1);
}

TEST_F(SizeWalkerTest, FilesThatVanishDuringTheWalkAreNoFailure) {
    for (int i = 0; i < 200; ++i)
        write("stay/" + std::to_string(i), 10);
    std::atomic<bool> stop = false;
    std::thread churn([&] {
        while (!stop) {
            for (int i = 0; i < 20; ++i)
                write("go/" + std::to_string(i) + "/file", 0);
            fs::remove_all(folder / "go");
        }
    });
    for (int i = 0; i < 200; ++i) {
        Walks walks;
        EXPECT_EQ(walks.sizeOf(folder), 2000);
        EXPECT_EQ(walks.unreadable().count, 0u);
    }
    stop = true;
    churn.join();
}

TEST_F(SizeWalkerTest, HowFarItIsGrowsAndIsWholeInTheEnd) {
    for (int i = 0; i < 300; ++i)
        write(std::to_string(i) + "/file", 10);
    SizeWalker walker({folder});
    std::atomic<bool> stop = false;
    std::thread reader([&] {
        std::int64_t before = unknown;
        while (!stop) {
            const auto now = walker.sums().at(0).bytes;
            EXPECT_GE(now, before);
            EXPECT_LE(now, 3000);
            before = now;
        }
    });
    walker.run();
    stop = true;
    reader.join();
    EXPECT_EQ(walker.sums().at(0).bytes, 3000);
}

TEST_F(SizeWalkerTest, AnotherThreadMayCancel) {
    for (int i = 0; i < 50; ++i)
        write(std::to_string(i) + "/file", 10);
    SizeWalker walker(std::vector<std::string>(100000, folder));
    std::thread canceller([&] { walker.cancel(); });
    walker.run();
    canceller.join();
    EXPECT_TRUE(walker.isCancelled());
    EXPECT_FALSE(walker.sums().back().isDone);
    EXPECT_EQ(walker.sums().back().bytes, unknown);
}

TEST_F(SizeWalkerTest, FoldersInsideOneAnotherAreWalkedOnce) {
    for (int i = 0; i < 60; ++i)
        write("a/b/" + std::to_string(i % 5) + "/" + std::to_string(i), 100 + i);
    write("a/b/c/d/e/file", 7);
    write("a/x", 1000);
    std::vector<fs::path> paths{folder, folder / "a", folder / "a/b", folder / "a/b/c"};
    for (int i = 0; i < 5; ++i)
        paths.push_back(folder / "a/b" / std::to_string(i));
    SizeWalker walker({paths.begin(), paths.end()});
    EXPECT_EQ(sizesOf(walker), counted(paths));
    SizeWalker one({folder});
    one.run();
    EXPECT_EQ(walker.items(), one.items());
}

TEST_F(SizeWalkerTest, FoldersInsideOneAnotherHaveTheirSumsInWhateverOrderTheyAreNamed) {
    write("a/b/file", 5);
    write("a/c/file", 20);
    write("file", 300);
    const std::vector<std::string> paths{folder / "a/b", folder / "file", folder,
                                         folder / "a/c", folder / "a",    folder,
                                         folder / "a//b"};
    SizeWalker walker(paths);
    EXPECT_EQ(sizesOf(walker), (std::vector<std::int64_t>{5, 300, 325, 20, 25, 325, 5}));
}

TEST_F(SizeWalkerTest, AHardLinkedFileCountsOnceWithinEachOfTheFoldersInsideOneAnother) {
    write("a/b/file", 100);
    fs::create_directories(folder / "a/c/d");
    for (const auto* const name : {"a/b/again", "a/c/d/again", "a/c/again", "again"})
        fs::create_hard_link(folder / "a/b/file", folder / name);
    write("a/c/d/own", 7);
    fs::create_hard_link(folder / "a/c/d/own", folder / "a/c/d/own again");
    const std::vector<fs::path> paths{folder, folder / "a", folder / "a/b", folder / "a/c",
                                      folder / "a/c/d"};
    SizeWalker walker({paths.begin(), paths.end()});
    const auto sizes = sizesOf(walker);
    EXPECT_EQ(sizes, (std::vector<std::int64_t>{107, 107, 100, 107, 107}));
    EXPECT_EQ(sizes, counted(paths));
}

TEST_F(SizeWalkerTest, ManyFoldersInsideOneAnotherHaveTheirSumsInAFewWalks) {
    constexpr std::size_t depth = 3 * SizeWalker::mostWithin;
    std::vector<fs::path> paths{folder};
    for (std::size_t i = 0; i < depth; ++i) {
        paths.push_back(paths.back() / "in");
        fs::create_directory(paths.back());
        std::ofstream(paths.back() / "file") << "text";
        fs::create_hard_link(paths.back() / "file", paths.back() / "again");
        fs::create_hard_link(paths[1] / "file", paths.back() / "of the first");
    }
    SizeWalker walker({paths.begin(), paths.end()});
    EXPECT_EQ(sizesOf(walker), counted(paths));
    SizeWalker one({folder});
    one.run();
    EXPECT_LE(walker.items(), 3 * one.items());
}

TEST_F(SizeWalkerTest, AFolderThatWasNotReachedFromTheOneItIsInCountsAsOneFailure) {
    write("open/file", 10);
    write("open/closed/file", 100);
    ASSERT_EQ(::chmod(folder.c_str(), 0755), 0);
    ASSERT_EQ(::chmod((folder / "open/closed").c_str(), 0), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        if (!becomeOrdinaryUser())
            ::_exit(2);
        SizeWalker walker({folder, folder / "open", folder / "open/closed", folder / "open/none"});
        const bool right = sizesOf(walker) == std::vector<std::int64_t>{10, 10, unknown, unknown};
        ::_exit(right && walker.unreadable().count == 2 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    ASSERT_EQ(::chmod((folder / "open/closed").c_str(), 0755), 0);
}

}  // namespace
}  // namespace morvane
