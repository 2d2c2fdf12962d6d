#include "AclRequests.h"

#include <cerrno>
#include <string>
#include <utility>
#include <variant>

#include "PosixAclEntries.h"
#include "PosixAclReader.h"

namespace morvane {

namespace {

/// Without `text`, the system's own text for the code.
NSErrorRef posixError(int code, const NSURL& url, std::string text = {}) {
    NSErrorUserInfo userInfo{{NSURLErrorKey, url}};
    if (!text.empty())
        userInfo.emplace(NSLocalizedDescriptionKey, std::move(text));
    return NSError::errorWithDomain(NSPOSIXErrorDomain, code, std::move(userInfo));
}

}  // namespace

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

NSErrorRef notImplementedError(std::string_view request, const NSURL& url) {
    return posixError(ENOSYS, url,
                      "The service does not carry out " + std::string(request) + " yet.");
}

}  // namespace morvane
