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

/// Everybody who can do something to an item.
namespace morvane {

/// What is asked of the services and of the system.
struct RightSources {
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

/// Somebody with what is known of them.
struct RightHolder {
    CBPosixIdentity who;
    /// Null for a number without a name.
    CBIdentityRef identity;
    /// What they can really do.
    Boxes boxes = 0;
    /// What the list gives them.
    ListedRights::Granted granted = {};
    /// The list gives them something, and a folder above keeps them from it.
    bool isKeptOut = false;
    /// That folder; empty if it cannot be told which it is.
    std::string folder = {};
    /// They have what everyone else has, and by the same entries.
    bool isLikeOthers = false;

    bool isRoot() const { return who == CBPosixIdentity{CBPosixUser{0}}; }
    bool isEveryone() const { return std::holds_alternative<CBEveryone>(who); }
    /// Deleting is for the folder that the item is in to give.
    bool hasFromFolder() const;
    /// "alice"; "uid 1234" for a number without a name.
    std::string name() const;
};

/// The users and groups of this system, those whom the list names, root, and everyone, who stands
/// for a user that is none of them.
struct RightHolders {
    /// In the order of the entries that give them rights; everyone comes last.
    std::vector<RightHolder> all;
    /// Whether these are all users and groups of the system.
    bool areAllListed = true;
    bool areListedInTime = true;
    /// The server of a network mount keeps to itself what root may do.
    bool isRootUnknown = false;

    bool isComplete() const { return areAllListed && areListedInTime && !isRootUnknown; }
};

/// Asks about everybody what they have of `wanted`. ECANCELED if the user has stopped it.
Result<RightHolders> rightHoldersOf(const NSURL& url, const EntryList& entries, Boxes wanted,
                                    const RightSources& sources);

}  // namespace morvane
