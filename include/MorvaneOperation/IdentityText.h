// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <string>

/// \file
/// The texts that tell people whom an entry is for.

namespace morvane {

/// Returns the name of the entry's user or group. One that has no name any more is called "uid
/// 1234" or "gid 1234"; for a UUID that belongs to nobody the UUID itself is returned.
MORVANE_EXPORT std::string identityName(const MVAclEntry& entry);
/// Returns "user alice" or "group staff". "everyone" and an identity without a name ("uid 1234")
/// are not preceded by a word.
MORVANE_EXPORT Phrase identityText(const CBIdentity& identity);
/// Likewise for the identity of the entry. Of one without an identity, identityName().
MORVANE_EXPORT Phrase identityText(const MVAclEntry& entry);

}  // namespace morvane
