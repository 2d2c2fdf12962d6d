#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <memory>
#include <vector>

/// What the service processes answer, apart from how the question came.
namespace morvane {

struct AclEntriesAnswer {
    std::vector<std::shared_ptr<MVAclEntry>> entries;
    /// Null means success. Otherwise a POSIX error that carries the URL and says why.
    NSErrorRef error;
};

/// The entries of the item at `url`; a symbolic link at its end is followed.
AclEntriesAnswer aclEntriesOfUrl(const NSURL& url);

}  // namespace morvane
