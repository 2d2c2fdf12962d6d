// SPDX-License-Identifier: MIT
#include "EntrySnapshot.h"

#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>

#include <stdexcept>
#include <utility>

namespace morvane {

EntrySnapshot::EntrySnapshot(const MVFileAcl& acl) : origin_(acl.origin) {
    archives_.reserve(acl.entries.size());
    for (const auto& entry : acl.entries) {
        if (!entry)
            throw std::invalid_argument("an entry of the list is null");
        archives_.push_back(NSKeyedArchiver::archivedDataWithRootObject(*entry));
    }
}

MVFileAcl::Entries EntrySnapshot::entries(const NSURL& from, const NSURL& to) const {
    MVFileAcl::Entries entries;
    entries.reserve(archives_.size());
    for (const auto& archive : archives_) {
        NSErrorRef error;
        auto object = NSKeyedUnarchiver::unarchivedObjectOfClasses({&MVAclEntry::classObject()},
                                                                   archive, &error);
        if (!object)
            throw std::invalid_argument(error ? error->localizedDescription()
                                              : "an entry cannot be copied");
        auto entry = std::static_pointer_cast<MVAclEntry>(std::move(object));
        if (!entry->origin())
            entry->setOrigin(origin_);
        entries.push_back(std::move(entry));
    }
    moveOrigins(entries, from, to);
    return entries;
}

void moveOrigins(const MVFileAcl::Entries& entries, const NSURL& from, const NSURL& to) {
    if (from == to)
        return;
    std::shared_ptr<const MVAclOrigin> moved;
    for (const auto& entry : entries) {
        const auto& origin = entry->origin();
        if (!origin || origin->values().url != from)
            continue;
        // All entries of a list have the same origin.
        if (!moved) {
            auto values = origin->values();
            values.url = to;
            moved = MVAclOrigin::initWithValues(std::move(values), origin->storedLists());
        }
        entry->setOrigin(moved);
    }
}

}  // namespace morvane
