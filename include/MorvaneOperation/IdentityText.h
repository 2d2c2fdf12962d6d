#pragma once

#include <MorvaneOperation/MVAclEntry.h>

#include <string>

/// \file
/// How people are told whom an entry is for.

namespace morvane {

/// The name of the entry's user or group; "uid 1234" or "gid 1234" if it has none any more, and a
/// UUID that is nobody's as it is.
MORVANE_EXPORT std::string identityName(const MVAclEntry& entry);
/// "user alice" or "group staff"; "everyone", and of one without a name "uid 1234", alone.
MORVANE_EXPORT std::string identityText(const CBIdentity& identity);

}  // namespace morvane
