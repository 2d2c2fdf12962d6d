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
    /// Set for who works with other rights than the client's own: no symbolic link on the way is
    /// followed, and what root must not change for this user is refused.
    std::optional<std::uint32_t> onBehalfOf{};
    /// The user whose work that is, if it is another: one whom the number was lent.
    std::optional<std::uint32_t> accountable{};
};

/// The item at `path`, or an errno value: ELOOP where the rule forbids a symbolic link. `flags` are
/// those of open(); the descriptor is close-on-exec.
Result<FileDescriptor, int> openPath(const std::string& path, int flags, const PathRule& rule);

/// 0 if the item may be changed under the rule, otherwise an errno value. On behalf of another only
/// files and folders are, and a file with further names only if it is that user's: any of the
/// names may stand where the user could not have put it.
int whyNotChangeable(const std::string& path, const PathRule& rule);

}  // namespace morvane
