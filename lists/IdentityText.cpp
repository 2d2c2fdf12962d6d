// SPDX-License-Identifier: MIT
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <variant>

namespace morvane {

namespace {

constexpr const char* everyoneName = translatable("everyone");
// TRANSLATORS: Whoever makes an item in the folder.
constexpr const char* creatorName = translatable("creator");
constexpr const char* creatorGroup = translatable("creator group");

}  // namespace

std::string identityName(const MVAclEntry& entry) {
    if (entry.identity())
        return entry.identity()->name();
    if (!entry.uuid())
        return everyoneName;
    const auto who = posixIdentityOfUUID(*entry.uuid());
    if (!who)
        return entry.uuid()->UUIDString();
    if (const auto* user = std::get_if<CBPosixUser>(&*who))
        return "uid " + std::to_string(user->uid);
    if (const auto* group = std::get_if<CBPosixGroup>(&*who))
        return "gid " + std::to_string(group->gid);
    if (const auto* creator = std::get_if<CBCreator>(&*who))
        return creator->isGroup ? creatorGroup : creatorName;
    return everyoneName;
}

Phrase identityText(const CBIdentity& identity) {
    const auto& name = identity.name();
    const auto who = posixIdentityOfUUID(identity.uniqueIdentifier());
    if (name == everyoneName || (who && std::holds_alternative<CBCreator>(*who)))
        return phrase(name);
    // "uid 1234" says already what it is.
    if (name.starts_with("uid ") || name.starts_with("gid "))
        return name;
    return identity.isGroup() ? phrase("group %1", name) : phrase("user %1", name);
}

Phrase identityText(const MVAclEntry& entry) {
    if (entry.identity())
        return identityText(*entry.identity());
    const auto name = identityName(entry);
    const bool isWord = name == everyoneName || name == creatorName || name == creatorGroup;
    return isWord ? phrase(name) : Phrase(name);
}

}  // namespace morvane
