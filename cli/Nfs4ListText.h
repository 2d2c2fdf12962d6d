// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/Nfs4Acl.h>
#include <MorvaneOperation/Nfs4AclEntries.h>

#include <string>
#include <string_view>

#include "AclEditor.h"
#include "ListWords.h"

/// Allow/deny lists as text, in the form of nfs4_getfacl.
namespace morvane {

/// Whether a line is an entry of such a list.
bool isNfs4Line(std::string_view line);

/// Reads a line: "A:fdg:staff@example.org:rxtncy".
Nfs4Entry nfs4Entry(std::string_view line, UnknownNames unknown, Problem& problem);

/// Returns the list in whole lines, each followed by the number of its user or group.
std::string linesOfNfs4(const Nfs4Acl& acl);

/// Makes entries of the lines. Names are those of this system, whatever domain is written behind
/// them.
Nfs4Names namesOfThisSystem();

}  // namespace morvane
