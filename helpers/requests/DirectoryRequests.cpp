// SPDX-License-Identifier: MIT
#include "DirectoryRequests.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <string_view>

#include "RequestErrors.h"
#include "WorkErrors.h"

namespace morvane {
namespace {

struct CloseDirectory {
    void operator()(DIR* stream) const { closedir(stream); }
};

/// What a URL takes in an archive besides its text, and an archive besides its URLs, generously.
constexpr std::size_t bytesForUrl = 80;
constexpr std::size_t bytesForArchive = 1024;

}  // namespace

Result<std::vector<NSURL>> contentsOfDirectory(const NSURL& directory, const PathRule& rule,
                                               std::size_t messageSize,
                                               const std::function<bool()>& goesOn) {
    if (!directory.isFileURL())
        return Failure{posixError(EINVAL, directory, phrase("Only folders can be listed."))};
    auto opened = openPath(directory.path(), O_RDONLY | O_DIRECTORY | O_NONBLOCK, rule);
    if (!opened)
        return Failure{posixError(opened.error(), directory)};
    auto& descriptor = *opened;
    const std::unique_ptr<DIR, CloseDirectory> stream(fdopendir(descriptor.get()));
    if (!stream)
        return Failure{posixError(errno, directory)};
    descriptor.release();  // the stream's from now on
    std::vector<NSURL> contents;
    std::size_t bytes = bytesForArchive;
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(stream.get());
        if (!entry)
            break;
        if (goesOn && !goesOn())
            return Failure{errorOfCancelledWork(directory, WorkEnd::done)};
        const std::string_view name(entry->d_name);
        if (name == "." || name == "..")
            continue;
        contents.push_back(directory.URLByAppendingPathComponent(name));
        bytes += contents.back().absoluteString().size() + bytesForUrl;
        if (bytes > messageSize)
            return Failure{
                posixError(EMSGSIZE, directory,
                           phrase("The folder has more items than one answer can hold (%1 "
                                  "bytes).",
                                  messageSize))};
    }
    if (errno != 0)
        return Failure{posixError(errno, directory)};
    return contents;
}

}  // namespace morvane
