// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <string>

/// The errors that requests are answered with: POSIX errors that carry the URL.
namespace morvane {

/// Without `text`, the system's own text for the code.
NSErrorRef posixError(int code, const NSURL& url, std::string text = {},
                      std::string suggestion = {});

/// The path of a file URL in quotes, for a text that people read. An error's text is UTF-8 and a
/// path need not be: each byte that is not becomes U+FFFD, and the URL keeps the path.
std::string quotedPath(const NSURL& url);

}  // namespace morvane
