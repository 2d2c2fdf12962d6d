// SPDX-License-Identifier: MIT
#include "RequestErrors.h"

#include <MorvaneOperation/platform/archive/Unicode.h>

#include <utility>

namespace morvane {

NSErrorRef posixError(int code, const NSURL& url, const Phrase& text, const Phrase& suggestion,
                      std::vector<NSErrorRef> underlying) {
    NSErrorUserInfo userInfo{{NSURLErrorKey, url}};
    if (!underlying.empty())
        userInfo.emplace(NSMultipleUnderlyingErrorsKey, std::move(underlying));
    return NSError::errorWithDescription(NSPOSIXErrorDomain, code, text, suggestion,
                                         std::move(userInfo));
}

std::string quotedPath(const NSURL& url) {
    return '"' + validUtf8(url.path()) + '"';
}

}  // namespace morvane
