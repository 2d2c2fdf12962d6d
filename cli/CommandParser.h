// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Outcome.h"

/// What the words on the command line are, by the table of commands.
namespace morvane {

/// The options that were given, each with the words behind it, and the words that stand by
/// themselves.
class OptionValues {
  public:
    bool has(std::string_view name) const { return words_.find(name) != words_.end(); }
    std::vector<std::string> all(std::string_view name) const;
    /// The first word; empty if there is none.
    std::string one(std::string_view name) const;
    /// A number, which the parser has found to be one; 0 if there is none.
    std::size_t number(std::string_view name) const;

    void put(std::string_view name, std::vector<std::string> words) {
        words_.emplace(name, std::move(words));
    }

  private:
    std::map<std::string, std::vector<std::string>, std::less<>> words_;
};

struct ParsedWords {
    /// The name of a row of the table.
    std::string command;
    OptionValues values;
    /// What stands before the command.
    OptionValues common;
};

/// What is to be printed at once (help, the version, or why the words were not understood), or the
/// words. `version` is what --version prints behind the program's name.
std::variant<Outcome, ParsedWords> parseWords(int argc, const char* const* argv,
                                              const std::string& version);

/// How a command of the table is used; with an empty name, the program.
std::string helpOfCommand(const std::string& command);

/// Why the command line was not understood, and where it is told how the command is used; with an
/// empty name, the program.
Outcome misunderstood(const std::string& reason, const std::string& command);

/// There is no such command, or topic of the help: with a question for the one that is like it.
Outcome noSuchCommand(std::string_view word, const std::vector<std::string_view>& topics = {});

/// Adds to what a command says of its words where it is told how the command is used.
Outcome pointedToHelp(Outcome outcome, std::string_view command);

}  // namespace morvane
