// SPDX-License-Identifier: MIT
// A folder for the files of one test.
#pragma once

#include <spawn.h>
#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): mkdtemp() is no part of <cstdlib>
#include <sys/wait.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

namespace morvane {

/// A new, empty folder that only its owner may enter; it is gone, with all that is in it, when this
/// ends. It is in /tmp, whatever TMPDIR says: some tests become other users, who can enter that.
class TemporaryFolder {
  public:
    explicit TemporaryFolder(const std::filesystem::path& in = "/tmp") {
        std::string name = in / "morvane-test-XXXXXX";
        if (!mkdtemp(name.data()))
            throw std::system_error(errno, std::generic_category(), name);
        path_ = name;
    }
    ~TemporaryFolder() {
        std::error_code failed;
        std::filesystem::remove_all(path_, failed);
        if (failed)
            removeDeepTree();
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    /// The C++ library holds a descriptor for each level.
    void removeDeepTree() const {
        std::string arguments[] = {"rm", "-rf", "--", path_};
        char* const texts[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(),
                               arguments[3].data(), nullptr};
        pid_t child = -1;
        if (posix_spawnp(&child, "rm", nullptr, nullptr, texts, environ) == 0)
            waitpid(child, nullptr, 0);
    }

    std::filesystem::path path_;
};

}  // namespace morvane
