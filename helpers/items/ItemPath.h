// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Result.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>

#include <cstdint>
#include <optional>
#include <string>

/// How the path of a request is looked up.
namespace morvane {

struct PathRule {
    /// Set in a service that works with other rights than the client's own: no symbolic link on the
    /// path is followed, and what root must not change for this user is refused.
    std::optional<std::uint32_t> onBehalfOf{};
    /// The user who is responsible for the work, if the client's user id is a subordinate one.
    std::optional<std::uint32_t> accountable{};
};

/// Opens the item at `path`, or returns an errno value: ELOOP if the rule forbids a symbolic link.
/// `flags` are those of open(); the descriptor is close-on-exec.
Result<FileDescriptor, int> openPath(const std::string& path, int flags, const PathRule& rule);

/// Returns 0 if the item may be changed under the rule, otherwise an errno value. On behalf of
/// another user only files and folders may be changed, and a file with several names only if that
/// user owns it, as any of the names may be in a place where the user could not have put it.
int whyNotChangeable(const std::string& path, const PathRule& rule);

}  // namespace morvane
