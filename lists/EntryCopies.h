#pragma once

#include <MorvaneOperation/MVAclEntry.h>

#include <memory>

namespace morvane {

/// An entry of the same content with a tree of its own. Throws std::invalid_argument for one that
/// cannot be copied.
std::shared_ptr<MVAclEntry> copyOf(const MVAclEntry& entry);

}  // namespace morvane
