// SPDX-License-Identifier: MIT
#include <MorvaneOperation/ResolvedUrl.h>

#include <filesystem>
#include <system_error>

namespace morvane {

NSURL withoutLinks(const NSURL& url) {
    std::filesystem::path rest;
    for (std::filesystem::path path(url.path()); path.has_relative_path();
         path = path.parent_path()) {
        std::error_code error;
        const auto resolved = std::filesystem::canonical(path, error);
        if (!error)
            return NSURL::fileURLWithPath((rest.empty() ? resolved : resolved / rest).string());
        rest = rest.empty() ? path.filename() : path.filename() / rest;
    }
    return url;
}

NSURL withoutLinksOnTheWay(const NSURL& url) {
    const std::filesystem::path path(url.path());
    if (!path.has_filename())
        return url;
    return withoutLinks(folderOf(url)).URLByAppendingPathComponent(path.filename().string());
}

NSURL movedTo(const NSURL& url, const NSURL& folder, const NSURL& meant) {
    return folder != meant && folderOf(url) == folder
               ? meant.URLByAppendingPathComponent(url.lastPathComponent())
               : url;
}

NSURL folderOf(const NSURL& url) {
    const auto folder = std::filesystem::path(url.path()).parent_path();
    return folder.empty() ? url : NSURL::fileURLWithPath(folder.string());
}

}  // namespace morvane
