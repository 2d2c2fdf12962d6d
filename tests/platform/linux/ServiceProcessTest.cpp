// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/xpc/StreamSocket.h>
#include <gtest/gtest.h>
#include <linux/sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "TemporaryFolder.h"

namespace morvane {
namespace {

class ServiceProcessEnd : public testing::Test {
  protected:
    void SetUp() override { setenv("MORVANE_LIBEXEC_DIR", folder.c_str(), 1); }

    /// Starts a service that is this shell script.
    std::shared_ptr<StreamSocket> start(const std::string& script) {
        std::ofstream(folder / "service") << "#!/bin/sh\n" << script << "\n";
        std::filesystem::permissions(folder / "service", std::filesystem::perms::owner_all);
        return *privateServiceEndpoint("service")->connect();
    }

    const TemporaryFolder temporary;
    const std::filesystem::path& folder = temporary.path();
};

pid_t processOf(const StreamSocket& stream) {
    return static_cast<pid_t>(stream.peer()->processIdentifier);
}

bool isThere(pid_t process) {
    return kill(process, 0) == 0;
}

/// A child of this number, which nobody may have, that waits to be killed. Only root may choose.
pid_t startProcessWithNumber(pid_t number) {
    clone_args arguments{};
    arguments.exit_signal = SIGCHLD;
    arguments.set_tid = reinterpret_cast<std::uint64_t>(&number);
    arguments.set_tid_size = 1;
    const auto child = syscall(SYS_clone3, &arguments, sizeof arguments);
    while (child == 0)
        pause();
    return static_cast<pid_t>(child);
}

TEST_F(ServiceProcessEnd, AServiceThatLeavesIsWaitedFor) {
    const auto stream = start("read end <&3");
    const auto process = processOf(*stream);
    stream->shutdown();
    stream->finish();
    EXPECT_FALSE(isThere(process));
}

TEST_F(ServiceProcessEnd, AServiceThatStaysIsKilled) {
    const auto stream = start("exec sleep 1000");
    const auto process = processOf(*stream);
    stream->shutdown();
    stream->finish();
    EXPECT_FALSE(isThere(process));
}

TEST_F(ServiceProcessEnd, AProcessThatGotTheNumberOfAServiceThatWasReapedIsLeftAlone) {
    const auto stream = start("exit");
    const auto number = processOf(*stream);
    ASSERT_EQ(waitpid(number, nullptr, 0), number);  // as an application may
    ASSERT_EQ(startProcessWithNumber(number), number) << "the tests need root";
    stream->shutdown();
    stream->finish();
    EXPECT_EQ(waitpid(number, nullptr, WNOHANG), 0) << "it runs and can be waited for";
    kill(number, SIGKILL);
    EXPECT_EQ(waitpid(number, nullptr, 0), number);
}

}  // namespace
}  // namespace morvane
