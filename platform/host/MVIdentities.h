// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <functional>
#include <memory>
#include <vector>

namespace morvane {

inline constexpr const char* MVIdentitiesUpdated = "MVIdentitiesUpdated";

/// The named users and groups that an interface offers for choice.
///
///     for (const auto& identity : MVIdentities::sharedIdentities().fullNamedUsers())
///         show(identity->name());
///
/// A host that has better lists (filtered, sorted, from a server) derives from MVIdentities and
/// puts its object in place with setSharedIdentities(); whoever changes the lists posts
/// "MVIdentitiesUpdated" on the default notification centre. The default reads the system's user
/// database each time it is asked. Main thread.
class MORVANE_EXPORT MVIdentities {
  public:
    using List = std::vector<CBIdentityRef>;

    virtual ~MVIdentities();
    /// Users, then groups ("everyone" first among them).
    virtual List fullNamedIdentities();
    virtual List fullNamedUsers();
    virtual List fullNamedGroups();

    static MVIdentities& sharedIdentities();
    /// Null puts the default back.
    static void setSharedIdentities(std::shared_ptr<MVIdentities> identities);
};

}  // namespace morvane
