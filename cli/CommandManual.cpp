// SPDX-License-Identifier: MIT
#include <sstream>

#include "CommandTable.h"
#include "CommandTexts.h"
#include "CommandWords.h"

namespace morvane {

namespace {

/// Returns the sentence with its full stop.
std::string sentence(std::string_view says) {
    return std::string(says) + (says.ends_with('.') ? "" : ".");
}

/// Escapes a text of the manual, so that the formatter takes every character as it is.
std::string forManual(std::string_view says) {
    const auto text = replaced(replaced(std::string(says), "\\", R"(\e)"), "-", R"(\-)");
    return text.starts_with('.') || text.starts_with('\'') ? "\\&" + text : text;
}

std::string manualOptions(const CommandRow& command) {
    std::string text;
    for (const auto& row : command.options) {
        text += ".TP\n";
        if (row.standsAlone())
            text += ".I " + std::string(row.name) +
                    (row.word.empty() ? "" : " " + std::string(row.word)) +
                    (row.times == OptionRow::Times::any ? " ..." : "") + "\n";
        else if (row.word.empty())
            text +=
                (row.letter != 0 ? ".BR \\-" + std::string(1, row.letter) + " \", \" " : ".B ") +
                forManual(row.name) + "\n";
        else
            text += ".BI " + forManual(row.name) + " \" " + std::string(row.word) + "\"\n";
        text += forManual(sentence(row.says)) + "\n";
        if (const auto excluded = command.excludedBy(row.name); !excluded.empty())
            text += "Not together with " + forManual(joined(excluded, " or ")) + ".\n";
        if (!row.needs.empty())
            text += "Only together with " + forManual(row.needs) + ".\n";
    }
    return text;
}

std::string manualOfAllOptions() {
    std::string text = manualOptions({{}, {}, commonOptions()});
    text +=
        ".TP\n.BR \\-h \", \" \\-\\-help\nPrint how the program, or a command, is used.\n"
        ".TP\n.B \\-\\-version\nPrint the version.\n";
    for (const auto& command : commandTable()) {
        text += ".SS morvane " + std::string(command.name) + "\n" +
                forManual(sentence(command.says)) + "\n" + manualOptions(command);
    }
    return text;
}

std::string manualOfEditCommands() {
    std::string text;
    for (const auto& command : editCommands()) {
        text += ".TP\n.BI \"" + std::string(command.name) + " \" " + std::string(command.word) +
                "\n" + forManual(command.says) + "\n";
    }
    return text;
}

}  // namespace

std::string manualWithLists(const std::string& text) {
    std::istringstream lines(text);
    std::string manual;
    for (std::string line; std::getline(lines, line);) {
        if (line == ".\\\" options")
            manual += manualOfAllOptions();
        else if (line == ".\\\" edit commands")
            manual += manualOfEditCommands();
        else
            manual += line + "\n";
    }
    return manual;
}

}  // namespace morvane
