// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclEntry.h>

#include <memory>

namespace morvane {

/// Makes an entry with the same content and a tree of its own. Throws std::invalid_argument for an
/// entry that cannot be copied.
std::shared_ptr<MVAclEntry> copyOf(const MVAclEntry& entry);

}  // namespace morvane
