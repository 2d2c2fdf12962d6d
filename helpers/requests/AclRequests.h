// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/foundation/NSUUID.h>
#include <MorvaneOperation/platform/foundation/Result.h>

#include <functional>
#include <memory>
#include <vector>

#include "ItemPath.h"

/// Carries out the requests about lists, however they arrived. Failures are POSIX errors that carry
/// the URL and say why.
namespace morvane {

/// The entries of the item at `url`; symbolic links are followed where the rule allows it.
Result<std::vector<std::shared_ptr<MVAclEntry>>> aclEntriesOfUrl(const NSURL& url,
                                                                 const PathRule& rule = {});

/// Replaces the list of the item at `url`. What the file system cannot hold is refused with an
/// error that names each entry and box that would be lost. After an error the item has the list
/// that it had, but for EREMOTEIO: the server of a network mount has made another list of it, and
/// the error's text names the differences. Entries that were read from this item when its list was
/// another are refused with MVAclChanged. (Between this look and the write another program may
/// still change it: the system has no write that compares.) `goesOn` is called now and then; if it
/// returns false, the work ends before the write.
NSErrorRef setAclEntriesOfUrl(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                              const NSURL& url, const PathRule& rule = {},
                              const std::function<bool()>& goesOn = {});

/// What the user or group `uuid` can really do to the item at `url` now: the groups "Read", "Write"
/// and "Administration" with their boxes.
Result<std::vector<std::shared_ptr<MVTreeNode>>> aclAccessOfUrl(const NSURL& url,
                                                                const NSUUID& uuid,
                                                                const PathRule& rule = {});

}  // namespace morvane
