// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVTreeNode.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/foundation/NSUUID.h>
#include <MorvaneOperation/platform/foundation/Result.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Outcome.h"
#include "Text.h"

/// `morvane access PATH --user NAME`: what a user or group can really do to an item.
namespace morvane {

struct AccessOptions {
    std::string path;
    /// One of the two is set.
    std::string user;
    std::string group;
    bool json = false;
};

using PermissionList = std::vector<std::shared_ptr<MVTreeNode>>;

using AccessSource = std::function<Result<PermissionList>(const NSURL& url, const NSUUID& who)>;

Outcome runAccess(const AccessOptions& options, const AccessSource& source, const Style& style);

}  // namespace morvane
