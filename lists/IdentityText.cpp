// SPDX-License-Identifier: MIT
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <variant>

namespace morvane {

std::string identityName(const MVAclEntry& entry) {
    if (entry.identity())
        return entry.identity()->name();
    if (!entry.uuid())
        return "everyone";
    const auto who = posixIdentityOfUUID(*entry.uuid());
    if (!who)
        return entry.uuid()->UUIDString();
    if (const auto* user = std::get_if<CBPosixUser>(&*who))
        return "uid " + std::to_string(user->uid);
    if (const auto* group = std::get_if<CBPosixGroup>(&*who))
        return "gid " + std::to_string(group->gid);
    if (const auto* creator = std::get_if<CBCreator>(&*who))
        return creator->isGroup ? "creator group" : "creator";
    return "everyone";
}

std::string identityText(const CBIdentity& identity) {
    const auto& name = identity.name();
    const auto who = posixIdentityOfUUID(identity.uniqueIdentifier());
    if (who && std::holds_alternative<CBCreator>(*who))
        return name;
    // "uid 1234" says already what it is.
    if (name == "everyone" || name.starts_with("uid ") || name.starts_with("gid "))
        return name;
    return (identity.isGroup() ? "group " : "user ") + name;
}

}  // namespace morvane
