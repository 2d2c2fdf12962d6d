// SPDX-License-Identifier: MIT
#include "ItemWalk.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

namespace morvane {

namespace {

bool isNoFolder(const NSError& error) {
    return error.domain() == NSPOSIXErrorDomain && error.code() == ENOTDIR;
}

}  // namespace

bool walkItems(const std::string& path, bool recursive, const WalkParts& parts) {
    struct Item {
        std::string path;
        bool isBelow;
    };
    std::vector<Item> left{{path, false}};
    const auto top = factsOfNamed(path, parts.facts);
    while (!left.empty()) {
        const auto item = std::move(left.back());
        left.pop_back();
        const auto facts = parts.facts(item.path);
        if (item.isBelow && facts && facts->kind() == std::string_view("link"))
            continue;
        if (parts.staysOnMount && item.isBelow && top && facts && facts->mount != top->mount)
            continue;
        // A link that was named is followed. The service is asked about what this program cannot
        // see.
        const bool mayBeFolder = !facts || facts->isFolder() || !item.isBelow;
        const auto url = NSURL::fileURLWithPath(item.path);
        // The folder is listed before its own list changes: that may shut this user out, or let it
        // in.
        auto inside = recursive && mayBeFolder ? parts.contents(url)
                                               : Result<std::vector<NSURL>>(std::vector<NSURL>());
        if (!parts.visit(item.path, item.isBelow))
            return false;
        if (!inside && !isNoFolder(*inside.error()))
            inside = parts.contents(url);
        if (!inside) {
            if (!isNoFolder(*inside.error()))
                parts.failed(item.path, *inside.error());
            continue;
        }
        // The order is the same each time, so that saved lists can be compared.
        std::sort(inside->begin(), inside->end(), [](const NSURL& a, const NSURL& b) {
            return a.lastPathComponent() < b.lastPathComponent();
        });
        for (auto each = inside->rbegin(); each != inside->rend(); ++each)
            left.push_back({pathIn(item.path, each->lastPathComponent()), true});
    }
    return true;
}

}  // namespace morvane
