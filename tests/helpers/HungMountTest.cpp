// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

#include "../ThreadShortage.h"
#include "AclRequests.h"
#include "PropagateRequests.h"
#include "SilentMount.h"
#include "SizeRequests.h"
#include "SupervisedWork.h"

namespace morvane {
namespace {

namespace fs = std::filesystem;
using std::chrono::hours;
using std::chrono::milliseconds;

constexpr std::uint32_t alice = 3000003;
constexpr std::uint32_t bob = 3000004;

/// Work that waits until it is let go, as in a file system that does not answer.
class Gate {
  public:
    void open() {
        const std::lock_guard lock(mutex_);
        isOpen_ = true;
        changed_.notify_all();
    }
    void pass() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return isOpen_; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isOpen_ = false;
};

WorkSupervision impatient(std::uint32_t user) {
    return {.user = user,
            .interval = milliseconds(0),
            .goesOn = [] { return false; },
            .cancel = [] {},
            .grace = milliseconds(0)};
}

TEST(SupervisedWork, WorkThatEndsIsWaitedFor) {
    int done = 0;
    const auto end = supervise([&] { ++done; }, {.user = alice,
                                                 .interval = hours(1),
                                                 .goesOn = [] { return ADD_FAILURE(), true; },
                                                 .cancel = [] { ADD_FAILURE(); }});
    EXPECT_EQ(end, WorkEnd::done);
    EXPECT_EQ(done, 1);
}

TEST(SupervisedWork, ItIsAskedForOnTheWaitingThreadUntilANo) {
    const auto waiting = std::this_thread::get_id();
    const auto gate = std::make_shared<Gate>();
    int asked = 0;
    int cancelled = 0;
    const auto end =
        supervise([gate] { gate->pass(); }, {.user = alice,
                                             .interval = milliseconds(0),
                                             .goesOn =
                                                 [&] {
                                                     EXPECT_EQ(std::this_thread::get_id(), waiting);
                                                     return ++asked != 3;
                                                 },
                                             .cancel =
                                                 [&] {
                                                     ++cancelled;
                                                     gate->open();
                                                 },
                                             .grace = hours(1)});
    EXPECT_EQ(end, WorkEnd::done) << "it ends, and is waited for";
    EXPECT_EQ(asked, 3);
    EXPECT_EQ(cancelled, 1);
}

TEST(SupervisedWork, WhatItThrowsIsThrownToWhoWaits) {
    EXPECT_THROW(supervise([] { throw std::out_of_range("too far"); },
                           {.user = alice, .goesOn = [] { return true; }, .cancel = [] {}}),
                 std::out_of_range);
}

TEST(SupervisedWork, WhereItsClientCannotBeAskedItGoesOn) {
    const auto gate = std::make_shared<Gate>();
    int asked = 0;
    const auto end = supervise([gate] { gate->pass(); }, {.user = alice,
                                                          .interval = std::chrono::milliseconds(1),
                                                          .goesOn = [&]() -> bool {
                                                              if (++asked == 3)
                                                                  gate->open();
                                                              throw std::bad_alloc();
                                                          },
                                                          .cancel = [] {}});
    EXPECT_EQ(end, WorkEnd::done);
    EXPECT_GE(asked, 3);
}

TEST(SupervisedWork, WithoutAThreadItIsNotBegun) {
    noThreads = true;
    const auto end = supervise([] { ADD_FAILURE(); }, impatient(alice));
    noThreads = false;
    EXPECT_EQ(end, WorkEnd::noThread);
}

TEST(SupervisedWork, WorkThatDoesNotEndCostsItsOwnUserPlaces) {
    const auto gate = std::make_shared<Gate>();
    for (std::size_t i = 0; i != maxWorkLeft; ++i)
        EXPECT_EQ(supervise([gate] { gate->pass(); }, impatient(alice)), WorkEnd::left);
    EXPECT_EQ(supervise([] { ADD_FAILURE(); }, impatient(alice)), WorkEnd::tooMuchLeft);
    std::atomic<int> done = 0;
    const WorkSupervision patient{.user = bob, .goesOn = [] { return true; }, .cancel = [] {}};
    EXPECT_EQ(supervise([&] { ++done; }, patient), WorkEnd::done);
    EXPECT_EQ(done, 1) << "another user's is done";
    gate->open();
    // Its places are free again when it has ended.
    auto again = patient;
    again.user = alice;
    while (supervise([&] { ++done; }, again) == WorkEnd::tooMuchLeft)
        std::this_thread::yield();
    EXPECT_EQ(done, 2);
}

/// In a process of its own, which a watchdog ends if something waits for the mount.
class HungMountTest : public testing::Test {
  protected:
    HungMountTest() {
        char pattern[] = "/tmp/morvane-hung.XXXXXX";
        top_ = mkdtemp(pattern);
        fs::create_directories(top_ + "/hung");
        for (const auto* const name : {"/file", "/hung-file"})
            std::ofstream(top_ + name) << "text";
        chmod((top_ + "/file").c_str(), 0600);
        chmod(top_.c_str(), 0755);
    }
    ~HungMountTest() override { fs::remove_all(top_); }

    NSURL url(const char* name = "") const { return NSURL::fileURLWithPath(top_ + name); }

    std::string top_;
};

TEST_F(HungMountTest, TheFolderAboveItIsPropagatedAndCountedWithoutWaiting) {
    EXPECT_EQ(
        exitCodeOf([&] {
            const auto own = aclEntriesOfUrl(url());
            if (!own || !hasOwnMounts())
                return 1;
            const auto folder = silentMount(top_ + "/hung");
            const auto file = silentMount(top_ + "/hung-file");
            if (!folder || !file)
                return 2;
            if (propagateAclEntriesBelow(*own, url(), {}, {}, hours(1)))
                return 3;
            struct stat status {};
            if (stat((top_ + "/file").c_str(), &status) != 0 || (status.st_mode & 07777) != 0644)
                return 4;
            const auto sizes = sizesOfUrls({url()}, {}, {}, hours(1));
            if (sizes.error)
                return 5;
            return sizes.sizes.at(0)->size() == 4 ? 0 : 6;
        }),
        0);
}

TEST_F(HungMountTest, AMountThatNobodyElseMayLookAtIsNoFailure) {
    EXPECT_EQ(exitCodeOf([&] {
                  if (!hasOwnMounts())
                      return 1;
                  const auto folder = silentMount(top_ + "/hung", false);
                  const auto file = silentMount(top_ + "/hung-file", false);
                  if (!folder || !file)
                      return 2;
                  const auto sizes = sizesOfUrls({url()}, {}, {}, hours(1));
                  if (sizes.error)
                      return 3;
                  return sizes.sizes.at(0)->size() == 4 ? 0 : 4;
              }),
              0);
}

TEST_F(HungMountTest, AClientThatLeavesFreesItsRequestAndOthersGoOn) {
    EXPECT_EQ(
        exitCodeOf([&] {
            const auto own = aclEntriesOfUrl(url());
            if (!own || !hasOwnMounts())
                return 1;
            auto server = silentMount(top_ + "/hung");
            if (!server)
                return 2;
            // A client that is there no more.
            const std::weak_ptr<NSXPCConnection> gone;
            const auto sizes = sizesOfUrls({url("/file"), url("/hung")}, gone, {alice});
            if (!sizes.error || sizes.error->code() != ECANCELED)
                return 3;
            if (sizes.error->localizedDescription() !=
                "The computation was cancelled. A file system does not answer; what it was asked "
                "may still be done when it does.")
                return 4;
            if (sizes.sizes.at(0)->size() != 4 || !sizes.sizes.at(1)->busy())
                return 5;
            const auto error = propagateAclEntriesBelow(*own, url("/hung"), gone, {alice});
            if (!error || error->localizedDescription() !=
                              "The propagation was cancelled after 0 items. A file system does not "
                              "answer; what it was asked may still be done when it does.")
                return 6;
            for (std::size_t left = 2; left != maxWorkLeft; ++left)
                sizesOfUrls({url("/hung")}, gone, {alice});
            const auto refused = sizesOfUrls({url("/file")}, gone, {alice});
            if (!refused.error || refused.error->code() != EBUSY)
                return 7;
            if (propagateAclEntriesBelow(*own, url(), {}, {alice})->code() != EBUSY)
                return 8;
            const auto other = sizesOfUrls({url()}, {}, {bob}, hours(1));
            if (other.error || other.sizes.at(0)->size() != 8)
                return 9;
            // Whatever waits for the file system fails now.
            server = FileDescriptor();
            while (sizesOfUrls({url("/file")}, {}, {alice}, hours(1)).error)
                std::this_thread::yield();
            return 0;
        }),
        0);
}

}  // namespace
}  // namespace morvane
