// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/InheritedAcl.h>
#include <MorvaneOperation/Nfs4AclEntries.h>

#include <memory>

#include "AclPropagation.h"
#include "Nfs4File.h"

/// Allow/deny lists for the items below a folder.
namespace morvane {

/// What is not shown of the entries that an item has is kept. Items get the owner and the group of
/// `folder` as well. What of the entries no list can hold is added to `losses`. A file that nobody
/// can execute is not made executable: its entries allow no execution.
std::unique_ptr<const InheritedWriter> inheritedEntriesWriter(InheritedEntries entries,
                                                              const Nfs4Item& folder,
                                                              Nfs4Names names,
                                                              EntryLossSet& losses);

}  // namespace morvane
