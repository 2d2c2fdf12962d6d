// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Outcome.h"

/// Makes options of the words on the command line, by the table of commands.
namespace morvane {

/// The options that were given, each with the words behind it, and the words that stand by
/// themselves.
class OptionValues {
  public:
    bool has(std::string_view name) const { return words_.find(name) != words_.end(); }
    std::vector<std::string> all(std::string_view name) const;
    /// The first word; empty if there is none.
    std::string one(std::string_view name) const;
    /// The first word as a number, which the parser has checked; 0 if there is none.
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
    /// The options that stand before the command.
    OptionValues common;
};

/// Returns what is to be printed at once (help, the version, or why the words were not understood),
/// or the words. `version` is what --version prints behind the name of the program.
std::variant<Outcome, ParsedWords> parseWords(int argc, const char* const* argv,
                                              const std::string& version);

/// Tells how a command of the table is used; with an empty name, how the program is.
std::string helpOfCommand(const std::string& command);

/// Tells why the command line was not understood, and where the use of the command is explained;
/// with an empty name, that of the program.
Outcome misunderstood(const std::string& reason, const std::string& command);

/// Says that there is no such command, or no such topic of the help, and asks whether a similar one
/// is meant.
Outcome noSuchCommand(std::string_view word, const std::vector<std::string_view>& topics = {});

/// Adds to a refusal of the command's words where the use of the command is explained.
Outcome pointedToHelp(Outcome outcome, std::string_view command);

}  // namespace morvane
