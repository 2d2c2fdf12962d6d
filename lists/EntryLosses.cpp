#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/MVAclPermission.h>
#include <MorvaneOperation/MVTreeNode.h>
#include <MorvaneOperation/PosixAclEntries.h>

#include <algorithm>
#include <cerrno>

namespace morvane {

namespace {

/// More than a list of 1024 entries that came from boxes can lose: only what somebody has made up
/// is not told in full.
constexpr std::size_t maxLossesTold = 8192;

}  // namespace

void addLoss(std::vector<std::string>& losses, std::size_t number, const MVAclEntry& entry,
             const std::string& what) {
    losses.push_back("entry " + std::to_string(number + 1) + " (" +
                     (entry.tag() == TagDeny ? "deny " : "allow ") +
                     (entry.identity() ? identityText(*entry.identity()) : identityName(entry)) +
                     "): " + what);
}

std::string textOfLosses(std::string what, const std::vector<std::string>& losses) {
    what += " It would lose";
    for (std::size_t i = 0; i != std::min(losses.size(), maxLossesTold); ++i)
        what += (i == 0 ? ": " : "; ") + losses[i];
    if (losses.size() > maxLossesTold)
        what += "; and " + std::to_string(losses.size() - maxLossesTold) + " more";
    return what + ".";
}

NSErrorRef errorOfLosses(const std::vector<std::string>& losses, const NSURL& url) {
    return NSError::errorWithDomain(
        NSPOSIXErrorDomain, EOPNOTSUPP,
        {{NSURLErrorKey, url},
         {NSLocalizedDescriptionKey,
          textOfLosses("The file system cannot hold the whole list.", losses)},
         {NSLocalizedRecoverySuggestionErrorKey,
          std::string("Nothing was changed. Change these entries, or accept the nearest list that "
                      "grants no more.")}});
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
