// SPDX-License-Identifier: MIT
#include "FolderStack.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

namespace morvane {
namespace {

/// Opens a folder, which has to be the one with `id`; an errno value if it is not.
Result<FileDescriptor, int> openSame(int folder, const char* name, const ItemId& id,
                                     bool forReading) {
    const int access = forReading ? O_RDONLY | O_NONBLOCK : O_PATH;
    auto opened = openBelow(folder, name, access | O_DIRECTORY);
    if (!opened)
        return Failure{errno};
    struct statx status;
    if (const int code = statusAt(opened.get(), "", status); code != 0)
        return Failure{code};
    if (idOf(status) != id)
        return Failure{ESTALE};
    return opened;
}

}  // namespace

FolderStack::FolderStack(WalkedFolder first, std::size_t depth) : depthOfFirst_(depth) {
    folders_.push_back(std::move(first));
}

void FolderStack::push(WalkedFolder folder) {
    folders_.push_back(std::move(folder));
    if (folders_.size() > heldFirst + heldLast)
        folders_[folders_.size() - 1 - heldLast].descriptor = FileDescriptor();
}

void FolderStack::leave(const std::function<void(const std::string& path, int code)>& lost) {
    const std::size_t from = folders_.size() - 1;
    for (std::size_t target = from; target-- != 0;) {
        auto& folder = folders_[target];
        if (!folder.hasMore())
            continue;
        const int code = folder.descriptor ? 0 : openAgain(target, from);
        if (code == 0) {
            folders_.erase(folders_.begin() + static_cast<std::ptrdiff_t>(target) + 1,
                           folders_.end());
            return;
        }
        lost(pathOf(target + 1, nullptr), code);
    }
    folders_.clear();
}

/// `from` is the folder that is being left, which is open.
int FolderStack::openAgain(std::size_t target, std::size_t from) {
    auto opened = climb(target, from);
    // A folder on the way up has been moved: the names may still lead to this one.
    if (!opened)
        opened = descend(target);
    if (!opened)
        return opened.error() == ENOENT ? ESTALE : opened.error();
    if (lseek(opened->get(), folders_[target].position, SEEK_SET) < 0)
        return errno;
    folders_[target].descriptor = *std::move(opened);
    return 0;
}

Result<FileDescriptor, int> FolderStack::climb(std::size_t target, std::size_t from) const {
    Result<FileDescriptor, int> opened = FileDescriptor();
    int below = folders_[from].descriptor.get();
    for (std::size_t i = from; opened && i-- != target;) {
        opened = openSame(below, "..", folders_[i].id, i == target);
        below = opened ? opened->get() : -1;
    }
    return opened;
}

Result<FileDescriptor, int> FolderStack::descend(std::size_t target) const {
    std::size_t held = target;
    do
        --held;  // The first of all is held.
    while (!folders_[held].descriptor);
    Result<FileDescriptor, int> opened = FileDescriptor();
    int above = folders_[held].descriptor.get();
    for (std::size_t i = held + 1; opened && i <= target; ++i) {
        opened = openSame(above, folders_[i].name.c_str(), folders_[i].id, i == target);
        above = opened ? opened->get() : -1;
    }
    return opened;
}

std::string FolderStack::pathOf(std::size_t count, const char* name) const {
    std::string path = folders_.front().name;
    const auto append = [&](const char* component) {
        const bool fits = path.size() + 1 + std::strlen(component) < PATH_MAX;
        if (fits) {
            if (!path.ends_with('/'))
                path += '/';
            path += component;
        }
        return fits;
    };
    for (std::size_t i = 1; i < count; ++i) {
        if (!append(folders_[i].name.c_str()))
            return path;
    }
    if (name)
        append(name);
    return path;
}

}  // namespace morvane
