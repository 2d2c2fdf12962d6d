// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>

#include "AclCommand.h"
#include "EditCommand.h"
#include "Outcome.h"

/// `morvane acl PATH --propagate`: gives what is below a folder what it inherits of its list.
namespace morvane {

struct PropagateOptions {
    std::string path;
    /// A line of JSON for each thing that happens.
    bool lines = false;
};

/// `sink` propagates the entries below an item and waits for the end.
Outcome runPropagate(const PropagateOptions& options, const AclSource& source, const AclSink& sink);

/// The line that tells that the work goes on. A service tells no more before its answer.
std::string propagationLine(std::chrono::duration<double> elapsed);
/// The same for programs.
std::string propagationAsJson(std::chrono::duration<double> elapsed);

}  // namespace morvane
