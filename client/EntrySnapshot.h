// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>

#include <memory>
#include <vector>

namespace morvane {

/// The entries of a list as they are when it is taken, for another thread, while the host goes on
/// with its own.
class EntrySnapshot {
  public:
    /// Throws std::invalid_argument for a null entry.
    explicit EntrySnapshot(const MVFileAcl& acl);

    /// Makes new entries of the same content, in which the URL `to` takes the place of `from` as
    /// the item that they were read from. Throws std::invalid_argument if one cannot be rebuilt.
    MVFileAcl::Entries entries(const NSURL& from, const NSURL& to) const;

  private:
    std::vector<NSData> archives_;
    std::shared_ptr<const MVAclOrigin> origin_;
};

/// Puts `to` in the place of `from` as the item that the entry was read from.
void moveOrigins(const MVFileAcl::Entries& entries, const NSURL& from, const NSURL& to);

}  // namespace morvane
