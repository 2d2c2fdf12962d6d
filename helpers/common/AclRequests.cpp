#include "AclRequests.h"

#include <cerrno>
#include <string>
#include <utility>
#include <variant>

#include "PosixAclEntries.h"
#include "PosixAclReader.h"
#include "RequestErrors.h"

namespace morvane {

AclEntriesAnswer aclEntriesOfUrl(const NSURL& url) {
    if (!url.isFileURL())
        return {{}, posixError(EINVAL, url, "Only files and folders have an access-control list.")};
    const auto read = readPosixAcl(url.path());
    if (const auto* failure = std::get_if<AclReadFailure>(&read)) {
        return {{},
                posixError(failure->code, url,
                           failure->otherKindOfList
                               ? "The item has an NFSv4 access-control list, which cannot be shown."
                               : "")};
    }
    return {entriesOfPosixAcl(std::get<PosixAcl>(read)), nullptr};
}

}  // namespace morvane
