// SPDX-License-Identifier: MIT
#include "SizeWalker.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <limits>
#include <utility>

namespace morvane {
namespace {

/// A link at the end of the path is an item of its own, here as everywhere.
constexpr int itemFlags = O_PATH | O_NOFOLLOW;

std::int64_t sum(std::int64_t a, std::int64_t b) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    return a > most - b ? most : a + b;  // sparse files can claim more than there is
}

}  // namespace

bool SizeWalker::add(const std::string& path, const PathRule& rule) {
    if (isCancelled())
        return false;
    const auto fail = [&](int code, bool notReached = false) {
        walk_.failed(path, code, notReached);
        return false;
    };
    const auto opened = openPath(path, itemFlags, rule);
    if (!opened)
        return fail(opened.error());
    const int item = opened->get();
    struct statx status;
    if (const int code = statusAt(item, "", status, true); code != 0)
        return fail(code);
    ++ownItems_;
    if (S_ISREG(status.stx_mode))
        addBytes(countedSize(status));
    if (!S_ISDIR(status.stx_mode))
        return true;
    auto folder = openBelow(item, ".", O_RDONLY | O_DIRECTORY | O_NONBLOCK);
    if (!folder)
        return fail(errno, true);
    asksFileSystem_ = !knowsSizes(folder.get());
    walk_.run(std::move(folder), path, *this);
    return true;
}

std::int64_t SizeWalker::take() {
    hardLinks_.clear();
    return bytes_.exchange(0);
}

void SizeWalker::visitFiles(const TreeFolder& in, FileNames names) {
    std::int64_t bytes = 0;
    names.forEach([&](const char* name) {
        struct statx status;
        int code = statusAt(in.descriptor(), name, status);
        // A file on which another file system is mounted is not examined.
        if (code == 0 && asksFileSystem_ && idOf(status).isOnMountOf(in.id()))
            code = statusAt(in.descriptor(), name, status, true);
        if (code == 0 && S_ISREG(status.stx_mode) && idOf(status).isOnMountOf(in.id()))
            bytes = sum(bytes, countedSize(status));
        else if (code != 0 && !hasGone(code))
            in.failed(name, code);
        return !in.isCancelled();
    });
    addBytes(bytes);
}

void SizeWalker::addBytes(std::int64_t bytes) {
    auto before = bytes_.load();
    while (!bytes_.compare_exchange_weak(before, sum(before, bytes))) {
    }
}

std::int64_t SizeWalker::countedSize(const struct statx& status) {
    if (status.stx_nlink > 1) {
        const std::lock_guard lock(mutex_);
        if (!hardLinks_.insert(status.stx_ino).second)
            return 0;
    }
    return static_cast<std::int64_t>(status.stx_size);
}

}  // namespace morvane
