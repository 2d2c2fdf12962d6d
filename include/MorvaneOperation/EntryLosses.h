#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <string>
#include <string_view>
#include <vector>

/// How people are told what of an entry a list cannot hold.
namespace morvane {

/// Adds `what` is lost of the entry that is `number`-th from 0: "entry 3 (allow user bob): ...".
MORVANE_EXPORT void addLoss(std::vector<std::string>& losses, std::size_t number,
                            const MVAclEntry& entry, const std::string& what);

/// "`what` It would lose: ...; ....", with all of `losses`.
MORVANE_EXPORT std::string textOfLosses(std::string what, const std::vector<std::string>& losses);

/// The POSIX error EOPNOTSUPP of a request to write entries to the item at `url` that cannot hold
/// them: it names all of `losses`.
MORVANE_EXPORT NSErrorRef errorOfLosses(const std::vector<std::string>& losses, const NSURL& url);

/// The bits of the boxes of `group` that are on; one that is neither on nor off is a loss.
MORVANE_EXPORT std::uint32_t boxesOn(const NSTreeNode& group, std::size_t number,
                                     const MVAclEntry& entry, std::vector<std::string>& losses);

}  // namespace morvane
