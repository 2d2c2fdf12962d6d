// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSUUID.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "AccessCommand.h"
#include "AclCommand.h"
#include "Outcome.h"

/// `morvane who-can PATH`: every user and group with a right to an item, and through which entry.
namespace morvane {

struct WhoCanOptions {
    std::vector<std::string> paths;
    /// One of the choices behind --right; empty for all of them.
    std::string right;
    /// Those who have what everyone else has are told one by one, too.
    bool all = false;
    bool json = false;
};

struct WhoCanParts {
    AclSource list;
    /// What each of them can do to the item, asked at once.
    std::function<std::vector<Result<PermissionList>>(const NSURL& url,
                                                      const std::vector<NSUUID>& whom)>
        access;
    /// The users and groups of this system, as many as are listed at once; empty if that takes too
    /// long.
    std::function<std::optional<std::vector<CBIdentityRef>>()> identities;
    /// The groups that a user is in.
    std::function<std::vector<std::uint32_t>(std::uint32_t uid)> groupsOf;
    /// The path without symbolic links.
    std::function<NSURL(const NSURL& url)> resolved;
    /// Answers whether to go on.
    std::function<bool()> goesOn;
};

Outcome runWhoCan(const WhoCanOptions& options, const WhoCanParts& parts, const Style& style);

}  // namespace morvane
