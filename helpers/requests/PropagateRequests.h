// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <chrono>
#include <memory>
#include <vector>

#include "AclPropagation.h"
#include "ItemPath.h"
#include "SupervisedWork.h"

namespace morvane {

/// Gives every file and folder below the folder at `url` what it inherits of `entries`, and the
/// owner, the group and the rights that the three entries of the owner, the owning group and
/// everyone tell; where one of these is missing, the folder's own. What an inherited entry says of
/// one of the three counts for it instead. Files that nobody can execute stay so.
/// The folder itself is not changed; links are not followed, other file systems not entered, and
/// what is neither file nor folder is left alone.
///
/// `entries` that do not fit a folder or whose inheritance the file system cannot hold are refused
/// before anything is changed; what it cannot hold is told as values, too (lossesOfError()). Once
/// in an interval the client is asked whether to go on. Null if all went well; otherwise a POSIX
/// error with the URL of the first item that could not be changed, which tells how many and which
/// first ones (the rest is changed; EREMOTEIO only if each of them has got a list, which its server
/// has stored otherwise), or ECANCELED with the folder's URL, which tells how far it came and the
/// same of what could not be changed by then. What servers have stored otherwise is told in the
/// text and as values (lossesOfError()), each once, for the first one of `entries` that is for the
/// same one.
NSErrorRef propagateAclEntriesBelow(
    const std::vector<std::shared_ptr<MVAclEntry>>& entries, const NSURL& url,
    const std::weak_ptr<NSXPCConnection>& client, const PathRule& rule = {},
    std::chrono::milliseconds interval = std::chrono::milliseconds(250));

/// What propagateAclEntriesBelow() answers when the propagation of `entries` below the folder at
/// `url` has ended, or was left because a file system does not answer.
NSErrorRef outcomeOfPropagation(const AclPropagation& propagation,
                                const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                                const NSURL& url, WorkEnd end = WorkEnd::done);

}  // namespace morvane
