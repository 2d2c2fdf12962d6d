// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <optional>
#include <string>

/// \file
/// Helpers for the errors that file operations bring back. Any thread.
///
///     if (isPermissionError(error))
///         askTheHelper();
///     show(errorWithError(error, "The list of \"notes.txt\" could not be read."));

namespace morvane {

/// The error re-worded for display: `description` is the new headline, the old message (and its
/// suggestion, after one blank) becomes the recovery suggestion. Domain, code and all else of the
/// user info are kept. No description: the result has none. `error` must not be null.
MORVANE_EXPORT NSErrorRef errorWithError(const NSErrorRef& error,
                                         std::optional<std::string> description);

/// Whether the failure is a matter of access rights: EACCES, or EPERM on an item (NSURLErrorKey)
/// that this process may read and write or is refused to (EACCES). No other domain, no other code.
/// Calls access(2) for EPERM and leaves errno as that sets it.
MORVANE_EXPORT bool isPermissionError(const NSErrorRef& error);

/// The error that ended a request to the privileged helper, with where to look for the reason if
/// its connection was interrupted or invalid; any other error as it is. `error` must not be null.
MORVANE_EXPORT NSErrorRef errorWithAdviceAboutHelper(NSErrorRef error);

}  // namespace morvane
