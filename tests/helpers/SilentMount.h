// SPDX-License-Identifier: MIT
// File systems that do not answer, in a mount namespace of the test's own.
#pragma once

#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "TemporaryFolder.h"

namespace morvane {

/// What `work` returns, done in a process of its own, so that what it changes of itself ends with
/// it. -1 if it has not ended by itself within a minute.
template <class Work>
int exitCodeOf(Work work) {
    const auto child = fork();
    if (child == 0) {
        alarm(60);
        _exit(work());
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child)
        return -2;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Whether this process sees its own mounts from now on.
inline bool hasOwnMounts() {
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// Mounts a file system over the folder or file at `path` whose server never answers. It fails
/// whatever waits for it once the descriptor is closed. Empty if it cannot be mounted. Without
/// `forAll`, only one user may look at it, and that is not root.
inline FileDescriptor silentMount(const std::string& path, bool forAll = true) {
    struct stat status {};
    FileDescriptor server(open("/dev/fuse", O_RDWR | O_CLOEXEC));
    if (!server || stat(path.c_str(), &status) != 0)
        return {};
    const std::string options =
        "fd=" + std::to_string(server.get()) +
        ",rootmode=" + (S_ISDIR(status.st_mode) ? "40000" : "100000") +
        (forAll ? ",user_id=0,group_id=0,allow_other" : ",user_id=65534,group_id=65534");
    if (mount("silent", path.c_str(), "fuse", MS_NOSUID | MS_NODEV, options.c_str()) != 0)
        return {};
    return server;
}

/// A folder with a file, and with a folder and a file that a mount can take the place of. What
/// mounts there does so in a process of its own, which a watchdog ends if something waits for it.
class SilentMountTest : public testing::Test {
  protected:
    SilentMountTest() {
        std::filesystem::create_directories(top_ + "/hung");
        for (const auto* const name : {"/file", "/hung-file"})
            std::ofstream(top_ + name) << "text";
        chmod((top_ + "/file").c_str(), 0600);
        chmod(top_.c_str(), 0755);
    }

    NSURL url(const char* name = "") const { return NSURL::fileURLWithPath(top_ + name); }

    const TemporaryFolder temporary_;
    const std::string top_ = temporary_.path();
};

}  // namespace morvane
