// SPDX-License-Identifier: MIT
#include "TreeParts.h"

#include <algorithm>

#include "Text.h"

namespace morvane {

Result<std::vector<std::string>> namesWithLists(const std::string& path, const TreeParts& parts,
                                                std::uint64_t mount) {
    const auto contents = parts.contents(NSURL::fileURLWithPath(path));
    if (!contents)
        return Failure{contents.error()};
    std::vector<std::string> names;
    for (const auto& url : *contents) {
        auto name = url.lastPathComponent();
        // The service finds out about items that this program cannot see.
        if (const auto facts = parts.facts(pathIn(path, name))) {
            const std::string_view kind = facts->kind();
            if ((kind != "file" && kind != "folder") || (mount != 0 && facts->mount != mount))
                continue;
        }
        names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::size_t listsAtOnceAfter(std::size_t entries) {
    return std::clamp<std::size_t>(entriesAtOnce / std::max<std::size_t>(entries, 1), 1,
                                   listsAtOnce);
}

std::string lookedAtLine(std::size_t done) {
    return countedPhrase("%1 item looked at", "%1 items looked at", done).localized();
}

bool isOfFolder(const EntryList& entries) {
    return std::any_of(entries.begin(), entries.end(), [](const auto& entry) {
        return entry->origin() && entry->origin()->values().isDirectory;
    });
}

}  // namespace morvane
