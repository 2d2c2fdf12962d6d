// SPDX-License-Identifier: MIT
#include "CommandTexts.h"

#include <algorithm>

#include "CommandTable.h"
#include "CommandWords.h"

namespace morvane {

namespace {

/// Puts the text in single quotes, as each of the shells reads them.
std::string quoted(std::string_view text) {
    return "'" + replaced(std::string(text), "'", R"('\'')") + "'";
}

std::vector<std::string_view> commandNames() {
    std::vector<std::string_view> names;
    for (const auto& command : commandTable())
        names.push_back(command.name);
    return names;
}

/// The commands that `help` explains, and the topic beside them.
std::vector<std::string_view> helpTopics() {
    auto topics = commandNames();
    topics.push_back(editTopic);
    return topics;
}

std::vector<std::string_view> optionsOf(const std::vector<OptionRow>& rows) {
    std::vector<std::string_view> options;
    for (const auto& row : rows) {
        if (!row.standsAlone())
            options.push_back(row.name);
    }
    options.insert(options.end(), {"--help", "--version"});
    return options;
}

/// The row of the words that stand by themselves; an empty one if the command has none.
OptionRow wordsOf(const CommandRow& command) {
    const auto found = std::find_if(command.options.begin(), command.options.end(),
                                    [](const OptionRow& row) { return row.standsAlone(); });
    return found == command.options.end() ? OptionRow{} : *found;
}

std::string bashWords(const OptionRow& row) {
    switch (row.kind) {
        case WordKind::none:
        case WordKind::text:
        case WordKind::number:
            return ":";
        case WordKind::item:
            return "_morvane_offer -o filenames -f";
        case WordKind::user:
            return "_morvane_offer -u";
        case WordKind::group:
            return "_morvane_offer -g";
        case WordKind::command:
            return "_morvane_offer -W '" + joined(helpTopics(), " ") + "'";
        case WordKind::choice:
            return "_morvane_offer -W '" + joined(row.choices, " ") + "'";
    }
    return ":";
}

std::string zshWords(const OptionRow& row) {
    switch (row.kind) {
        case WordKind::none:
            return {};
        case WordKind::text:
        case WordKind::number:
            return " ";
        case WordKind::item:
            return "_files";
        case WordKind::user:
            return "_users";
        case WordKind::group:
            return "_groups";
        case WordKind::command:
            return "(" + joined(helpTopics(), " ") + ")";
        case WordKind::choice:
            return "(" + joined(row.choices, " ") + ")";
    }
    return {};
}

std::string fishWords(const OptionRow& row) {
    switch (row.kind) {
        case WordKind::none:
        case WordKind::text:
        case WordKind::number:
        case WordKind::item:
            return {};
        case WordKind::user:
            return "(__fish_complete_users)";
        case WordKind::group:
            return "(__fish_complete_groups)";
        case WordKind::command:
            return joined(helpTopics(), " ");
        case WordKind::choice:
            return joined(row.choices, " ");
    }
    return {};
}

/// Escapes a text that stands within a description for zsh.
std::string forZsh(std::string_view says) {
    return replaced(replaced(replaced(std::string(says), ":", R"(\:)"), "[", R"(\[)"), "]",
                    R"(\])");
}

std::string zshOption(const OptionRow& row, const std::vector<std::string_view>& excluded) {
    std::string word;
    if (row.kind != WordKind::none) {
        const auto name = replaced(replaced(std::string(row.word), "[", ""), "]", "");
        word = std::string(row.wordMayBeMissing() ? "::" : ":") + name + ":" + zshWords(row);
    }
    const auto described = [&](const std::string& front, const std::string& name) {
        return quoted(front + name +
                      (row.kind == WordKind::none || row.wordMayBeMissing() ? "" : "=") + "[" +
                      forZsh(row.says) + "]" + word);
    };
    const std::string name(row.name);
    if (row.letter == 0)
        return described(excluded.empty() ? "" : "(" + joined(excluded, " ") + ")", name);
    const std::string letter{'-', row.letter};
    const auto front = "(" + letter + " " + name + " " + joined(excluded, " ") + ")";
    return described(front, letter) + " " + described(front, name);
}

}  // namespace

std::string bashCompletion() {
    std::string text =
        "# Completion of morvane(1) for bash.\n"
        "_morvane_offer() {\n"
        "    if [[ $1 == -o ]]; then\n"
        "        compopt -o \"$2\" 2>/dev/null\n"
        "        shift 2\n"
        "    fi\n"
        "    mapfile -t COMPREPLY < <(compgen \"$@\" -- \"$cur\")\n"
        "}\n"
        "_morvane() {\n"
        "    local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command= "
        "i\n"
        "    # The = of --user=NAME is a word of its own.\n"
        "    if [[ $cur == = ]]; then\n"
        "        cur=\n"
        "    elif [[ $previous == = ]]; then\n"
        "        previous=${COMP_WORDS[COMP_CWORD - 2]}\n"
        "    fi\n"
        "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
        "        case ${COMP_WORDS[i]} in\n";
    for (const auto& row : commonOptions()) {
        if (row.kind != WordKind::none)
            text += "            " + std::string(row.name) +
                    ") [[ ${COMP_WORDS[i + 1]} == = ]] && ((i++)); ((i++)) ;;\n";
    }
    text +=
        "            -*) ;;\n"
        "            *) command=${COMP_WORDS[i]}; break ;;\n"
        "        esac\n"
        "    done\n"
        "    COMPREPLY=()\n"
        "    case \"$command $previous\" in\n";
    const auto offerWordsOf = [&](std::string_view command, const std::vector<OptionRow>& options) {
        for (const auto& row : options) {
            // A word that may be missing may as well be an option.
            if (!row.standsAlone() && row.kind != WordKind::none && !row.wordMayBeMissing())
                text += "        '" + std::string(command) + " " + std::string(row.name) + "') " +
                        bashWords(row) + "; return ;;\n";
        }
    };
    offerWordsOf({}, commonOptions());
    for (const auto& command : commandTable())
        offerWordsOf(command.name, command.options);
    text +=
        "    esac\n"
        "    case \"$command $cur\" in\n"
        "        ' -'*) _morvane_offer -W '" +
        joined(optionsOf(commonOptions()), " ") +
        "' ;;\n"
        "        ' '*) _morvane_offer -W '" +
        joined(commandNames(), " ") + "' ;;\n";
    for (const auto& command : commandTable()) {
        const std::string name(command.name);
        text += "        '" + name + " -'*) _morvane_offer -W '" +
                joined(optionsOf(command.options), " ") + "' ;;\n        '" + name + " '*) " +
                bashWords(wordsOf(command)) + " ;;\n";
    }
    return text + "    esac\n}\ncomplete -F _morvane morvane\n";
}

std::string zshCompletion() {
    const std::string information =
        "        '(- *)'{-h,--help}'[Print how it is used]' \\\n"
        "        '(- *)--version[Print the version]'";
    std::string text =
        "#compdef morvane\n"
        "# Completion of morvane(1) for zsh.\n"
        "_morvane() {\n"
        "    local curcontext=$curcontext state line ret=1\n"
        "    local -a commands\n"
        "    commands=(\n";
    for (const auto& command : commandTable())
        text += "        " +
                quoted(std::string(command.name) + ":" +
                       replaced(std::string(command.says), ":", R"(\:)")) +
                "\n";
    text += "    )\n    _arguments -C \\\n";
    for (const auto& row : commonOptions())
        text += "        " + zshOption(row, {}) + " \\\n";
    text += information +
            " \\\n        '1: :->command' '*:: :->words' && ret=0\n"
            "    case $state in\n"
            "        command) _describe command commands && ret=0 ;;\n"
            "        words)\n"
            "            curcontext=${curcontext%:*}-$words[1]:\n"
            "            case $words[1] in\n";
    for (const auto& command : commandTable()) {
        text += "            " + std::string(command.name) + ") _arguments \\\n";
        for (const auto& row : command.options) {
            if (row.standsAlone())
                text += "        " +
                        quoted(std::string(row.times == OptionRow::Times::any ? "*" : "1") + ":" +
                               std::string(row.name) + ":" + zshWords(row)) +
                        " \\\n";
            else
                text += "        " + zshOption(row, command.excludedBy(row.name)) + " \\\n";
        }
        text += information + " && ret=0 ;;\n";
    }
    return text +
           "            esac ;;\n"
           "    esac\n"
           "    return ret\n"
           "}\n"
           "_morvane \"$@\"\n";
}

std::string fishCompletion() {
    std::string text =
        "# Completion of morvane(1) for fish.\n"
        "function __morvane_needs_command\n"
        "    set -l words (commandline -opc)[2..]\n"
        "    while set -q words[1]\n"
        "        switch $words[1]\n";
    for (const auto& row : commonOptions()) {
        if (row.kind != WordKind::none)
            text += "            case " + std::string(row.name) + "\n" +
                    "                set words $words[3..]\n";
    }
    text +=
        "            case '-*'\n"
        "                set words $words[2..]\n"
        "            case '*'\n"
        "                return 1\n"
        "        end\n"
        "    end\n"
        "    return 0\n"
        "end\n";
    const std::string line = "complete -c morvane ";
    const std::string first = "-n __morvane_needs_command ";
    const auto option = [&](const std::string& condition, const OptionRow& row) {
        std::string words = fishWords(row);
        const bool isPath = row.kind == WordKind::item;
        text += line + condition + "-l " + std::string(row.name.substr(2));
        if (row.letter != 0)
            text += std::string(" -s ") + row.letter;
        if (row.kind != WordKind::none && !row.wordMayBeMissing())
            text += isPath ? " -r" : " -x";
        if (!words.empty())
            text += " -a " + quoted(words);
        text += " -d " + quoted(row.says) + "\n";
    };
    for (const auto& row : commonOptions())
        option(first, row);
    text += line + "-s h -l help -d 'Print how it is used'\n" + line +
            "-l version -d 'Print the version'\n";
    for (const auto& command : commandTable()) {
        text += line + first + "-f -a " + std::string(command.name) + " -d " +
                quoted(command.says) + "\n";
        const std::string within =
            "-n '__fish_seen_subcommand_from " + std::string(command.name) + "' ";
        for (const auto& row : command.options) {
            if (!row.standsAlone())
                option(within, row);
            else if (row.kind == WordKind::item)
                text += line + within + "-F\n";
            else
                text += line + within + "-f -a " + quoted(fishWords(row)) + "\n";
        }
    }
    return text;
}

}  // namespace morvane
