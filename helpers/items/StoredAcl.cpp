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
    if (!native)
        return Failure{native.error()};
    return StoredAcl(*std::move(native));
}

}  // namespace morvane
