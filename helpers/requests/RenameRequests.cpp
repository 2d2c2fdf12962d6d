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
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>
#include <variant>

#include "RequestErrors.h"

namespace morvane {
namespace {

constexpr std::size_t none = static_cast<std::size_t>(-1);

struct Folder {
    FileDescriptor descriptor;
    dev_t device = 0;
    ino_t inode = 0;
    /// The items in it by their present (by their new) names.
    std::unordered_map<std::string, std::size_t> byOld = {};
    std::unordered_map<std::string, std::size_t> byNew = {};
};

struct Item {
    /// Of the folder that the item is in, as the request spells it, and its number.
    std::string folderPath;
    std::size_t folder = none;
    std::string oldName;
    std::string newName;
    /// The name that it has at this moment.
    std::string name;
    std::int64_t code = 0;
    /// Who has the name that this item is to get; who is to get the name that this item has.
    std::size_t ahead = none;
    std::size_t behind = none;
    bool visited = false;
};

/// Empty for a name that a folder can hold, otherwise what is wrong with it.
std::string faultOfName(const std::string& name) {
    if (name.empty())
        return "A new name is empty.";
    if (name == "." || name == "..")
        return "\"" + name + "\" names a folder's own place and cannot be given to an item.";
    if (name.find('/') != std::string::npos)
        return "The new name \"" + name + "\" holds a slash; an item stays in its folder.";
    if (name.find('\0') != std::string::npos)
        return "A new name holds a NUL character.";
    if (name.size() > NAME_MAX)
        return "A new name has " + std::to_string(name.size()) + " bytes; a name has at most " +
               std::to_string(NAME_MAX) + ".";
    return {};
}

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
    Renaming(const std::vector<NSURL>& urls, const PathRule& rule, const RenameCall& call,
             const std::function<bool()>& goesOn)
        : urls_(urls), rule_(rule), call_(call), goesOn_(goesOn) {}

    /// Null, or why nothing can be begun.
    NSErrorRef prepare(const std::vector<std::string>& names);
    void run();
    RenameAnswer answer();

  private:
    std::optional<int> findFolder(const std::string& path, std::size_t& number);
    NSErrorRef prepareItem(std::size_t index, const std::string& name);
    void renameChain(std::size_t first);
    void renameCircle(std::size_t first);
    /// 0 or the errno value.
    int exchange(std::size_t a, std::size_t b);
    void check(Item& item);
    bool goesOn() const { return !goesOn_ || goesOn_(); }
    std::string presentFolderPath(const Item& item) const;

    const std::vector<NSURL>& urls_;
    const PathRule& rule_;
    const RenameCall& call_;
    const std::function<bool()>& goesOn_;
    std::vector<Item> items_;
    std::vector<Folder> folders_;
    std::unordered_map<std::string, std::size_t> foldersByPath_;
    std::map<std::pair<dev_t, ino_t>, std::size_t> foldersById_;
};

std::optional<int> Renaming::findFolder(const std::string& path, std::size_t& number) {
    if (const auto known = foldersByPath_.find(path); known != foldersByPath_.end()) {
        number = known->second;
        return {};
    }
    // Held from here on, so that it is the same folder whatever becomes of its path.
    auto opened = openPath(path, O_PATH | O_DIRECTORY, rule_);
    if (!opened)
        return opened.error();
    auto& descriptor = *opened;
    struct stat status {};
    if (fstat(descriptor.get(), &status) != 0)
        return errno;
    const auto [place, isNew] =
        foldersById_.try_emplace({status.st_dev, status.st_ino}, folders_.size());
    if (isNew)
        folders_.push_back({std::move(descriptor), status.st_dev, status.st_ino});
    number = foldersByPath_[path] = place->second;
    return {};
}

NSErrorRef Renaming::prepareItem(std::size_t index, const std::string& name) {
    const auto& url = urls_[index];
    if (!url.isFileURL())
        return posixError(EINVAL, url, "Only files and folders can be renamed.");
    if (const auto fault = faultOfName(name); !fault.empty())
        return posixError(name.size() > NAME_MAX ? ENAMETOOLONG : EINVAL, url, fault,
                          "Nothing was renamed. Give each item a name of its own.");
    auto path = url.path();
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    const auto slash = path.rfind('/');
    Item item;
    item.oldName = path.substr(slash + 1);
    if (item.oldName.empty() || item.oldName == "." || item.oldName == "..")
        return posixError(EINVAL, url, "The path does not end with the name of an item.",
                          "Nothing was renamed. Name the item as its folder lists it.");
    item.folderPath = slash == 0 ? "/" : path.substr(0, slash);
    item.name = item.oldName;
    item.newName = name;
    if (const auto code = findFolder(item.folderPath, item.folder)) {
        if (*code == EMFILE || *code == ENFILE)
            return posixError(*code, url,
                              "The items are in too many different folders for one request.",
                              "Nothing was renamed. Make several requests.");
        item.code = *code;
        item.visited = true;
        items_.push_back(std::move(item));
        return nullptr;
    }
    auto& folder = folders_[item.folder];
    if (!folder.byOld.emplace(item.oldName, index).second)
        return posixError(EINVAL, url,
                          "The item " + quotedPath(url) + " is named twice in the request.",
                          "Nothing was renamed. Name each item once.");
    if (!folder.byNew.emplace(name, index).second)
        return posixError(EEXIST, url,
                          "Two items of one folder would both get the name \"" + name + "\".",
                          "Nothing was renamed. Give each item a name of its own.");
    items_.push_back(std::move(item));
    return nullptr;
}

NSErrorRef Renaming::prepare(const std::vector<std::string>& names) {
    items_.reserve(urls_.size());
    for (std::size_t i = 0; i < urls_.size(); ++i) {
        if (auto error = prepareItem(i, names[i]))
            return error;
    }
    for (std::size_t i = 0; i < items_.size(); ++i) {
        auto& item = items_[i];
        if (item.folder == none)
            continue;
        const auto& present = folders_[item.folder].byOld;
        if (const auto found = present.find(item.newName); found != present.end()) {
            item.ahead = found->second;
            items_[item.ahead].behind = i;
        }
    }
    return nullptr;
}

void Renaming::run() {
    for (std::size_t i = 0; i < items_.size(); ++i) {
        if (items_[i].ahead == none && !items_[i].visited)
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
    for (std::size_t i = first; i != none; i = items_[i].behind) {
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
void Renaming::check(Item& item) {
    struct stat status {};
    if (fstatat(folders_[item.folder].descriptor.get(), item.name.c_str(), &status,
                AT_SYMLINK_NOFOLLOW) != 0)
        item.code = errno;
}

/// The way that the request has gone, with the new names of those folders on it that got one.
std::string Renaming::presentFolderPath(const Item& item) const {
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
        if (isNew && item.folder != none)
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
            ? "This file system cannot rename folders, or let items change places, without the "
              "risk of overwriting what gets the new name at that moment."
            : NSError::errorWithDomain(NSPOSIXErrorDomain, code)->localizedDescription();
    answer.error = posixError(code, urls_[firstFailed],
                              std::to_string(failed) + " of " + std::to_string(items_.size()) +
                                  " items could not be renamed; the first is " +
                                  quotedPath(urls_[firstFailed]) + " (" + reason + ")");
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
        return refused(posixError(EINVAL, first,
                                  "The request has " + std::to_string(urls.size()) + " items but " +
                                      std::to_string(names.size()) + " names.",
                                  "Nothing was renamed. Give one name for each item."));
    if (urls.size() > maxItemsToRename)
        return refused(posixError(E2BIG, first,
                                  "The request has " + std::to_string(urls.size()) +
                                      " items; one request renames at most " +
                                      std::to_string(maxItemsToRename) + ".",
                                  "Nothing was renamed. Make several requests."));
    Renaming renaming(urls, rule, call, goesOn);
    if (auto error = renaming.prepare(names))
        return refused(std::move(error));
    renaming.run();
    return renaming.answer();
}

}  // namespace morvane
