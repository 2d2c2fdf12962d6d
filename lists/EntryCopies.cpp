// SPDX-License-Identifier: MIT
#include "EntryCopies.h"

#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>

#include <stdexcept>
#include <utility>

namespace morvane {

std::shared_ptr<MVAclEntry> copyOf(const MVAclEntry& entry) {
    NSErrorRef error;
    auto copy = NSKeyedUnarchiver::unarchivedObjectOfClasses(
        {&MVAclEntry::classObject()}, NSKeyedArchiver::archivedDataWithRootObject(entry), &error);
    if (!copy)
        throw std::invalid_argument(error ? error->localizedDescription()
                                          : "an entry cannot be copied");
    return std::static_pointer_cast<MVAclEntry>(std::move(copy));
}

}  // namespace morvane
