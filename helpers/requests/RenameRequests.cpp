// SPDX-License-Identifier: MIT
#include "RenameRequests.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <unordered_map>
#include <utility>

#include "RenamePlan.h"
#include "RequestErrors.h"

namespace morvane {
namespace {

/// Whether a file system may refuse the name itself.
bool isUnusual(const std::string& name) {
    return name.ends_with('.') || name.ends_with(' ') ||
           std::any_of(name.begin(), name.end(), [](char c) {
               const auto byte = static_cast<unsigned char>(c);
               return byte < 0x20 || byte > 0x7e || std::strchr("\"*:<>?\\|", c);
           });
}

std::string joined(const std::string& folder, const std::string& name) {
    return folder.ends_with('/') ? folder + name : folder + '/' + name;
}

/// For a network mount, which knows only the rename that overwrites: the item has both names for a
/// moment. A folder can have only one.
int linkToNewName(int folder, const char* from, const char* to) {
    struct stat in {};
    struct stat item {};
    if (fstat(folder, &in) != 0 || fstatat(folder, from, &item, AT_SYMLINK_NOFOLLOW) != 0)
        return errno;
    const auto user = geteuid();
    // Else it would get the new name and could not lose the old one.
    if ((in.st_mode & S_ISVTX) != 0 && user != 0 && user != in.st_uid && user != item.st_uid)
        return EPERM;
    if (linkat(folder, from, folder, to, 0) != 0)
        return errno == EPERM || errno == EINVAL ? EOPNOTSUPP : errno;
    struct stat left {};
    // Something else may have the old name by now, and keeps it.
    if (fstatat(folder, from, &left, AT_SYMLINK_NOFOLLOW) != 0 || left.st_ino != item.st_ino ||
        unlinkat(folder, from, 0) == 0)
        return 0;
    const int code = errno;
    unlinkat(folder, to, 0);
    return code;
}

class Renaming {
  public:
    Renaming(RenamePlan plan, const std::vector<NSURL>& urls, const RenameCall& call,
             const std::function<bool()>& goesOn)
        : urls_(urls),
          call_(call),
          goesOn_(goesOn),
          items_(std::move(plan.items)),
          folders_(std::move(plan.folders)),
          foldersByPath_(std::move(plan.foldersByPath)) {}

    void run();
    RenameAnswer answer();

  private:
    void renameChain(std::size_t first);
    void renameCircle(std::size_t first);
    /// 0 or the errno value.
    int exchange(std::size_t a, std::size_t b);
    void check(RenameItem& item);
    bool goesOn() const { return !goesOn_ || goesOn_(); }
    std::string presentFolderPath(const RenameItem& item) const;

    const std::vector<NSURL>& urls_;
    const RenameCall& call_;
    const std::function<bool()>& goesOn_;
    std::vector<RenameItem> items_;
    const std::vector<RenameFolder> folders_;
    const std::unordered_map<std::string, std::size_t> foldersByPath_;
};

void Renaming::run() {
    for (std::size_t i = 0; i < items_.size(); ++i) {
        if (items_[i].ahead == noItem && !items_[i].visited)
            renameChain(i);
    }
    // What no chain has reached is in a circle.
    for (std::size_t i = 0; i < items_.size(); ++i) {
        if (items_[i].visited)
            continue;
        if (items_[i].ahead == i)
            check(items_[i]);
        else
            renameCircle(i);
    }
}

/// Who waits for nobody goes first, so that the name of each is free for the one behind it.
void Renaming::renameChain(std::size_t first) {
    for (std::size_t i = first; i != noItem; i = items_[i].behind) {
        auto& item = items_[i];
        item.visited = true;
        if (!goesOn()) {
            item.code = ECANCELED;
            continue;
        }
        const int folder = folders_[item.folder].descriptor.get();
        const auto* from = item.oldName.c_str();
        const auto* to = item.newName.c_str();
        item.code = call_(folder, from, to, RENAME_NOREPLACE);
        // Where it cannot keep what is there, the system says only that the argument is invalid. So
        // it says of a name that the file system does not take.
        if (item.code == EINVAL) {
            const int code = linkToNewName(folder, from, to);
            item.code = code == EOPNOTSUPP && isUnusual(item.newName) ? EINVAL : code;
        }
        if (item.code == 0)
            item.name = item.newName;
    }
}

int Renaming::exchange(std::size_t a, std::size_t b) {
    auto& first = items_[a];
    auto& second = items_[b];
    const int code = call_(folders_[first.folder].descriptor.get(), first.name.c_str(),
                           second.name.c_str(), RENAME_EXCHANGE);
    if (code == 0)
        std::swap(first.name, second.name);
    return code;
}

/// Each exchange brings one item to its place, and the next one to where that one was.
void Renaming::renameCircle(std::size_t first) {
    std::vector<std::size_t> circle;
    for (std::size_t i = first; !items_[i].visited; i = items_[i].ahead) {
        items_[i].visited = true;
        circle.push_back(i);
    }
    if (!goesOn()) {
        for (const auto i : circle)
            items_[i].code = ECANCELED;
        return;
    }
    for (std::size_t done = 0; done + 1 < circle.size(); ++done) {
        int code = exchange(circle[done], circle[done + 1]);
        if (code == 0)
            continue;
        if (code == EINVAL)  // All names are names of items already.
            code = EOPNOTSUPP;
        // The item that is on its way has neither name now: all go back.
        while (done > 0 && exchange(circle[done - 1], circle[done]) == 0)
            --done;
        for (const auto i : circle)
            items_[i].code = items_[i].name == items_[i].newName ? 0 : code;
        return;
    }
}

/// There is nothing to do for an item that keeps its name, if it is there.
void Renaming::check(RenameItem& item) {
    struct stat status {};
    if (fstatat(folders_[item.folder].descriptor.get(), item.name.c_str(), &status,
                AT_SYMLINK_NOFOLLOW) != 0)
        item.code = errno;
}

/// The way that the request has gone, with the new names of those folders on it that got one.
std::string Renaming::presentFolderPath(const RenameItem& item) const {
    const auto& path = item.folderPath;
    std::string present = "/";
    for (std::size_t begin = 1; begin < path.size();) {
        const auto end = std::min(path.find('/', begin), path.size());
        auto name = path.substr(begin, end - begin);
        const auto above = foldersByPath_.find(begin == 1 ? "/" : path.substr(0, begin - 1));
        if (above != foldersByPath_.end()) {
            const auto& renamed = folders_[above->second].byOld;
            if (const auto found = renamed.find(name); found != renamed.end())
                name = items_[found->second].name;
        }
        present = joined(present, name);
        begin = end + 1;
    }
    const auto& folder = folders_[item.folder];
    struct stat status {};
    if (stat(present.c_str(), &status) == 0 && status.st_dev == folder.device &&
        status.st_ino == folder.inode)
        return present;
    // The way led through a link that leads elsewhere now.
    std::array<char, PATH_MAX> real{};
    const auto self = "/proc/self/fd/" + std::to_string(folder.descriptor.get());
    const auto length = readlink(self.c_str(), real.data(), real.size());
    return length > 0 ? std::string(real.data(), static_cast<std::size_t>(length)) : present;
}

RenameAnswer Renaming::answer() {
    RenameAnswer answer;
    std::unordered_map<std::string, std::string> present;
    std::size_t failed = 0;
    std::size_t firstFailed = 0;
    for (std::size_t i = 0; i < items_.size(); ++i) {
        const auto& item = items_[i];
        const auto [place, isNew] = present.try_emplace(item.folderPath, item.folderPath);
        if (isNew && item.folder != noItem)
            place->second = presentFolderPath(item);
        answer.urls.push_back(NSURL::fileURLWithPath(joined(place->second, item.name)));
        answer.codes.push_back(item.code);
        if (item.code != 0 && failed++ == 0)
            firstFailed = i;
    }
    if (failed == 0)
        return answer;
    const auto code = static_cast<int>(answer.codes[firstFailed]);
    const auto reason =
        code == EOPNOTSUPP
            ? phrase(
                  "This file system cannot rename folders, or let items change places, without "
                  "the risk of overwriting what gets the new name at that moment.")
            : Phrase::ofSystemError(code);
    answer.error =
        posixError(code, urls_[firstFailed],
                   // TRANSLATORS: %3 is a path, %4 the reason.
                   phrase("%1 of %2 items could not be renamed; the first is %3 (%4)", failed,
                          items_.size(), quotedPath(urls_[firstFailed]), reason));
    return answer;
}

}  // namespace

int systemRename(int folder, const char* from, const char* to, unsigned flags) {
    return renameat2(folder, from, folder, to, flags) == 0 ? 0 : errno;
}

RenameAnswer renameUrlsTo(const std::vector<NSURL>& urls, const std::vector<std::string>& names,
                          const PathRule& rule, const RenameCall& call,
                          const std::function<bool()>& goesOn) {
    const auto refused = [&](NSErrorRef error) {
        return RenameAnswer{urls, std::vector(urls.size(), error->code()), error};
    };
    const auto first = urls.empty() ? NSURL::fileURLWithPath("/") : urls.front();
    if (urls.size() != names.size())
        return refused(
            posixError(EINVAL, first,
                       phrase("The request has %1 items but %2 names.", urls.size(), names.size()),
                       phrase("Nothing was renamed. Give one name for each item.")));
    if (urls.size() > maxItemsToRename)
        return refused(
            posixError(E2BIG, first,
                       phrase("The request has %1 items; one request renames at most %2.",
                              urls.size(), maxItemsToRename),
                       phrase("Nothing was renamed. Make several requests.")));
    auto plan = planOfRenaming(urls, names, rule);
    if (!plan)
        return refused(plan.error());
    Renaming renaming(*std::move(plan), urls, call, goesOn);
    renaming.run();
    return renaming.answer();
}

}  // namespace morvane
