// SPDX-License-Identifier: MIT
#include "JournalFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include "WrittenFile.h"

namespace morvane {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view journals = ".acl";
/// The ending of names that stand for what could not be noted.
constexpr std::string_view lost = ".lost";
/// The ending of names of what could not be taken back.
constexpr std::string_view remains = ".failed";

std::string systemProblem(const fs::path& path, int error) {
    return say("%1: %2", escaped(path.string()), Phrase::ofSystemError(error));
}

/// Whether the name is one that notes have: the time at which the change began.
bool isOfNotes(const std::string& name, std::string_view ending) {
    return name.size() > ending.size() && name.ends_with(ending) &&
           std::all_of(name.begin(), name.end() - static_cast<std::ptrdiff_t>(ending.size()),
                       [](char c) { return c >= '0' && c <= '9'; });
}

enum class Owners {
    thisUser,
    /// Folders of root are trusted, as root could change anything of this user.
    thisUserOrRoot
};

/// Refuses what somebody else owns, and unless `mayBeShared` what somebody else can write to.
Problem distrusted(int fd, const fs::path& path, Owners owners, bool mayBeShared) {
    struct stat found {};
    if (fstat(fd, &found) != 0)
        return systemProblem(path, errno);
    if (found.st_uid != geteuid() && (owners == Owners::thisUser || found.st_uid != 0))
        return say("'%1' belongs to another user", escaped(path.string()));
    if (!mayBeShared && (found.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return say("other users can write to '%1'", escaped(path.string()));
    return std::nullopt;
}

/// Opens the folder that holds this program's two. A missing one is made only in a folder of this
/// user or of root: with the HOME of another user, root would leave a folder of its own there.
FileDescriptor openedState(const fs::path& state, bool isMade, Problem& problem) {
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    FileDescriptor fd(open(state.c_str(), flags));
    if (!fd && errno == ENOENT && isMade) {
        auto there = state;
        while (!fd && errno == ENOENT && there.has_relative_path()) {
            there = there.parent_path();
            fd = FileDescriptor(open(there.c_str(), flags));
        }
        problem = fd ? distrusted(fd.get(), there, Owners::thisUserOrRoot, true)
                     : systemProblem(there, errno);
        if (problem)
            return {};
        std::error_code error;
        fs::create_directories(state, error);
        fd = FileDescriptor(open(state.c_str(), flags));
    }
    if (!fd) {
        if (isMade || errno != ENOENT)
            problem = systemProblem(state, errno);
        return {};
    }
    problem = distrusted(fd.get(), state, Owners::thisUserOrRoot, true);
    return problem ? FileDescriptor() : std::move(fd);
}

}  // namespace

std::optional<JournalFolder> JournalFolder::opened(const fs::path& folder, bool isMade,
                                                   Problem& problem) {
    auto path = folder.parent_path().parent_path();
    auto fd = openedState(path, isMade, problem);
    if (!fd)
        return std::nullopt;
    for (const auto& name : {folder.parent_path().filename(), folder.filename()}) {
        path /= name;
        // Nobody else is to read the paths and names in the notes.
        if (isMade && mkdirat(fd.get(), name.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
            problem = systemProblem(path, errno);
            return std::nullopt;
        }
        FileDescriptor next(
            openat(fd.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!next) {
            if (isMade || errno != ENOENT)
                problem = systemProblem(path, errno);
            return std::nullopt;
        }
        problem = distrusted(next.get(), path, Owners::thisUser, path != folder);
        if (problem)
            return std::nullopt;
        fd = std::move(next);
    }
    return JournalFolder(folder, std::move(fd));
}

std::vector<std::string> JournalFolder::names() const {
    return namesEndingIn(journals, lost);
}

bool JournalFolder::isLost(const std::string& name) {
    return isOfNotes(name, lost);
}

std::vector<std::string> JournalFolder::namesEndingIn(std::string_view ending,
                                                      std::string_view otherEnding) const {
    std::vector<std::string> names;
    std::error_code error;
    // The descriptor is used, as the path may lead elsewhere by now.
    const auto listed = "/proc/self/fd/" + std::to_string(folder_.get());
    for (auto each = fs::directory_iterator(listed, error);
         !error && each != fs::directory_iterator(); each.increment(error)) {
        if (auto name = each->path().filename().string();
            isOfNotes(name, ending) || (!otherEnding.empty() && isOfNotes(name, otherEnding)))
            names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
        const auto time = [](std::string_view name) { return name.substr(0, name.find('.')); };
        return std::pair(time(a).size(), time(a)) < std::pair(time(b).size(), time(b));
    });
    return names;
}

FileDescriptor JournalFolder::begin(const std::string& name, Problem& problem) const {
    FileDescriptor fd(openat(folder_.get(), name.c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                             S_IRUSR | S_IWUSR));
    if (!fd)
        problem = systemProblem(pathOf(name), errno);
    return fd;
}

std::string JournalFolder::content(const std::string& name, Problem& problem) const {
    const auto path = pathOf(name);
    // Opening a pipe must not block this program.
    const FileDescriptor fd(
        openat(folder_.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat found {};
    if (!fd || fstat(fd.get(), &found) != 0) {
        problem = systemProblem(path, errno);
        return {};
    }
    problem = distrusted(fd.get(), path, Owners::thisUser, false);
    if (!problem &&
        (!S_ISREG(found.st_mode) || static_cast<std::size_t>(found.st_size) > maxJournalBytes))
        problem = systemProblem(path, S_ISREG(found.st_mode) ? EFBIG : EINVAL);
    if (problem)
        return {};
    std::string text(static_cast<std::size_t>(found.st_size), '\0');
    std::size_t length = 0;
    while (length != text.size()) {
        const auto count = read(fd.get(), text.data() + length, text.size() - length);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            problem = systemProblem(path, errno);
        if (count <= 0)
            break;
        length += static_cast<std::size_t>(count);
    }
    text.resize(length);
    return text;
}

void JournalFolder::remove(const std::string& name) const {
    unlinkat(folder_.get(), name.c_str(), 0);
}

std::string JournalFolder::markAsLost(const std::string& name) const {
    const auto marker = name.substr(0, name.size() - journals.size()) + std::string(lost);
    // A file can be renamed even on a full disk.
    if (renameat(folder_.get(), name.c_str(), folder_.get(), marker.c_str()) != 0)
        return name;
    const FileDescriptor fd(
        openat(folder_.get(), marker.c_str(), O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC));
    return marker;
}

fs::path JournalFolder::keepAside(const std::string& name, std::string_view lists,
                                  Problem& problem) const {
    const auto kept = namesEndingIn(remains);
    for (std::size_t i = 0; i + maxJournals <= kept.size(); ++i)
        remove(kept[i]);
    const auto aside = name.substr(0, name.size() - journals.size()) + std::string(remains);
    const auto fd = begin(aside, problem);
    if (fd && !writeAll(fd.get(), lists)) {
        problem = systemProblem(pathOf(aside), errno);
        remove(aside);
    }
    return pathOf(aside);
}

}  // namespace morvane
