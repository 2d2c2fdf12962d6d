// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/Nfs4AclEntries.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <atomic>
#include <string>
#include <vector>

#include "AclItem.h"

/// Reads and writes the allow/deny list of a real item.
namespace morvane {

/// The list that an item has, and how it is stored.
struct Nfs4Item {
    Nfs4Target target;
    Nfs4Form form = Nfs4Form::named;
    Nfs4Acl acl;
};

/// Reads the list; an errno value if there is none, which is EBADMSG for one that is not
/// well-formed.
Result<Nfs4Item, int> readNfs4Item(const AclItem& item);

/// Writes lists to items of one mount, and remembers what its server refuses. Several threads may
/// call it.
class Nfs4Writer {
  public:
    /// Puts `acl` in place of the list that `old` is, stored as that is. What the server has made
    /// of it otherwise, as lostInStoring() tells it; or an errno value, and nothing is changed. A
    /// list that is there already is not written. Where the server takes no mark of what is
    /// inherited, or other texts for names, it is written so.
    Result<std::vector<EntryLoss>, int> write(const AclItem& item, const Nfs4Item& old,
                                              const Nfs4Acl& acl) const;

  private:
    mutable std::atomic<bool> withoutMark_ = false;
    mutable std::atomic<bool> withOtherNames_ = false;
};

/// Why the system has refused to write `acl`, for people; empty where its own text says it all.
Phrase whyNfs4AclIsRefused(int code, const Nfs4Item& old, const Nfs4Acl& acl);

}  // namespace morvane
