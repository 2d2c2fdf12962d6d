// SPDX-License-Identifier: MIT
#include "RenamePlan.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <map>

#include "RequestErrors.h"

namespace morvane {
namespace {

/// Empty for a name that a folder can hold, otherwise what is wrong with it.
Phrase faultOfName(const std::string& name) {
    if (name.empty())
        return phrase("A new name is empty.");
    if (name == "." || name == "..")
        return phrase("\"%1\" names a folder's own place and cannot be given to an item.", name);
    if (name.find('/') != std::string::npos)
        return phrase("The new name \"%1\" holds a slash; an item stays in its folder.", name);
    if (name.find('\0') != std::string::npos)
        return phrase("A new name holds a NUL character.");
    if (name.size() > NAME_MAX)
        return phrase("A new name has %1 bytes; a name has at most %2.", name.size(), NAME_MAX);
    return {};
}

class Planning {
  public:
    Planning(const std::vector<NSURL>& urls, const PathRule& rule) : urls_(urls), rule_(rule) {
        plan_.items.reserve(urls.size());
    }

    /// Null, or why nothing can be begun.
    NSErrorRef add(std::size_t index, const std::string& name);
    /// Once all are added.
    RenamePlan plan();

  private:
    Result<std::size_t, int> findFolder(const std::string& path);

    const std::vector<NSURL>& urls_;
    const PathRule& rule_;
    RenamePlan plan_;
    std::map<std::pair<dev_t, ino_t>, std::size_t> foldersById_;
};

Result<std::size_t, int> Planning::findFolder(const std::string& path) {
    auto& foldersByPath = plan_.foldersByPath;
    if (const auto known = foldersByPath.find(path); known != foldersByPath.end())
        return known->second;
    // The folder is held from here on, so that it is the same one whatever happens to its path.
    auto opened = openPath(path, O_PATH | O_DIRECTORY, rule_);
    if (!opened)
        return Failure{opened.error()};
    auto& descriptor = *opened;
    struct stat status {};
    if (fstat(descriptor.get(), &status) != 0)
        return Failure{errno};
    const auto [place, isNew] =
        foldersById_.try_emplace({status.st_dev, status.st_ino}, plan_.folders.size());
    if (isNew)
        plan_.folders.push_back({std::move(descriptor), status.st_dev, status.st_ino});
    return foldersByPath[path] = place->second;
}

NSErrorRef Planning::add(std::size_t index, const std::string& name) {
    const auto& url = urls_[index];
    if (!url.isFileURL())
        return posixError(EINVAL, url, phrase("Only files and folders can be renamed."));
    if (const auto fault = faultOfName(name); !fault.empty())
        return posixError(name.size() > NAME_MAX ? ENAMETOOLONG : EINVAL, url, fault,
                          phrase("Nothing was renamed. Give each item a name of its own."));
    auto path = url.path();
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    const auto slash = path.rfind('/');
    RenameItem item;
    item.oldName = path.substr(slash + 1);
    if (item.oldName.empty() || item.oldName == "." || item.oldName == "..")
        return posixError(EINVAL, url, phrase("The path does not end with the name of an item."),
                          phrase("Nothing was renamed. Name the item as its folder lists it."));
    item.folderPath = slash == 0 ? "/" : path.substr(0, slash);
    item.name = item.oldName;
    item.newName = name;
    const auto found = findFolder(item.folderPath);
    if (!found) {
        if (found.error() == EMFILE || found.error() == ENFILE)
            return posixError(
                found.error(), url,
                phrase("The items are in too many different folders for one request."),
                phrase("Nothing was renamed. Make several requests."));
        item.code = found.error();
        item.visited = true;
        plan_.items.push_back(std::move(item));
        return nullptr;
    }
    item.folder = *found;
    auto& folder = plan_.folders[item.folder];
    if (!folder.byOld.emplace(item.oldName, index).second)
        return posixError(EINVAL, url,
                          phrase("The item %1 is named twice in the request.", quotedPath(url)),
                          phrase("Nothing was renamed. Name each item once."));
    if (!folder.byNew.emplace(name, index).second)
        return posixError(EEXIST, url,
                          phrase("Two items of one folder would both get the name \"%1\".", name),
                          phrase("Nothing was renamed. Give each item a name of its own."));
    plan_.items.push_back(std::move(item));
    return nullptr;
}

RenamePlan Planning::plan() {
    for (std::size_t i = 0; i < plan_.items.size(); ++i) {
        auto& item = plan_.items[i];
        if (item.folder == noItem)
            continue;
        const auto& present = plan_.folders[item.folder].byOld;
        if (const auto found = present.find(item.newName); found != present.end()) {
            item.ahead = found->second;
            plan_.items[item.ahead].behind = i;
        }
    }
    return std::move(plan_);
}

}  // namespace

Result<RenamePlan> planOfRenaming(const std::vector<NSURL>& urls,
                                  const std::vector<std::string>& names, const PathRule& rule) {
    Planning planning(urls, rule);
    for (std::size_t i = 0; i < urls.size(); ++i) {
        if (auto error = planning.add(i, names[i]))
            return Failure{std::move(error)};
    }
    return planning.plan();
}

}  // namespace morvane
