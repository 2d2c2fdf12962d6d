#include "EntryLosses.h"

#include <MorvaneOperation/MVAclPermission.h>
#include <MorvaneOperation/MVTreeNode.h>

namespace morvane {

namespace {

constexpr std::int32_t tagDeny = 2;

}  // namespace

void addLoss(std::vector<std::string>& losses, std::size_t number, const MVAclEntry& entry,
             const std::string& what) {
    std::string who = entry.identity() ? entry.identity()->name()
                      : entry.uuid()   ? entry.uuid()->UUIDString()
                                       : "everyone";
    if (entry.identity() && who != "everyone")
        who = (entry.identity()->isGroup() ? "group " : "user ") + who;
    losses.push_back("entry " + std::to_string(number + 1) + " (" +
                     (entry.tag() == tagDeny ? "deny " : "allow ") + who + "): " + what);
}

std::uint32_t boxesOn(const NSTreeNode& group, std::size_t number, const MVAclEntry& entry,
                      std::vector<std::string>& losses) {
    std::uint32_t on = 0;
    for (const auto& box : group.childNodes()) {
        const auto* permission = MVTreeNode::permissionOf(*box);
        if (!permission)
            continue;
        if (permission->state() == MVStateOn)
            on |= static_cast<std::uint32_t>(permission->permission());
        else if (permission->state() != MVStateOff)
            addLoss(losses, number, entry,
                    '"' + std::string(permission->name()) + "\", which is neither on nor off");
    }
    return on;
}

}  // namespace morvane
