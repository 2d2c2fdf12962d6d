#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <string>

/// The errors that requests are answered with: POSIX errors that carry the URL.
namespace morvane {

/// Without `text`, the system's own text for the code.
NSErrorRef posixError(int code, const NSURL& url, std::string text = {},
                      std::string suggestion = {});

}  // namespace morvane
