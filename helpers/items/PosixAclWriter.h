// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/PosixAcl.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <cstddef>
#include <string>

/// Writes the access-control list of a real item.
namespace morvane {

/// Puts `acl` in place of `old`, which is what the item at `path` has now. 0, or an errno value and
/// nothing is changed. Owner and group stay as they are, and so do setuid, setgid and sticky.
///
/// The two lists of a folder are two writes: the one for new items goes first and is taken back if
/// the other fails. Each of them is whole at every moment. A list that is there already is not
/// written.
int writePosixAcl(const std::string& path, const PosixAcl& old, const PosixAcl& acl);

/// The users and groups that its lists name.
std::size_t namesIn(const PosixAcl& acl);

/// Why the system has refused to write lists with so many names to the item at `path`, for people;
/// empty where its own text says it all.
Phrase whyPosixAclIsRefused(int code, const std::string& path, std::size_t names);

}  // namespace morvane
