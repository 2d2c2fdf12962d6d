// SPDX-License-Identifier: MIT
#include "AccessCommand.h"

#include <MorvaneOperation/IdentityText.h>

#include "AclEditor.h"
#include "EntryText.h"
#include "Failure.h"

namespace morvane {

Outcome runAccess(const AccessOptions& options, const AccessSource& source, const Style& style) {
    if (options.path.empty())
        return {ExitUsage, {}, "morvane: the path is empty; name a file or a folder.\n"};
    Problem problem;
    const auto identity = identityWritten(
        options.group.empty() ? "user:" + options.user : "group:" + options.group, problem);
    if (problem)
        return {ExitUsage, {}, "morvane: " + *problem + ".\n"};
    const auto permissions =
        source(NSURL::fileURLWithPath(options.path), identity->uniqueIdentifier());
    if (!permissions)
        return {exitCodeOf(*permissions.error()),
                {},
                failureMessage("cannot tell the access to", options.path, *permissions.error())};
    if (options.json)
        return {ExitSuccess, nodesAsJson(*permissions), {}};
    const auto text =
        style.heading(escaped(identityText(*identity)) + " on " + escaped(options.path)) + '\n';
    return {ExitSuccess, text + nodesAsTree(*permissions, style), {}};
}

}  // namespace morvane
