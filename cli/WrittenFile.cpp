// SPDX-License-Identifier: MIT
#include "WrittenFile.h"

#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace morvane {

bool writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const auto count = write(fd, text.data(), text.size());
        if (count < 0 && errno != EINTR)
            return false;
        text.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return true;
}

Problem writeFile(const std::string& path, std::string_view text) {
    const auto failed = [&](int error) {
        return say("'%1' could not be written: %2", escaped(path), Phrase::ofSystemError(error));
    };
    constexpr mode_t usual = 0666;  // less what the user's mask takes away
    struct stat old {};
    const bool isThere = stat(path.c_str(), &old) == 0;
    if (isThere && !S_ISREG(old.st_mode)) {
        const FileDescriptor fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
        return fd && writeAll(fd.get(), text) ? std::nullopt : Problem(failed(errno));
    }
    // A symbolic link is followed, and stays.
    std::error_code error;
    const auto whole = isThere ? std::filesystem::canonical(path, error).string() : path;
    if (error)
        return failed(error.value());
    const auto fresh = whole + ".new-" + std::to_string(getpid());
    FileDescriptor fd(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, usual));
    if (!fd)
        return failed(errno);
    constexpr mode_t rights = 07777;
    if (!writeAll(fd.get(), text) || (isThere && fchmod(fd.get(), old.st_mode & rights) != 0) ||
        fsync(fd.get()) != 0 || rename(fresh.c_str(), whole.c_str()) != 0) {
        const int why = errno;
        unlink(fresh.c_str());
        return failed(why);
    }
    return std::nullopt;
}

}  // namespace morvane
