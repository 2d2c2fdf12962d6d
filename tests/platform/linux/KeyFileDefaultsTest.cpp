// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/KeyFileDefaults.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <sstream>
#include <thread>

#include "Await.h"
#include "TemporaryFolder.h"
#include "ThreadShortage.h"

namespace morvane {
namespace {

constexpr NSKeyPath keyPath{"useBase2MathForSizes"};

class Observer final : public NSKeyValueObserver {
  public:
    void observeValueForKeyPath(const NSKeyPath&, NSObject&) override {
        const std::lock_guard lock(mutex_);
        ++told_;
        thread_ = std::this_thread::get_id();
        changed_.notify_all();
    }
    /// Waits until it was told that often.
    bool waitFor(int told) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(30), [&] { return told_ >= told; });
    }
    int told() {
        const std::lock_guard lock(mutex_);
        return told_;
    }
    std::thread::id thread() {
        const std::lock_guard lock(mutex_);
        return thread_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int told_ = 0;
    std::thread::id thread_;
};

class KeyFileDefaultsTest : public testing::Test {
  protected:
    KeyFileDefaultsTest() { std::filesystem::create_directory(path.parent_path()); }

    void write(const std::string& text) const { std::ofstream(path) << text; }
    std::string content() const {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }
    std::shared_ptr<DefaultsStore> store() const { return std::make_shared<KeyFileDefaults>(path); }
    /// Runs a shell command in the file's folder, as another program.
    void byHand(const std::string& command) const {
        ASSERT_EQ(std::system(("cd '" + path.parent_path().string() + "' && " + command).c_str()),
                  0);
    }

    const TemporaryFolder temporary;
    const std::filesystem::path& folder = temporary.path();
    const std::filesystem::path path = folder / "morvaneoperation" / "defaults.ini";
};

TEST_F(KeyFileDefaultsTest, SavesAreToldOfAlthoughNoThreadCanWatchTheFile) {
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    NSUserDefaults defaults(store());
    Observer observer;
    noThreads = true;
    defaults.addObserver(&observer, keyPath);
    noThreads = false;
    EXPECT_FALSE(defaults.setBool(true, "useBase2MathForSizes"));
    EXPECT_EQ(observer.told(), 1);
    defaults.removeObserver(&observer, keyPath);
    EXPECT_TRUE(NSUserDefaults(store()).boolForKey("useBase2MathForSizes"));
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int signal = 1; signal < SIGRTMIN; ++signal)
        EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal)) << signal;
}

TEST_F(KeyFileDefaultsTest, AMissingFileReadsAsFalse) {
    EXPECT_FALSE(NSUserDefaults(store()).boolForKey("useBase2MathForSizes"));
}

TEST_F(KeyFileDefaultsTest, AValueOutlivesTheObjectThatSetIt) {
    EXPECT_EQ(NSUserDefaults(store()).setBool(true, "useBase2MathForSizes"), nullptr);
    EXPECT_TRUE(NSUserDefaults(store()).boolForKey("useBase2MathForSizes"));
    EXPECT_EQ(content(), "[Defaults]\nuseBase2MathForSizes=true\n");
}

TEST_F(KeyFileDefaultsTest, ASaveMakesTheMissingFolder) {
    std::filesystem::remove_all(path.parent_path());
    EXPECT_EQ(NSUserDefaults(store()).setBool(true, "useBase2MathForSizes"), nullptr);
    EXPECT_EQ(content(), "[Defaults]\nuseBase2MathForSizes=true\n");
}

TEST_F(KeyFileDefaultsTest, ASaveKeepsWhatItDoesNotKnow) {
    write(
        "# mine\n[Other]\nuseBase2MathForSizes=false\n\n[Defaults]\n# base\n"
        "useBase2MathForSizes = false\nfuture=7\nthis line means nothing\n\n[Last]\nx=1");
    EXPECT_EQ(NSUserDefaults(store()).setBool(true, "useBase2MathForSizes"), nullptr);
    EXPECT_EQ(content(),
              "# mine\n[Other]\nuseBase2MathForSizes=false\n\n[Defaults]\n# base\n"
              "useBase2MathForSizes=true\nfuture=7\nthis line means nothing\n\n[Last]\nx=1");
}

TEST_F(KeyFileDefaultsTest, AMalformedFileIsReadAsFarAsItMeansSomethingAndKept) {
    const std::string noise("\xff\xfe[Defaults\n]]==\n\0binary\n=nokey\n", 32);
    write(noise + "[Defaults]\n=\nuseBase2MathForSizes=1\n");
    NSUserDefaults defaults(store());
    EXPECT_TRUE(defaults.boolForKey("useBase2MathForSizes"));
    EXPECT_EQ(defaults.setBool(false, "useBase2MathForSizes"), nullptr);
    EXPECT_EQ(content(), noise + "[Defaults]\n=\nuseBase2MathForSizes=false\n");
}

TEST_F(KeyFileDefaultsTest, AValueThatIsNoBooleanReadsAsFalse) {
    write("[Defaults]\nuseBase2MathForSizes=perhaps\n");
    EXPECT_FALSE(NSUserDefaults(store()).boolForKey("useBase2MathForSizes"));
}

TEST_F(KeyFileDefaultsTest, ASaveKeepsTheFilesModeAndLeavesNoOtherFile) {
    write("");
    ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
    EXPECT_EQ(NSUserDefaults(store()).setBool(true, "useBase2MathForSizes"), nullptr);
    struct stat status;
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    const std::filesystem::directory_iterator files(path.parent_path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST_F(KeyFileDefaultsTest, ASaveReplacesTheFileThatALinkLeadsTo) {
    std::filesystem::create_symlink(folder / "real.ini", path);
    std::ofstream(folder / "real.ini") << "[Defaults]\n";
    EXPECT_EQ(NSUserDefaults(store()).setBool(true, "useBase2MathForSizes"), nullptr);
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_EQ(content(), "[Defaults]\nuseBase2MathForSizes=true\n");
}

TEST_F(KeyFileDefaultsTest, ASaveThroughALinkToAMissingFileMakesThatFileAndKeepsTheLink) {
    std::filesystem::create_symlink("../dotfiles/real.ini", path);
    EXPECT_EQ(NSUserDefaults(store()).setBool(true, "useBase2MathForSizes"), nullptr);
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_TRUE(std::filesystem::is_regular_file(folder / "dotfiles" / "real.ini"));
    EXPECT_EQ(content(), "[Defaults]\nuseBase2MathForSizes=true\n");
}

TEST_F(KeyFileDefaultsTest, LinksInACircleAreReportedAndKept) {
    std::filesystem::create_symlink("defaults.ini", path);
    const auto error = NSUserDefaults(store()).setBool(true, "useBase2MathForSizes");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), ELOOP);
    EXPECT_TRUE(std::filesystem::is_symlink(path));
}

TEST_F(KeyFileDefaultsTest, TwoProcessesThatSaveAtOnceLoseNothing) {
    constexpr int saves = 40;
    const auto saveAll = [&](const std::string& name) {
        KeyFileDefaults defaults(path);
        bool saved = true;
        for (int i = 0; i < saves; ++i)
            saved = !defaults.save(name + std::to_string(i), "1") && saved;
        return saved;
    };
    const pid_t other = ::fork();
    ASSERT_GE(other, 0);
    if (other == 0)
        ::_exit(saveAll("theirs") ? 0 : 1);
    EXPECT_TRUE(saveAll("ours"));
    int status = 0;
    ASSERT_EQ(::waitpid(other, &status, 0), other);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(store()->load().size(), std::size_t{2 * saves});
}

TEST_F(KeyFileDefaultsTest, WhatCannotBeStoredIsReportedAndCountsInThisProcess) {
    std::filesystem::create_directory(path);
    NSUserDefaults defaults(store());
    const auto error = defaults.setBool(true, "useBase2MathForSizes");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), NSPOSIXErrorDomain);
    EXPECT_TRUE(defaults.boolForKey("useBase2MathForSizes"));
}

class WatchedDefaultsTest : public KeyFileDefaultsTest {
  protected:
    /// Tells of edits by hand that leave one more trace each; so what was told is complete up to
    /// there.
    void expectToldExactly(NSUserDefaults& defaults, int times) {
        ASSERT_TRUE(observer.waitFor(times));
        static constexpr NSKeyPath markPath{"mark"};
        Observer mark;
        defaults.addObserver(&mark, markPath);
        byHand("printf '\\n[Defaults]\\nmark=1\\n' >> defaults.ini");
        EXPECT_TRUE(mark.waitFor(1));
        defaults.removeObserver(&mark, markPath);
        EXPECT_EQ(observer.told(), times);
    }
    Observer observer;
};

TEST_F(WatchedDefaultsTest, AnEditInPlaceIsToldOnceOnAThreadOfItsOwn) {
    write("[Defaults]\nuseBase2MathForSizes=false\n");
    NSUserDefaults defaults(store());
    defaults.addObserver(&observer, keyPath);
    byHand("sed 's/false/true/' defaults.ini > copy && cat copy > defaults.ini");
    expectToldExactly(defaults, 1);
    EXPECT_TRUE(defaults.boolForKey("useBase2MathForSizes"));
    EXPECT_NE(observer.thread(), std::this_thread::get_id());
}

TEST_F(WatchedDefaultsTest, AnEditByRenameIsToldOnce) {
    write("[Defaults]\nuseBase2MathForSizes=false\n");
    NSUserDefaults defaults(store());
    defaults.addObserver(&observer, keyPath);
    byHand("sed -i 's/false/true/' defaults.ini");
    expectToldExactly(defaults, 1);
    EXPECT_TRUE(defaults.boolForKey("useBase2MathForSizes"));
}

TEST_F(WatchedDefaultsTest, AFileMovedInFromElsewhereIsToldOnce) {
    NSUserDefaults defaults(store());
    defaults.addObserver(&observer, keyPath);
    byHand("printf '[Defaults]\\nuseBase2MathForSizes=true\\n' > ../x && mv ../x defaults.ini");
    expectToldExactly(defaults, 1);
    EXPECT_TRUE(defaults.boolForKey("useBase2MathForSizes"));
}

TEST_F(WatchedDefaultsTest, ARemovedFileIsToldOnceAndReadsAsFalse) {
    write("[Defaults]\nuseBase2MathForSizes=true\n");
    NSUserDefaults defaults(store());
    defaults.addObserver(&observer, keyPath);
    byHand("rm defaults.ini");
    expectToldExactly(defaults, 1);
    EXPECT_FALSE(defaults.boolForKey("useBase2MathForSizes"));
}

TEST_F(WatchedDefaultsTest, AFileInAFolderThatWasMissingIsToldOnce) {
    std::filesystem::remove_all(path.parent_path());
    NSUserDefaults defaults(store());
    defaults.addObserver(&observer, keyPath);
    std::filesystem::create_directory(path.parent_path());
    byHand("printf '[Defaults]\\nuseBase2MathForSizes=true\\n' > defaults.ini");
    expectToldExactly(defaults, 1);
}

TEST_F(WatchedDefaultsTest, AnotherObjectsSetIsToldOnce) {
    NSUserDefaults defaults(store());
    defaults.addObserver(&observer, keyPath);
    EXPECT_EQ(NSUserDefaults(store()).setBool(true, "useBase2MathForSizes"), nullptr);
    expectToldExactly(defaults, 1);
}

TEST_F(WatchedDefaultsTest, OwnSetsAreToldOnceEachOnTheSettingThreadAndNotByTheFilesEvent) {
    NSUserDefaults defaults(store());
    defaults.addObserver(&observer, keyPath);
    defaults.setBool(true, "useBase2MathForSizes");
    EXPECT_EQ(observer.told(), 1);
    EXPECT_EQ(observer.thread(), std::this_thread::get_id());
    defaults.setBool(true, "useBase2MathForSizes");
    defaults.setBool(false, "useBase2MathForSizes");
    expectToldExactly(defaults, 3);
}

TEST_F(WatchedDefaultsTest, AnEditOfSomethingElseIsNotTold) {
    write("[Defaults]\nuseBase2MathForSizes=true\n");
    NSUserDefaults defaults(store());
    defaults.addObserver(&observer, keyPath);
    byHand("echo other=1 >> defaults.ini && touch defaults.ini");
    expectToldExactly(defaults, 0);
}

/// The settings are a link into a folder of their own, as dotfile managers make it.
class LinkedDefaultsTest : public WatchedDefaultsTest {
  protected:
    LinkedDefaultsTest() {
        std::filesystem::create_directory(folder / "dotfiles");
        std::filesystem::create_symlink("../dotfiles/real.ini", path);
    }
};

TEST_F(LinkedDefaultsTest, AnEditInPlaceBehindALinkIsToldOnce) {
    write("[Defaults]\nuseBase2MathForSizes=false\n");
    NSUserDefaults defaults(store());
    defaults.addObserver(&observer, keyPath);
    byHand("printf '[Defaults]\\nuseBase2MathForSizes=true\\n' > ../dotfiles/real.ini");
    expectToldExactly(defaults, 1);
}

TEST_F(LinkedDefaultsTest, AnEditByRenameBehindALinkIsToldOnce) {
    write("[Defaults]\nuseBase2MathForSizes=false\n");
    NSUserDefaults defaults(store());
    defaults.addObserver(&observer, keyPath);
    byHand("sed -i 's/false/true/' ../dotfiles/real.ini");
    expectToldExactly(defaults, 1);
    EXPECT_TRUE(std::filesystem::is_symlink(path));
}

TEST_F(LinkedDefaultsTest, ALinkThatIsPointedElsewhereIsToldAndWatchedThere) {
    write("[Defaults]\nuseBase2MathForSizes=false\n");
    std::ofstream(folder / "dotfiles" / "other.ini") << "[Defaults]\nuseBase2MathForSizes=true\n";
    NSUserDefaults defaults(store());
    defaults.addObserver(&observer, keyPath);
    byHand("ln -s ../dotfiles/other.ini link && mv -T link defaults.ini");
    ASSERT_TRUE(observer.waitFor(1));
    byHand("sed -i 's/true/false/' ../dotfiles/other.ini");
    expectToldExactly(defaults, 2);
    EXPECT_FALSE(defaults.boolForKey("useBase2MathForSizes"));
}

/// Each test runs in a process of its own, in which nothing was watched before.
class ExitWhileWatchedTest : public KeyFileDefaultsTest {
  protected:
    ExitWhileWatchedTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

/// Remembers the thread on which it was told.
class ThreadObserver final : public NSKeyValueObserver {
  public:
    void observeValueForKeyPath(const NSKeyPath&, NSObject&) override {
        thread.set_value(gettid());
    }
    std::promise<pid_t> thread;
};

/// Ends the process well if the thread ends soon: one that has been waited for is listed for a
/// moment longer.
pid_t watchingThread;
void endOnceTheWatchHasEnded() {
    const auto runs = [] {
        return std::filesystem::exists("/proc/self/task/" + std::to_string(watchingThread));
    };
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (runs() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    _exit(runs() ? 1 : 0);
}

TEST_F(ExitWhileWatchedTest, AWatchEndsBeforeWhatItUsesIsTakenDownAtTheExitOfTheProcess) {
    const auto exitWhileWatching = [&] {
        std::atexit(endOnceTheWatchHasEnded);  // Handlers that are added later run sooner.
        ThreadObserver observer;
        auto* const defaults = new NSUserDefaults(store());
        defaults->addObserver(&observer, keyPath);
        write("[Defaults]\nuseBase2MathForSizes=true\n");
        watchingThread = await(observer.thread.get_future());
        std::exit(2);
    };
    EXPECT_EXIT(exitWhileWatching(), testing::ExitedWithCode(0), "");
}

/// Exits the process when it is told of a change.
class ExitingObserver final : public NSKeyValueObserver {
  public:
    void observeValueForKeyPath(const NSKeyPath&, NSObject&) override { std::exit(0); }
};

TEST_F(ExitWhileWatchedTest, AnObserverMayExitTheProcess) {
    const auto exitOnChange = [&] {
        ExitingObserver observer;
        auto* const defaults = new NSUserDefaults(store());
        defaults->addObserver(&observer, keyPath);
        write("[Defaults]\nuseBase2MathForSizes=true\n");
        for (;;)
            pause();
    };
    EXPECT_EXIT(exitOnChange(), testing::ExitedWithCode(0), "");
}

TEST_F(WatchedDefaultsTest, AWatchMayEndAtOnce) {
    for (int i = 0; i < 50; ++i) {
        NSUserDefaults defaults(store());
        defaults.addObserver(&observer, keyPath);
    }
    EXPECT_EQ(observer.told(), 0);
}

}  // namespace
}  // namespace morvane
