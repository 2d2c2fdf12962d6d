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
#include "ListedRights.h"

/// Finds everybody who can do something to an item.
namespace morvane {

/// Where the services and the system are asked.
struct RightSources {
    AclSource list;
    /// What each of them can do to the item; they are all asked about at once.
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

/// Somebody with what is known of them.
struct RightHolder {
    CBPosixIdentity who;
    /// Null for a number without a name.
    CBIdentityRef identity;
    /// What they can really do.
    Boxes boxes = 0;
    /// What the list gives them.
    ListedRights::Granted granted = {};
    /// Whether the list gives them something, but a folder above keeps them from it.
    bool isKeptOut = false;
    /// That folder; empty if it cannot be told which it is.
    std::string folder = {};
    /// Whether they have what everyone else has, by the same entries.
    bool isLikeOthers = false;

    bool isRoot() const { return who == CBPosixIdentity{CBPosixUser{0}}; }
    bool isEveryone() const { return std::holds_alternative<CBEveryone>(who); }
    /// Whether they can delete the item, which is a right to the folder that it is in.
    bool hasFromFolder() const;
    /// "alice"; "uid 1234" for a number without a name.
    std::string name() const;
};

/// What was found out about the users and groups of this system, those whom the list names, root,
/// and everyone, which stands for all other users.
struct RightHolders {
    /// In the order of the entries that give them rights; everyone comes last.
    std::vector<RightHolder> all;
    /// Whether these are all users and groups of the system.
    bool areAllListed = true;
    bool areListedInTime = true;
    /// Whether it is unknown what root may do, as only the server of a network mount knows.
    bool isRootUnknown = false;

    bool isComplete() const { return areAllListed && areListedInTime && !isRootUnknown; }
};

/// Finds out which of the `wanted` rights everybody has. The error is ECANCELED if the user has
/// stopped it.
Result<RightHolders> rightHoldersOf(const NSURL& url, const EntryList& entries, Boxes wanted,
                                    const RightSources& sources);

}  // namespace morvane
