// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "AclPropagation.h"
#include "PosixInheritance.h"
#include "SizeWalker.h"
#include "TemporaryFolder.h"
#include "ThreadShortage.h"
#include "TreeWalk.h"
#include "helpers/SilentMount.h"

namespace morvane {
namespace {

namespace fs = std::filesystem;

FileDescriptor opened(const std::string& path) {
    return FileDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

class TreeWalkTest : public testing::Test {
  protected:
    TreeWalkTest() { fs::create_directory(top_); }
    ~TreeWalkTest() override { noThreads = false; }

    static void makeFile(int folder, const char* name, off_t size = 1) {
        const FileDescriptor file(openat(folder, name, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
        ASSERT_TRUE(file);
        ASSERT_EQ(ftruncate(file.get(), size), 0);
    }
    static FileDescriptor makeFolder(int in, const char* name) {
        mkdirat(in, name, 0700);
        return FileDescriptor(openat(in, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    /// A folder in a folder, `depth` times, each called "next" and each between two others with
    /// a file, so that there is something left on the way back in whatever order they are listed.
    static void makeDeep(const std::string& path, int depth, const char* file = "file") {
        auto folder = opened(path);
        for (int i = 0; i != depth; ++i) {
            makeFile(makeFolder(folder.get(), "before").get(), file);
            auto next = makeFolder(folder.get(), "next");
            makeFile(makeFolder(folder.get(), "later").get(), file);
            folder = std::move(next);
        }
    }
    static std::string nextTimes(int times) {
        std::string path;
        for (int i = 0; i != times; ++i)
            path += "/next";
        return path;
    }

    // In memory where there is such a place: a disk takes minutes to remove deep trees.
    const TemporaryFolder temporary_{access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp"};
    const std::string outside_ = temporary_.path();
    const std::string top_ = outside_ + "/top";
};

/// Notes what it is shown, and does something at a folder of a certain depth.
class NotingVisitor final : public TreeVisitor {
  public:
    void visitFiles(const TreeFolder&, FileNames names) override {
        names.forEach([&](const char* name) {
            const std::lock_guard lock(mutex_);
            files.insert(name);
            return true;
        });
    }
    int visitFolder(const TreeFolder& in, const OpenItem&) override {
        if (in.depth() == depth)
            atDepth();
        return 0;
    }

    std::size_t depth = 0;
    std::function<void()> atDepth = [] {};
    std::multiset<std::string> files;

  private:
    std::mutex mutex_;
};

TEST_F(TreeWalkTest, ATreeOfAnyDepthIsPropagatedWholeWithFewDescriptors) {
    constexpr int depth = 10000;
    makeDeep(top_, depth);
    EXPECT_EQ(exitCodeOf([&] {
                  const rlimit few{256, 256};
                  if (setrlimit(RLIMIT_NOFILE, &few) != 0)
                      return 1;
                  InheritedLists lists;
                  constexpr auto rw = PosixRead | PosixWrite;
                  for (auto& level : lists.levels) {
                      level.file = {rw, PosixRead, PosixRead, {}, {}, {}};
                      level.executable =
                          level.folder = {PosixEverything, PosixRead, PosixRead, {}, {}, {}};
                  }
                  AclPropagation propagation;
                  propagation.run(*inheritedListWriter(lists), opened(top_), top_);
                  if (propagation.failures().count != 0 || propagation.items() != depth * 5)
                      return 2;
                  const auto hasMode = [](int folder, const char* name, mode_t mode) {
                      struct stat status {};
                      return fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                             (status.st_mode & 07777) == mode;
                  };
                  auto folder = opened(top_);
                  for (int i = 0; i != depth; ++i) {
                      for (const auto* const name : {"before", "next", "later"}) {
                          if (!hasMode(folder.get(), name, 0744))
                              return 3;
                      }
                      for (const auto* const name : {"before/file", "later/file"}) {
                          if (!hasMode(folder.get(), name, 0644))
                              return 4;
                      }
                      folder = makeFolder(folder.get(), "next");
                  }
                  return 0;
              }),
              0);
}

TEST_F(TreeWalkTest, ATreeOfAnyDepthIsCountedWholeWithFewDescriptors) {
    constexpr int depth = 10000;
    makeDeep(top_, depth);
    EXPECT_EQ(
        exitCodeOf([&] {
            const rlimit few{256, 256};
            SizeWalker walker({top_});
            if (setrlimit(RLIMIT_NOFILE, &few) != 0)
                return 1;
            walker.run();
            return walker.sums().at(0).bytes == 2 * depth && walker.unreadable().count == 0 ? 0 : 2;
        }),
        0);
}

TEST_F(TreeWalkTest, OneThreadWalksWhereNoOtherCanBeHad) {
    makeDeep(top_, 100);
    noThreads = true;
    NotingVisitor visitor;
    TreeWalk walk;
    walk.run(opened(top_), top_, visitor);
    EXPECT_EQ(visitor.files.size(), 200U);
    EXPECT_EQ(walk.items(), 500U);
    EXPECT_EQ(walk.failures().count, 0U);
}

TEST_F(TreeWalkTest, AFolderThatIsTooDeepIsNamedAndNotEntered) {
    constexpr int levels = static_cast<int>(TreeWalk::maxDepth) + 2;
    auto folder = opened(top_);
    for (int i = 0; i != levels; ++i)
        folder = makeFolder(folder.get(), "d");
    makeFile(folder.get(), "file");
    NotingVisitor visitor;
    TreeWalk walk;
    walk.run(opened(top_), top_, visitor);
    const auto failures = walk.failures();
    EXPECT_EQ(visitor.files.size(), 0U);
    EXPECT_EQ(failures.count, 1U);
    EXPECT_EQ(failures.notReached, 1U);
    EXPECT_EQ(failures.first.at(0).code, ENAMETOOLONG);
    EXPECT_LT(failures.first.at(0).path.size(), 4096U);
    EXPECT_TRUE(fs::is_directory(failures.first.at(0).path)) << "what is named can be looked at";
}

TEST_F(TreeWalkTest, AllFailuresAreCountedAndABoundOfThemIsKept) {
    TreeWalk walk;
    for (int i = 0; i != 3000; ++i)
        walk.failed("/item" + std::to_string(i), EACCES, false);
    walk.failed("/other", EPERM, false);
    walk.failed("/later", ENOSPC, false);
    const auto failures = walk.failures();
    EXPECT_EQ(failures.count, 3002U);
    EXPECT_EQ(walk.failureCount(), 3002U);
    ASSERT_EQ(failures.first.size(), maxFailuresKept);
    EXPECT_EQ(failures.first[maxFailuresKept - 2].path, "/item998");
    EXPECT_EQ(failures.first.back().path, "/other");
    const auto few = failures.few();
    ASSERT_EQ(few.size(), 5U);
    EXPECT_EQ(few[3].path, "/item3");
    EXPECT_EQ(few[4].path, "/other");
    EXPECT_EQ(few[4].code, EPERM);
}

TEST_F(TreeWalkTest, ThePathsOfTheFailuresThatAreKeptHaveABound) {
    TreeWalk walk;
    const std::string path(maxFailurePathBytes / 8, 'p');
    for (int i = 0; i != 100; ++i)
        walk.failed(path, EACCES, false);
    walk.failed("/other", EPERM, false);
    const auto failures = walk.failures();
    EXPECT_EQ(failures.count, 101U);
    ASSERT_EQ(failures.first.size(), 8U);
    EXPECT_EQ(failures.first.back().path, "/other");
}

TEST_F(TreeWalkTest, TheFilesOfOneFolderAreSharedByTwoThreads) {
    /// Waits for the other thread.
    class Meeting final : public TreeVisitor {
      public:
        void visitFiles(const TreeFolder&, FileNames names) override {
            names.forEach([&](const char* name) {
                const std::lock_guard lock(mutex_);
                files.insert(name);
                return true;
            });
            std::unique_lock lock(mutex_);
            threads.insert(std::this_thread::get_id());
            met_.notify_all();
            met_.wait_for(lock, std::chrono::seconds(30), [&] { return threads.size() == 2; });
        }
        std::set<std::thread::id> threads;
        std::multiset<std::string> files;

      private:
        std::mutex mutex_;
        std::condition_variable met_;
    };
    const auto folder = opened(top_);
    for (int i = 0; i != 3000; ++i)
        makeFile(folder.get(), std::to_string(i).c_str(), 0);
    Meeting visitor;
    TreeWalk walk;
    walk.run(opened(top_), top_, visitor);
    EXPECT_EQ(visitor.threads.size(), 2U);
    EXPECT_EQ(visitor.files.size(), 3000U);
    EXPECT_EQ(std::set(visitor.files.begin(), visitor.files.end()).size(), 3000U) << "each once";
}

/// The walk is as deep as it gets, on one thread, when folders that it has let go are moved.
class MovedFoldersTest : public TreeWalkTest {
  protected:
    static constexpr int depth = 80;

    MovedFoldersTest() {
        makeDeep(top_, depth);
        noThreads = true;
    }

    /// Puts another tree in the place of the folder that is `level` deep.
    void replace(int level, bool byLink = false) const {
        const auto path = top_ + nextTimes(level);
        fs::rename(path, outside_ + "/moved" + std::to_string(level));
        const auto decoy = outside_ + "/decoy" + std::to_string(level);
        fs::create_directory(decoy);
        makeDeep(decoy, depth - level, "trap");
        if (byLink)
            fs::create_directory_symlink(decoy, path);
        else
            fs::rename(decoy, path);
    }
    WalkFailures walk(NotingVisitor& visitor) const {
        visitor.depth = depth - 1;
        TreeWalk walk;
        walk.run(opened(top_), top_, visitor);
        return walk.failures();
    }
    /// Once, whichever folder of that depth comes first.
    static std::function<void()> once(const std::function<void()>& act) {
        return [act, isDone = false]() mutable {
            if (!isDone)
                act();
            isDone = true;
        };
    }
};

TEST_F(MovedFoldersTest, EverythingIsReachedAlthoughAFolderWasMovedMeanwhile) {
    NotingVisitor visitor;
    visitor.atDepth = once([&] { replace(40); });
    EXPECT_EQ(walk(visitor).count, 0U);
    EXPECT_EQ(visitor.files.count("file"), 2U * depth);
    EXPECT_EQ(visitor.files.count("trap"), 0U);
}

TEST_F(MovedFoldersTest, WhatCannotBeFoundAgainIsNamedAndNothingElseTakenForIt) {
    for (const bool byLink : {false, true}) {
        NotingVisitor visitor;
        visitor.atDepth = once([&] {
            replace(50, byLink);
            replace(30, byLink);
        });
        const auto failures = walk(visitor);
        // Those from the upper one to the lower one.
        EXPECT_EQ(failures.count, 20U);
        EXPECT_EQ(failures.notReached, 20U);
        ASSERT_FALSE(failures.first.empty());
        EXPECT_EQ(failures.first.front().path, top_ + nextTimes(49));
        EXPECT_EQ(failures.first.front().code, byLink ? ENOTDIR : ESTALE);
        EXPECT_GE(visitor.files.count("file"), 2U * (depth - 20));
        EXPECT_EQ(visitor.files.count("trap"), 0U);
        fs::remove_all(top_);
        fs::create_directory(top_);
        for (const int level : {30, 50}) {
            fs::remove_all(outside_ + "/moved" + std::to_string(level));
            fs::remove_all(outside_ + "/decoy" + std::to_string(level));
        }
        makeDeep(top_, depth);
    }
}

TEST_F(MovedFoldersTest, AFolderWithTheNumberOfOneThatHasGoneIsNotTakenForIt) {
    struct statx one;
    struct statx other;
    ASSERT_EQ(statusAt(opened(top_).get(), "", one), 0);
    other = one;
    EXPECT_EQ(idOf(one), idOf(other));
    other.stx_btime.tv_nsec ^= 1;
    EXPECT_NE(idOf(one), idOf(other));
    other = one;
    ++other.stx_mnt_id;
    EXPECT_NE(idOf(one), idOf(other));
}

TEST_F(TreeWalkTest, ABindMountIsNotEntered) {
    fs::create_directories(outside_ + "/elsewhere/sub");
    fs::create_directory(top_ + "/bound");
    makeFile(opened(outside_ + "/elsewhere").get(), "trap", 100);
    makeFile(opened(outside_ + "/elsewhere/sub").get(), "trap", 100);
    makeFile(opened(outside_).get(), "trap", 100);
    makeFile(opened(top_).get(), "bound-file", 1);
    makeFile(opened(top_).get(), "file", 10);
    EXPECT_EQ(
        exitCodeOf([&] {
            const auto bind = [&](const char* what, const char* name) {
                return mount((outside_ + what).c_str(), (top_ + name).c_str(), nullptr, MS_BIND,
                             nullptr) == 0;
            };
            if (!hasOwnMounts() || !bind("/elsewhere", "/bound") || !bind("/trap", "/bound-file"))
                return 1;
            SizeWalker walker({top_});
            walker.run();
            if (walker.sums().at(0).bytes != 10)
                return 2;
            if (walker.unreadable().count != 0)
                return 3;
            InheritedLists lists;
            for (auto& level : lists.levels)
                level.file = level.executable =
                    level.folder = {PosixEverything, PosixRead, PosixRead, {}, {}, {}};
            AclPropagation propagation;
            propagation.run(*inheritedListWriter(lists), opened(top_), top_);
            if (propagation.failures().count != 0 || propagation.items() != 1)
                return 4;
            for (const auto* const path : {"/trap", "/elsewhere/trap"}) {
                struct stat status {};
                if (stat((outside_ + path).c_str(), &status) != 0 ||
                    (status.st_mode & 07777) != 0600)
                    return 5;
            }
            return 0;
        }),
        0);
}

}  // namespace
}  // namespace morvane
