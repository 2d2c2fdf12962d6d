// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/PosixAcl.h>

#include <variant>

#include "Nfs4File.h"

/// The list of an item, of whichever kind its file system keeps.
namespace morvane {

using StoredAcl = std::variant<PosixAcl, Nfs4Item>;

/// An errno value where the list cannot be read; EBADMSG for an allow/deny list that is damaged or
/// too long.
Result<StoredAcl, int> readStoredAcl(const AclItem& item);

}  // namespace morvane
