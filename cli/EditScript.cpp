// SPDX-License-Identifier: MIT
#include "EditScript.h"

#include <algorithm>
#include <charconv>
#include <sstream>

#include "CommandTable.h"

namespace morvane {

namespace {

using Words = std::vector<std::string>;

/// The next command's words; `script` is left behind it. What is not closed is a problem.
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
                problem = std::string("a quotation mark is not closed: ") + c + escaped(script);
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

std::string namesOfCommands() {
    std::string names;
    const auto& commands = editCommands();
    for (std::size_t i = 0; i < commands.size(); ++i)
        names += (i == 0                     ? ""
                  : i + 1 == commands.size() ? " and "
                                             : ", ") +
                 std::string(commands[i].name);
    return names;
}

class Script {
  public:
    explicit Script(AclEditor& editor) : editor_(editor) {
        for (const auto& entry : editor.entries())
            numbered_.push_back(entry);
    }

    Problem run(const Words& words) {
        const auto& verb = words.front();
        const std::size_t arguments = words.size() - 1;
        const auto& argument = words.back();
        const auto& known = editCommands();
        const auto row = std::find_if(known.begin(), known.end(),
                                      [&](const auto& command) { return command.name == verb; });
        if (row == known.end())
            return "'" + escaped(verb) + "' is no command; there are " + namesOfCommands();
        if (row->word.empty()) {
            if (arguments != 0)
                return "'" + verb + "' stands alone";
            return onChosen([&](std::size_t entry) {
                return verb == "remove"
                           ? editor_.remove(entry)
                           : editor_.setTag(entry, verb == "allow" ? MVAclTagAllow : MVAclTagDeny);
            });
        }
        if (arguments != 1)
            return "'" + verb + "' wants one word behind it; quote what holds blanks";
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
                    return "'inherited' is followed by yes or no";
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
            return "'" + escaped(text) + "' is no entry; they are numbered from 1 to " +
                   std::to_string(numbered_.size());
        }
        if (numbered_[number - 1].expired())
            return "entry " + text + " was removed";
        chosen_ = numbered_[number - 1];
        return std::nullopt;
    }

    template <class Work>
    Problem onChosen(Work&& work) {
        const auto chosen = chosen_.lock();
        if (!chosen)
            return "no entry is chosen; 'entry NUMBER' chooses one, 'add WHO' makes one";
        const auto& entries = editor_.entries();
        const auto found = std::find(entries.begin(), entries.end(), chosen);
        return work(static_cast<std::size_t>(found - entries.begin()));
    }

    AclEditor& editor_;
    /// By their numbers less one; those that were removed are gone.
    std::vector<std::weak_ptr<MVAclEntry>> numbered_;
    std::weak_ptr<MVAclEntry> chosen_;
};

}  // namespace

std::string editScriptHelp() {
    constexpr std::size_t helpIndent = 22;
    constexpr std::size_t helpWidth = 80;
    std::string told =
        "morvane acl PATH --edit 'COMMAND; COMMAND ...'\n\n"
        "Commands stand apart by semicolons or line breaks. Words that hold blanks stand in\n"
        "quotes; a # begins a comment.\n\n";
    for (const auto& command : editCommands()) {
        std::string line =
            padded("  " + std::string(command.name) + " " + std::string(command.word), helpIndent);
        std::istringstream words{std::string(command.says)};
        for (std::string word; words >> word;) {
            if (columnsOf(line) + word.size() >= helpWidth) {
                told += line + '\n';
                line.assign(helpIndent, ' ');
            }
            line += (line.back() == ' ' ? "" : " ") + word;
        }
        told += line + '\n';
    }
    return told + "\nExample: morvane acl notes.txt --edit 'add user:alice; permissions read'\n";
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
            return "command " + std::to_string(number) + ": " + *problem;
        ++number;
    }
    return std::nullopt;
}

}  // namespace morvane
