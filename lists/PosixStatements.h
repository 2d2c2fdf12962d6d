// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/PosixAcl.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace morvane {

/// One entry in the form in which it is evaluated.
struct PosixStatement {
    /// The index of the entry among all.
    std::size_t number = 0;
    CBPosixIdentity who;
    /// One of the three entries of the base.
    bool flat = false;
    bool deny = false;
    PosixRights rights = PosixNothing;
    bool item = true;
    bool children = false;
    /// Whether execution is asked for only as a part of "Read".
    bool executesByBundle = false;
};

struct PosixStatements {
    std::vector<PosixStatement> statements;
    /// What no list can hold of the entries, whatever the other entries are.
    std::vector<EntryLoss> losses;
};

/// Translates the boxes of entries into rights to an item of `owner` and `group`.
PosixStatements posixStatementsOf(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                                  std::uint32_t owner, std::uint32_t group, bool isDirectory);

/// Returns the box together with the boxes without which it cannot be stored.
std::uint32_t posixBoxesWith(std::uint32_t box, bool isDirectory);

/// Whether "Read" as a whole asks for execution too: on a file that nobody could execute by `old`
/// it has to be asked for by its own box.
bool readExecutes(const std::vector<PosixStatement>& statements, const PosixAcl& old);

}  // namespace morvane
