// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <string>
#include <vector>

/// The errors that requests are answered with: POSIX errors that carry the URL.
namespace morvane {

/// Without `text`, the error has the system's own text for the code. `underlying` are what it is
/// made of, such as one error for each loss.
NSErrorRef posixError(int code, const NSURL& url, const Phrase& text = {},
                      const Phrase& suggestion = {}, std::vector<NSErrorRef> underlying = {});

/// The path of a file URL in quotes, for a text that people read. An error's text is UTF-8 and a
/// path need not be: each byte that is not becomes U+FFFD, and the URL keeps the path.
std::string quotedPath(const NSURL& url);

}  // namespace morvane
