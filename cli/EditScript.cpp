// SPDX-License-Identifier: MIT
#include "EditScript.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "CommandTable.h"

namespace morvane {

namespace {

using Words = std::vector<std::string>;

/// Takes the words of the next command from the front of `script`. A quotation mark that is not
/// closed is a problem.
Words nextCommand(std::string_view& script, Problem& problem) {
    Words words;
    bool inWord = false;
    const auto add = [&](char c) {
        if (!inWord)
            words.emplace_back();
        inWord = true;
        words.back() += c;
    };
    while (!script.empty()) {
        const char c = script.front();
        script.remove_prefix(1);
        if (c == ';' || c == '\n')
            return words;
        if (c == ' ' || c == '\t' || c == '\r') {
            inWord = false;
        } else if (c == '#' && !inWord) {
            script.remove_prefix(std::min(script.find('\n'), script.size()));
        } else if (c == '"' || c == '\'') {
            const auto end = script.find(c);
            if (end == script.npos) {
                problem = say("a quotation mark is not closed: %1", c + escaped(script));
                return {};
            }
            if (!inWord)
                words.emplace_back();
            inWord = true;
            words.back() += script.substr(0, end);
            script.remove_prefix(end + 1);
        } else {
            add(c);
        }
    }
    return words;
}

Phrase namesOfCommands() {
    std::vector<Phrase> names;
    for (const auto& command : editCommands())
        names.emplace_back(command.name);
    const auto last = std::exchange(names, {names.begin(), names.end() - 1}).back();
    // TRANSLATORS: The end of a list: "on, off and toggle".
    return phrase("%1 and %2", Phrase::list(translatable(", "), names), last);
}

class Script {
  public:
    explicit Script(AclEditor& editor) : editor_(editor), numbered_(editor.entries()) {}

    Problem run(const Words& words) {
        const auto& verb = words.front();
        const std::size_t arguments = words.size() - 1;
        const auto& argument = words.back();
        const auto& known = editCommands();
        const auto row = std::find_if(known.begin(), known.end(),
                                      [&](const auto& command) { return command.name == verb; });
        if (row == known.end())
            return say("'%1' is no command; there are %2", escaped(verb), namesOfCommands());
        if (row->word.empty()) {
            if (arguments != 0)
                return say("'%1' stands alone", verb);
            return onChosen([&](std::size_t entry) {
                return verb == "remove"
                           ? editor_.remove(entry)
                           : editor_.setTag(entry, verb == "allow" ? MVAclTagAllow : MVAclTagDeny);
            });
        }
        if (arguments != 1)
            return say("'%1' wants one word behind it; quote what holds blanks", verb);
        if (verb == "entry")
            return choose(argument);
        if (verb == "add") {
            if (const auto problem = editor_.add(argument))
                return problem;
            numbered_.push_back(editor_.entries().back());
            chosen_ = numbered_.back();
            return std::nullopt;
        }
        return onChosen([&](std::size_t entry) -> Problem {
            if (verb == "permissions")
                return editor_.choosePermissions(entry, argument);
            if (verb == "who")
                return editor_.setWho(entry, argument);
            if (verb == "inherited") {
                if (argument != "yes" && argument != "no")
                    return say("'inherited' is followed by yes or no");
                return editor_.setInherited(entry, argument == "yes");
            }
            return editor_.setBox(entry, argument,
                                  verb == "on"    ? BoxChange::on
                                  : verb == "off" ? BoxChange::off
                                                  : BoxChange::toggle);
        });
    }

  private:
    Problem choose(const std::string& text) {
        std::size_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (error != std::errc() || end != text.data() + text.size() || number == 0 ||
            number > numbered_.size()) {
            return say("'%1' is no entry; they are numbered from 1 to %2", escaped(text),
                       numbered_.size());
        }
        if (!placeOf(numbered_[number - 1]))
            return say("entry %1 was removed", text);
        chosen_ = numbered_[number - 1];
        return std::nullopt;
    }

    template <class Work>
    Problem onChosen(Work&& work) {
        const auto place = placeOf(chosen_);
        if (!place)
            return say("no entry is chosen; 'entry NUMBER' chooses one, 'add WHO' makes one");
        return work(*place);
    }

    /// Empty if the entry was removed.
    std::optional<std::size_t> placeOf(const std::shared_ptr<MVAclEntry>& entry) const {
        const auto& entries = editor_.entries();
        const auto found = std::find(entries.begin(), entries.end(), entry);
        if (found == entries.end())
            return std::nullopt;
        return static_cast<std::size_t>(found - entries.begin());
    }

    AclEditor& editor_;
    /// The entries by their numbers, counted from 0, those that were removed included.
    EntryList numbered_;
    std::shared_ptr<MVAclEntry> chosen_;
};

}  // namespace

std::string editScriptHelp() {
    constexpr std::size_t helpIndent = 22;
    constexpr std::size_t helpWidth = 79;
    std::string told = "morvane acl PATH --edit 'COMMAND; COMMAND ...'\n\n";
    for (const auto& line : wrapped(say("Commands stand apart by semicolons or line breaks. Words "
                                        "that hold blanks stand in quotes; a # begins a comment."),
                                    helpWidth))
        told += line + '\n';
    told += '\n';
    for (const auto& command : editCommands()) {
        auto before = "  " + std::string(command.name) + " " + std::string(command.word);
        for (const auto& line : wrapped(say(command.says), helpWidth - helpIndent)) {
            told += padded(before, helpIndent) + line + '\n';
            before.clear();
        }
    }
    return told + '\n' +
           say("Example: %1", "morvane acl notes.txt --edit 'add user:alice; permissions read'") +
           '\n';
}

Problem runEditScript(std::string_view script, AclEditor& editor) {
    Script commands(editor);
    for (std::size_t number = 1; !script.empty();) {
        Problem problem;
        const auto words = nextCommand(script, problem);
        if (words.empty() && !problem)
            continue;
        if (!problem)
            problem = commands.run(words);
        if (problem)
            return say("command %1: %2", number, *problem);
        ++number;
    }
    return std::nullopt;
}

}  // namespace morvane
