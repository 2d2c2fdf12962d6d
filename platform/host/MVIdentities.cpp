// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/host/MVIdentities.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <utility>

namespace morvane {
namespace {

std::shared_ptr<MVIdentities>& shared() {
    // Never destroyed, as what else the host supplies.
    static auto& identities = *new std::shared_ptr(std::make_shared<MVIdentities>());
    return identities;
}

}  // namespace

MVIdentities::~MVIdentities() = default;

MVIdentities::List MVIdentities::fullNamedIdentities() {
    auto all = fullNamedUsers();
    for (auto& group : fullNamedGroups())
        all.push_back(std::move(group));
    return all;
}

MVIdentities::List MVIdentities::fullNamedUsers() {
    List users;
    for (auto& record : CBIdentityAuthority::defaultIdentityAuthority().database().allUsers()) {
        users.push_back(std::make_shared<CBIdentity>(uuidOfPosixIdentity(CBPosixUser{record.id}),
                                                     std::move(record.name), false));
    }
    return users;
}

MVIdentities::List MVIdentities::fullNamedGroups() {
    auto& authority = CBIdentityAuthority::defaultIdentityAuthority();
    List groups{CBIdentity::identityWithName("everyone", authority)};
    for (auto& record : authority.database().allGroups()) {
        groups.push_back(std::make_shared<CBIdentity>(uuidOfPosixIdentity(CBPosixGroup{record.id}),
                                                      std::move(record.name), true));
    }
    return groups;
}

MVIdentities& MVIdentities::sharedIdentities() {
    return *shared();
}

void MVIdentities::setSharedIdentities(std::shared_ptr<MVIdentities> identities) {
    shared() = identities ? std::move(identities) : std::make_shared<MVIdentities>();
}

}  // namespace morvane
