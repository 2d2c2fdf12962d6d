#pragma once

#include <MorvaneOperation/Nfs4AclEntries.h>

namespace morvane {

/// By the user database. A name is known as a whole, or without its domain if that is the one which
/// /etc/idmapd.conf gives this system, or that of its host name.
Nfs4Names systemNfs4Names();

}  // namespace morvane
