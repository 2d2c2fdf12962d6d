// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "AclRequests.h"
#include "PropagateRequests.h"
#include "SizeRequests.h"
#include "SupervisedWork.h"
#include "helpers/SilentMount.h"

namespace morvane {
namespace {

using std::chrono::hours;

constexpr std::uint32_t alice = 3000003;
constexpr std::uint32_t bob = 3000004;

using HungMountTest = SilentMountTest;

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
