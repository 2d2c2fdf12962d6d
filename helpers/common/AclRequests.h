#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/foundation/NSUUID.h>

#include <memory>
#include <vector>

#include "ItemPath.h"
#include "PosixAclEntries.h"

/// What the service processes answer, apart from how the question came.
namespace morvane {

struct AclEntriesAnswer {
    std::vector<std::shared_ptr<MVAclEntry>> entries;
    /// Null means success. Otherwise a POSIX error that carries the URL and says why.
    NSErrorRef error;
};

/// The entries of the item at `url`; symbolic links are followed where the rule allows it.
AclEntriesAnswer aclEntriesOfUrl(const NSURL& url, const PathRule& rule = {});

/// Replaces the list of the item at `url`. What the file
/// system cannot hold is refused with an error that names each entry and box that would be lost.
/// After an error the item has the list that it had.
NSErrorRef setAclEntriesOfUrl(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                              const NSURL& url, const PathRule& rule = {});

/// The entries that the item at `url` would have after `entries` were written; with `lossy` the
/// nearest ones that grant no more. Empty, with `*error` set, if it cannot hold them or cannot be
/// looked at.
std::vector<std::shared_ptr<MVAclEntry>> aclEntriesAfterWriting(
    const std::vector<std::shared_ptr<MVAclEntry>>& entries, const NSURL& url, bool lossy,
    NSErrorRef* error);

/// The same of an item with a POSIX list that is not looked at: what its entries told counts.
std::vector<std::shared_ptr<MVAclEntry>> aclEntriesAfterWriting(
    const std::vector<std::shared_ptr<MVAclEntry>>& entries, const PosixOwnership& ownership,
    bool isDirectory, const NSURL& url, bool lossy, NSErrorRef* error);

struct AclAccessAnswer {
    /// The groups "Read", "Write" and "Administration" with their boxes.
    std::vector<std::shared_ptr<MVTreeNode>> permissions;
    NSErrorRef error;
};

/// What the user or group `uuid` can really do to the item at `url` now.
AclAccessAnswer aclAccessOfUrl(const NSURL& url, const NSUUID& uuid, const PathRule& rule = {});

}  // namespace morvane
