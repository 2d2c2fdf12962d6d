// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <string>

/// What running a command leaves to be printed, and the exit status. Only main() prints.
namespace morvane {

enum ExitCode : int {
    ExitSuccess = 0,
    /// The operation failed: the item does not exist, may not be read, has no such list ...
    ExitFailure = 1,
    /// The command line was not understood; nothing was done.
    ExitUsage = 2,
    /// The service that does the work could not be started or went away.
    ExitService = 3,
    /// The list was written, but the server of a network mount has stored something else.
    ExitStoredOtherwise = 4,
    /// The user has pressed Ctrl-C.
    ExitInterrupted = 130,

    // The commands that compare end with these, as diff(1) does.
    /// There is something to tell.
    ExitDifferent = 1,
    /// Something could not be looked at, or the command line was not understood.
    ExitTrouble = 2,
};

struct Outcome {
    ExitCode exitCode = ExitSuccess;
    /// For standard output.
    std::string output;
    /// For standard error, whole lines.
    std::string message;
    /// What made the operation fail, for programs; null if nothing did, or what is wrong is told by
    /// the message alone.
    NSErrorRef error = nullptr;
};

}  // namespace morvane
