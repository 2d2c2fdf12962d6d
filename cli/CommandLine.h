// SPDX-License-Identifier: MIT
#pragma once

#include <variant>

#include "AccessCommand.h"
#include "AclCommand.h"
#include "EditCommand.h"
#include "LsCommand.h"
#include "Outcome.h"
#include "PropagateCommand.h"
#include "RenameCommand.h"
#include "SizeCommand.h"

/// What the command line asks for: a command's options, or at once what is to be printed (help, the
/// version, or why the command line was not understood).
namespace morvane {

/// What stands before the command, for all of them.
struct CommonOptions {
    /// The work is done by the privileged helper.
    bool privileged = false;
};

using CommandLine = std::variant<Outcome, AclOptions, EditOptions, PropagateOptions, AccessOptions,
                                 SizeOptions, LsOptions, RenameOptions>;

/// `version` is what --version prints behind the program's name.
CommandLine parseCommandLine(int argc, const char* const* argv, const std::string& version,
                             CommonOptions* common = nullptr);

/// Whether standard output takes colours: a terminal that is not "dumb", and no NO_COLOR.
bool wantsColours(bool isTerminal, const char* noColor, const char* term);

}  // namespace morvane
