#pragma once

#include <array>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "AclPropagation.h"
#include "Nfs4AclEntries.h"
#include "Nfs4File.h"

/// Allow/deny lists for the items below a folder.
namespace morvane {

/// The entries that files and folders get. Those of an item that nobody is shown are kept.
struct InheritedLevel {
    std::vector<std::shared_ptr<MVAclEntry>> file;
    std::vector<std::shared_ptr<MVAclEntry>> folder;
};
using InheritedEntries = std::array<InheritedLevel, InheritedWriter::levels>;

/// Items get the owner and the group of `folder` as well. What of the entries no list can hold is
/// added to `losses`. A file that nobody can execute is not made executable: its entries allow no
/// execution.
std::unique_ptr<const InheritedWriter> inheritedEntriesWriter(InheritedEntries entries,
                                                              const Nfs4Item& folder,
                                                              Nfs4Names names,
                                                              std::set<std::string>& losses);

}  // namespace morvane
