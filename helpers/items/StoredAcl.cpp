// SPDX-License-Identifier: MIT
#include "StoredAcl.h"

#include <cerrno>
#include <utility>

#include "PosixAclReader.h"

namespace morvane {

Result<StoredAcl, int> readStoredAcl(const AclItem& item) {
    auto list = readPosixAcl(item);
    if (list)
        return StoredAcl(*std::move(list));
    if (list.error() != EOPNOTSUPP)
        return Failure{list.error()};
    auto native = readNfs4Item(item);
    // Where there is no such list either, it is the first that could not be read.
    if (!native)
        return Failure{native.error() == ENODATA ? list.error() : native.error()};
    return StoredAcl(*std::move(native));
}

}  // namespace morvane
