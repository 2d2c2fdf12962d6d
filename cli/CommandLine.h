// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <variant>

#include "AccessCommand.h"
#include "AclCommand.h"
#include "ChangeCommand.h"
#include "CheckCommand.h"
#include "DiffCommand.h"
#include "EditCommand.h"
#include "LsCommand.h"
#include "Outcome.h"
#include "PropagateCommand.h"
#include "RenameCommand.h"
#include "SaveCommand.h"
#include "SizeCommand.h"
#include "WhoCanCommand.h"

/// What the command line asks for: a command's options, or at once what is to be printed (help, the
/// version, or why the command line was not understood).
namespace morvane {

/// What a run prints for programs: nothing, one object, or a line for each thing that happens.
enum class JsonForm { none, object, lines };

/// The options that all commands have.
struct CommonOptions {
    /// The work is done by the privileged helper.
    bool privileged = false;
    JsonForm json = JsonForm::none;
    /// The word behind --color; empty if the option was not given.
    std::string colour;
    /// The command's name, once it is known.
    std::string command;
};

using CommandLine = std::variant<Outcome, AclOptions, EditOptions, PropagateOptions, AccessOptions,
                                 SizeOptions, LsOptions, RenameOptions, ChangeOptions, SaveOptions,
                                 DiffOptions, WhoCanOptions, CheckOptions>;

/// Parses the command line. `version` is what --version prints behind the name of the program.
/// `common` is filled even if the words were not understood, as the answer may have to be JSON.
CommandLine parseCommandLine(int argc, const char* const* argv, const std::string& version,
                             CommonOptions* common = nullptr);

/// Whether an output takes colours: as `choice` says, which is "always" or "never"; with another,
/// if it is a terminal that is not "dumb", and there is no NO_COLOR.
bool wantsColours(std::string_view choice, bool isTerminal, const char* noColor, const char* term);

}  // namespace morvane
