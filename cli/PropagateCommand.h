#pragma once

#include <string>

#include "AclCommand.h"
#include "EditCommand.h"
#include "Outcome.h"

/// `morvane acl PATH --propagate`: gives what is below a folder what it inherits of its list.
namespace morvane {

struct PropagateOptions {
    std::string path;
};

/// `sink` propagates the entries below an item and waits for the end.
Outcome runPropagate(const PropagateOptions& options, const AclSource& source, const AclSink& sink);

}  // namespace morvane
