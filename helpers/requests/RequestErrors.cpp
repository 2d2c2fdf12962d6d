// SPDX-License-Identifier: MIT
#include "RequestErrors.h"

#include <glib.h>

#include <memory>
#include <utility>

namespace morvane {

NSErrorRef posixError(int code, const NSURL& url, std::string text, std::string suggestion) {
    NSErrorUserInfo userInfo{{NSURLErrorKey, url}};
    if (!text.empty())
        userInfo.emplace(NSLocalizedDescriptionKey, std::move(text));
    if (!suggestion.empty())
        userInfo.emplace(NSLocalizedRecoverySuggestionErrorKey, std::move(suggestion));
    return NSError::errorWithDomain(NSPOSIXErrorDomain, code, std::move(userInfo));
}

std::string quotedPath(const NSURL& url) {
    const auto& path = url.path();
    const std::unique_ptr<char, decltype(&g_free)> text(
        g_utf8_make_valid(path.data(), static_cast<gssize>(path.size())), &g_free);
    return '"' + std::string(text.get()) + '"';
}

}  // namespace morvane
