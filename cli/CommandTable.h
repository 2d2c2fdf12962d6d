// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>
#include <vector>

/// Every command of the command line with its options, in one place: the parser, --help, the manual
/// and the completion of the shells are made of it.
namespace morvane {

/// What a word on the command line names. A shell completes it accordingly.
enum class WordKind {
    none,  ///< there is no such word
    text,  ///< nothing that could be offered
    item,  ///< a file or a folder
    user,
    group,
    command,  ///< a command of this program, or a topic of its help
    number,   ///< from 1 on
    choice,   ///< one of the row's choices
};

/// One option. Where its name has no dashes in front, it is a word that stands by itself.
struct OptionRow {
    std::string_view name = {};
    /// One sentence without its full stop.
    std::string_view says = {};
    /// The kind of word that follows the option, or that stands by itself.
    WordKind kind = WordKind::none;
    /// The name of that word in texts. If it stands in brackets, the word may be missing.
    std::string_view word = {};
    enum class Times { optional, once, any } times = Times::optional;
    /// The words that are taken, where they are few.
    std::vector<std::string_view> choices = {};
    std::vector<std::string_view> excludes = {};
    std::string_view needs = {};
    /// The short form without its dash; 0 if there is none.
    char letter = 0;

    bool standsAlone() const { return name.front() != '-'; }
    bool wordMayBeMissing() const { return !word.empty() && word.front() == '['; }
};

struct CommandRow {
    std::string_view name;
    /// One sentence without its full stop.
    std::string_view says;
    std::vector<OptionRow> options;
    /// Whether its exit status is 1 where there is something to tell, and 2 where it failed.
    bool endsLikeDiff = false;

    /// The options that cannot be given together with this one, whichever of the two rows says so.
    std::vector<std::string_view> excludedBy(std::string_view option) const;
};

/// All commands, in the order in which they are listed.
const std::vector<CommandRow>& commandTable();

/// Whether the command ends as diff(1) does.
bool endsLikeDiff(std::string_view command);

/// The options that stand before the command.
const std::vector<OptionRow>& commonOptions();

/// A command of `morvane acl PATH --edit SCRIPT`.
struct EditCommandRow {
    std::string_view name;
    /// The name of the one word behind it; empty if it stands alone.
    std::string_view word;
    /// What it does, in whole sentences.
    std::string_view says;
};

const std::vector<EditCommandRow>& editCommands();

/// The topic that `morvane help` explains beside the commands.
inline constexpr std::string_view editTopic = "edit";

}  // namespace morvane
