// SPDX-License-Identifier: MIT
#include "RequestErrors.h"

#include <MorvaneOperation/platform/archive/Unicode.h>

#include <utility>

namespace morvane {

NSErrorRef posixError(int code, const NSURL& url, std::string text, std::string suggestion,
                      std::vector<NSErrorRef> underlying) {
    NSErrorUserInfo userInfo{{NSURLErrorKey, url}};
    if (!text.empty())
        userInfo.emplace(NSLocalizedDescriptionKey, std::move(text));
    if (!suggestion.empty())
        userInfo.emplace(NSLocalizedRecoverySuggestionErrorKey, std::move(suggestion));
    if (!underlying.empty())
        userInfo.emplace(NSMultipleUnderlyingErrorsKey, std::move(underlying));
    return NSError::errorWithDomain(NSPOSIXErrorDomain, code, std::move(userInfo));
}

std::string quotedPath(const NSURL& url) {
    return '"' + validUtf8(url.path()) + '"';
}

}  // namespace morvane
