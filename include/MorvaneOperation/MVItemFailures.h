// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVItemProgress.h>
#include <MorvaneOperation/platform/foundation/NSError.h>

#include <vector>

namespace morvane {

/// Which items an operation on many has failed with.
///
///     std::vector<std::string> lines;
///     for (const auto& failure : failuresOfError(*error).errors) {
///         const auto& item = std::get<NSURL>(failure->userInfo().at(NSURLErrorKey));
///         lines.push_back(item.path() + ": " + failure->localizedDescription());
///     }
struct MVItemFailures {
    /// One for each item, with its URL under NSURLErrorKey; a service names at most a thousand.
    std::vector<NSErrorRef> errors;
    /// Those that are not in `errors` count as well.
    MVItemCounts counts;
};

/// What an error tells of items of its operation: all failures that were told as values. None if
/// the operation failed as a whole.
MORVANE_EXPORT MVItemFailures failuresOfError(const NSError& error);

/// The error, telling of the items as well. What it is made of (NSMultipleUnderlyingErrorsKey)
/// stays before them. Each of the failures is a POSIX error with a URL. `error` must not be null.
MORVANE_EXPORT NSErrorRef errorWithFailures(const NSErrorRef& error,
                                            const MVItemFailures& failures);

/// Keys of the user info: the counts, as integers.
inline constexpr const char* MVItemsDoneKey = "MVItemsDone";
inline constexpr const char* MVItemsFailedKey = "MVItemsFailed";

}  // namespace morvane
