// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVItemProgress.h>
#include <MorvaneOperation/platform/foundation/NSError.h>

#include <cstddef>
#include <vector>

namespace morvane {

/// So many items that have failed are named at most, as many as a person looks through: what a
/// service sends, and what is taken from it, must not grow with the tree.
inline constexpr std::size_t MVMostItemFailures = 1000;

/// Which items an operation on many has failed with.
///
///     std::vector<std::string> lines;
///     for (const auto& failure : failuresOfError(*error).errors) {
///         const auto& item = std::get<NSURL>(failure->userInfo().at(NSURLErrorKey));
///         lines.push_back(item.path() + ": " + failure->localizedDescription());
///     }
struct MVItemFailures {
    /// One for each item, with its URL under NSURLErrorKey: the first MVMostItemFailures.
    std::vector<NSErrorRef> errors;
    /// Those that are not in `errors` count as well.
    MVItemCounts counts;
};

/// What an error tells of items of its operation: the failures that were told as values. None if
/// the operation failed as a whole. Counts are from 0 to 2^53, up to which a reader of JSON has
/// them whole, whatever the peer says.
MORVANE_EXPORT MVItemFailures failuresOfError(const NSError& error);

/// The error, telling of these items and of no others. What it is made of besides
/// (NSMultipleUnderlyingErrorsKey) stays before them. Each of the failures is a POSIX error with a
/// URL. `error` must not be null.
MORVANE_EXPORT NSErrorRef errorWithFailures(const NSErrorRef& error,
                                            const MVItemFailures& failures);

/// Keys of the user info: the counts, as integers.
inline constexpr const char* MVItemsDoneKey = "MVItemsDone";
inline constexpr const char* MVItemsFailedKey = "MVItemsFailed";

}  // namespace morvane
