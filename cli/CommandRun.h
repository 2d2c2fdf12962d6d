// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "CommandLine.h"

/// A command that is run with the services, the terminal and the files of this machine.
namespace morvane {

/// Does what the words on the command line ask for.
Outcome runCommand(const CommandLine& line, const CommonOptions& common);

/// Writes to standard output; false once that has failed. Nothing is written after that.
bool printOut(const std::string& text);
/// Why something could not be written to standard output, as an errno value; 0 if all could.
int whyNotPrinted();
/// Writes to standard error.
void printError(const std::string& text);

}  // namespace morvane
