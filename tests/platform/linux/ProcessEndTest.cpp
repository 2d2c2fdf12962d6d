// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/MainLoop.h>
#include <MorvaneOperation/platform/host/FileAccess.h>
#include <MorvaneOperation/platform/host/MVIdentities.h>
#include <MorvaneOperation/platform/security/AuthorizationServices.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

/// A worker may still use the system while the process ends: what is reached from anywhere is there
/// until the end. In each case the handler was registered before the system was first used, so it
/// runs after all that is destroyed then.
namespace morvane {
namespace {

template <auto Use>
[[noreturn]] void endAfterUse() {
    std::atexit([] {
        // What was freed does not look any more as if it were still there.
        for (std::size_t size = 24; size <= 1024; size += 16) {
            for (int i = 0; i < 100; ++i)
                std::memset(std::malloc(size), 0x5a, size);
        }
        Use();
        ::_exit(7);
    });
    Use();
    std::exit(1);
}

void useMainLoop() {
    MainLoop::current().runOnNextTurn([] {});
}
void useFileAccess() {
    if (FileAccess::current().access("/", 4) != 0)
        ::_exit(2);
}
void useAuthorizationServices() {
    if (AuthorizationServices::current().SecCopyErrorMessageString(errAuthorizationDenied).empty())
        ::_exit(2);
}
void useIdentities() {
    if (MVIdentities::sharedIdentities().fullNamedGroups().empty())
        ::_exit(2);
}

class EndOfTheProcess : public testing::Test {
  protected:
    // In a process that has used nothing yet.
    EndOfTheProcess() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(EndOfTheProcess, TheMainLoopIsThereUntilIt) {
    EXPECT_EXIT(endAfterUse<useMainLoop>(), testing::ExitedWithCode(7), "");
}

TEST_F(EndOfTheProcess, TheAccessToFilesIsThereUntilIt) {
    EXPECT_EXIT(endAfterUse<useFileAccess>(), testing::ExitedWithCode(7), "");
}

TEST_F(EndOfTheProcess, TheAuthorizationServicesAreThereUntilIt) {
    EXPECT_EXIT(endAfterUse<useAuthorizationServices>(), testing::ExitedWithCode(7), "");
}

TEST_F(EndOfTheProcess, TheSharedIdentitiesAreThereUntilIt) {
    EXPECT_EXIT(endAfterUse<useIdentities>(), testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace morvane
