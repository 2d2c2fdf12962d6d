// SPDX-License-Identifier: MIT
#include "ItemPath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace morvane {

Result<FileDescriptor, int> openPath(const std::string& path, int flags, const PathRule& rule) {
    int descriptor = -1;
    if (rule.onBehalfOf) {
        open_how how{};
        how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
        how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
        descriptor =
            static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how));
    } else {
        descriptor = open(path.c_str(), flags | O_CLOEXEC);
    }
    if (descriptor < 0)
        return Failure{errno};
    return FileDescriptor(descriptor);
}

int whyNotChangeable(const std::string& path, const PathRule& rule) {
    if (!rule.onBehalfOf)
        return 0;
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return errno;
    if (S_ISDIR(status.st_mode))
        return 0;
    if (!S_ISREG(status.st_mode))
        return EPERM;
    return status.st_nlink > 1 && status.st_uid != *rule.onBehalfOf ? EMLINK : 0;
}

}  // namespace morvane
