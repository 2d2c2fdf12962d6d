// SPDX-License-Identifier: MIT
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/MVItemFailures.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "AclPropagation.h"
#include "Nfs4Inheritance.h"
#include "Nfs4Names.h"
#include "PosixInheritance.h"
#include "PropagationTest.h"
#include "WorkErrors.h"

namespace morvane {
namespace {

namespace fs = std::filesystem;

using AclPropagationTest = PropagationTest;

ino_t inodeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_ino;
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

TEST_F(AclPropagationTest, AWriteThatFindsNothingIsNotTakenForAnItemThatHasGone) {
    AclPropagation propagation;
    propagation.run(FailingWriter(), opened(top_), top_);
    EXPECT_EQ(propagation.items(), 6U);
    EXPECT_EQ(propagation.failures().count, 6U);
    EXPECT_EQ(propagation.failures().notReached, 0U) << "their contents could be dealt with";
}

TEST_F(AclPropagationTest, AnAllowDenyListIsWrittenWithoutAFurtherDescriptor) {
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

TEST_F(AclPropagationTest, ACancelledOneTellsWhatFailedBefore) {
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

TEST_F(AclPropagationTest, ACancelledOneTellsASingleFailure) {
    EXPECT_EQ(cancelledAfterFailing(top_ + "/sub/deep", 1)->localizedDescription(),
              "The propagation was cancelled after 1 item. 1 item could not be changed; the first "
              "is \"" +
                  top_ + "/sub/deep/file\" (No space left on device).");
}

TEST_F(AclPropagationTest, ACancelledOneWithoutFailuresTellsHowFarItCame) {
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

TEST_F(AclPropagationTest, ARefusalIsNotHiddenByListsThatAreStoredOtherwise) {
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
    const auto failures = failuresOfError(*error);
    EXPECT_EQ(failures.errors.size(), items);
    const auto stored =
        std::find_if(failures.errors.begin(), failures.errors.end(),
                     [](const NSErrorRef& each) { return each->code() == EREMOTEIO; });
    ASSERT_NE(stored, failures.errors.end());
    EXPECT_EQ((*stored)->localizedDescription(),
              "the server of the network mount has stored another list");
}

/// The paths of the failures that an error tells as values, each with its code.
std::map<std::string, std::int64_t> failedPaths(const NSError& error) {
    std::map<std::string, std::int64_t> paths;
    for (const auto& each : failuresOfError(error).errors)
        paths[std::get<NSURL>(each->userInfo().at(NSURLErrorKey)).path()] = each->code();
    return paths;
}

TEST_F(AclPropagationTest, EachItemThatFailedIsToldAsAValueWithItsPathInBytes) {
    fs::remove_all(top_);
    fs::create_directory(top_);
    constexpr int items = 200;
    std::map<std::string, std::int64_t> expected;
    for (int i = 0; i != items; ++i) {
        const auto path = top_ + "/odd\n\xff" + std::to_string(i);
        makeFile(path);
        expected[path] = ENOSPC;
    }
    AclPropagation propagation;
    propagation.run(CancellingWriter(-1), opened(top_), top_);
    const auto error = outcomeOfPropagation(propagation, {}, url());
    ASSERT_TRUE(error);
    EXPECT_EQ(failedPaths(*error), expected);
    EXPECT_EQ(failuresOfError(*error).counts, (MVItemCounts{0, items}));
    EXPECT_TRUE(error->localizedDescription().starts_with(
        "200 items could not be changed, the others are; the first are \"" + top_ + "/odd"))
        << error->localizedDescription();
    EXPECT_EQ(failuresOfError(*error).errors.front()->localizedDescription(),
              "No space left on device");
}

TEST_F(AclPropagationTest, ACancelledOneTellsItsFailuresAsValuesToo) {
    const auto error = cancelledAfterFailing(top_ + "/sub/deep", 1);
    EXPECT_EQ(failedPaths(*error),
              (std::map<std::string, std::int64_t>{{top_ + "/sub/deep/file", ENOSPC}}));
    EXPECT_EQ(failuresOfError(*error).counts, (MVItemCounts{0, 1}));
}

TEST_F(AclPropagationTest, OfAMillionFailuresABoundIsTold) {
    TreeWalk walk;
    for (int i = 0; i != 1'000'000; ++i)
        walk.failed("/item", EACCES, false);
    EXPECT_EQ(errorsOfFailures(walk.failures()).size(), maxFailuresKept);
    EXPECT_EQ(walk.failureCount(), 1'000'000U);
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

TEST_F(AclPropagationTest, WhatAServerHasLeftOutIsToldOnceForAllItems) {
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

TEST_F(AclPropagationTest, AServerThatMakesLossesUpCostsABound) {
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

TEST_F(AclPropagationTest, AFileThatHasBecomeALinkSinceItWasListedIsLeftAlone) {
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

TEST_F(AclPropagationTest, ATreeThatChangesUnderneathHarmsNothingElse) {
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
