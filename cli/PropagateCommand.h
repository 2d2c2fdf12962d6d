// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVItemFailures.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "ChangeCommand.h"
#include "EditCommand.h"
#include "Journal.h"
#include "Outcome.h"

/// `morvane acl PATH --propagate`: gives what is below a folder what it inherits of its list.
namespace morvane {

struct PropagateOptions {
    std::string path;
    /// A line of JSON for each thing that happens.
    bool lines = false;
    /// One object of JSON.
    bool json = false;
    /// Tells what would be changed, and changes nothing.
    bool dryRun = false;
    /// Nobody is asked.
    bool yes = false;
    /// The file to which the failures are written; empty if there is none.
    std::string failures = {};
};

/// How a propagation has ended.
struct Propagated {
    /// Null if everything has what it inherits.
    NSErrorRef error = nullptr;
    /// Of the whole work; empty if the service does not tell.
    std::optional<MVItemCounts> counts = std::nullopt;
};

/// What the command works with, besides what reads and lists items.
struct PropagateParts {
    /// Propagates the entries below an item and waits for the end.
    std::function<Propagated(const EntryList& entries, const NSURL& url)> propagate;
    /// Reads the list of an item below.
    AclSource below;
    /// Asks the user whether to go on after `said`; null if nobody can be asked.
    std::function<bool(const std::string& said)> goesOn;
};

/// Runs the command. It looks at everything below the folder first, to note the present lists in
/// `journal` and to tell the user what will change.
Outcome runPropagate(const PropagateOptions& options, const ChangeParts& parts,
                     const PropagateParts& propagation, Journal& journal);

/// The line that tells how far the work is.
std::string propagationLine(const MVItemCounts& counts, std::chrono::duration<double> elapsed);
/// The same for programs.
std::string propagationAsJson(const MVItemCounts& counts, std::chrono::duration<double> elapsed);

}  // namespace morvane
