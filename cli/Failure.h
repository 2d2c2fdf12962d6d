#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <string>

#include "Outcome.h"

/// How a command tells that it failed.
namespace morvane {

/// ExitService for a failure of the connection, otherwise ExitFailure.
ExitCode exitCodeOf(const NSError& error);

/// The lines for standard error: what failed, with which item, why, and what helps.
std::string failureMessage(const std::string& what, const std::string& path, const NSError& error);

}  // namespace morvane
