// SPDX-License-Identifier: MIT
#include "AccessCommand.h"

#include <MorvaneOperation/IdentityText.h>

#include <nlohmann/json.hpp>

#include "AclEditor.h"
#include "EntryJson.h"
#include "EntryText.h"
#include "Failure.h"

namespace morvane {

Outcome runAccess(const AccessOptions& options, const AccessSource& source, const Style& style) {
    if (options.path.empty())
        return {ExitUsage, {}, message({say("the path is empty; name a file or a folder.")})};
    Problem problem;
    const auto identity = identityWritten(
        options.group.empty() ? "user:" + options.user : "group:" + options.group, problem);
    if (problem)
        return {ExitUsage, {}, message({say("%1.", *problem)})};
    const auto permissions =
        source(NSURL::fileURLWithPath(options.path), identity->uniqueIdentifier());
    if (!permissions)
        return failed(say("cannot tell the access to '%1'", escaped(options.path)),
                      permissions.error());
    if (options.json)
        return {ExitSuccess,
                jsonDocument("access",
                             {{"item", jsonOfPath(options.path)},
                              {"who", jsonOfIdentity(*identity)},
                              {"permissions", jsonOfNodes(*permissions)}},
                             {}),
                {}};
    const auto text =
        // TRANSLATORS: Above the boxes: what "user bob" can do to a path.
        style.heading(
            say("%1 on %2", escaped(identityText(*identity).localized()), escaped(options.path))) +
        '\n';
    return {ExitSuccess, text + nodesAsTree(*permissions, style), {}};
}

}  // namespace morvane
