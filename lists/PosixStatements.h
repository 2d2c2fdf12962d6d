#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/PosixAcl.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace morvane {

/// One entry as the evaluation takes it.
struct PosixStatement {
    /// Of the entry, among all.
    std::size_t number = 0;
    CBPosixIdentity who;
    /// One of the three entries of the base.
    bool flat = false;
    bool deny = false;
    PosixRights rights = PosixNothing;
    bool item = true;
    bool children = false;
    /// Execution is asked for as a part of "Read" alone.
    bool executesByBundle = false;
};

struct PosixStatements {
    std::vector<PosixStatement> statements;
    /// What no list can hold of the entries, each by itself.
    std::vector<EntryLoss> losses;
};

/// What the boxes of entries say about the item of `owner` and `group`, in rights.
PosixStatements posixStatementsOf(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                                  std::uint32_t owner, std::uint32_t group, bool isDirectory);

/// The box with those that it can be stored with only.
std::uint32_t posixBoxesWith(std::uint32_t box, bool isDirectory);

}  // namespace morvane
