// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/Nfs4AclEntries.h>

#include <istream>
#include <string>

namespace morvane {

/// By the user database. A name is known as a whole, or without its domain if that is the
/// system's.
Nfs4Names systemNfs4Names();

/// The domain of this system's names on network mounts, in lower case: that of the settings of
/// idmapd, else that of the host name, else the one that all systems without any have.
std::string systemNfs4Domain();
std::string nfs4DomainOf(std::istream& settingsOfIdmapd, const std::string& hostName);

}  // namespace morvane
