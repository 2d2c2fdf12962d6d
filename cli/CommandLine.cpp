// SPDX-License-Identifier: MIT
#include "CommandLine.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "CommandParser.h"
#include "CommandTable.h"
#include "EditScript.h"
#include "ListChanging.h"
#include "ListText.h"
#include "Text.h"

namespace morvane {

namespace {

/// Whether --edit is followed by an empty script, which the parser cannot tell from a missing one.
bool hasEmptyScript(int argc, const char* const* argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (word == "--edit=" || (word == "--edit" && i + 1 < argc && *argv[i + 1] == '\0'))
            return true;
    }
    return false;
}

/// Looks for the words themselves, as those around them may be wrong.
JsonForm jsonAskedFor(int argc, const char* const* argv) {
    for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i) {
        if (std::string_view(argv[i]) == "--json")
            return JsonForm::object;
        if (std::string_view(argv[i]) == "--json-lines")
            return JsonForm::lines;
    }
    return JsonForm::none;
}

/// The options that say what is done to a list. Those of one row can be given together.
const std::vector<std::vector<std::string_view>>& aclActions() {
    static const std::vector<std::vector<std::string_view>> actions{
        {"--edit"},
        {"--script"},
        {"--editor"},
        {"--propagate"},
        {"--save"},
        {"--restore"},
        {"--undo"},
        {"--set", "--remove", "--clear", "--clear-default", "--copy-from", "--set-file"}};
    return actions;
}

/// Why the options do not go together; empty if they do.
std::optional<std::string> conflictIn(const OptionValues& values) {
    std::string_view action;
    for (const auto& row : aclActions()) {
        const auto first = std::find_if(row.begin(), row.end(),
                                        [&](std::string_view name) { return values.has(name); });
        if (first == row.end())
            continue;
        if (!action.empty())
            return say("%1 excludes %2", action, *first);
        action = *first;
    }
    const auto with = [](std::vector<std::string_view> names, const auto&... more) {
        (names.insert(names.end(), more.begin(), more.end()), ...);
        return names;
    };
    const auto& changes = aclActions().back();
    const std::vector<std::string_view> saved{"--restore", "--undo"};
    const std::vector<std::string_view> edits{"--edit", "--script", "--editor"};
    const std::vector<std::pair<std::string_view, std::vector<std::string_view>>> needed{
        {"--dry-run", with({"--propagate"}, changes, saved, edits)},
        {"--lossy", with({}, changes, saved, edits)},
        {"--failures", with({"--propagate"}, changes, saved)},
        {"--yes", with({"--propagate"}, changes)},
        {"--recursive", with({"--save"}, changes)}};
    for (const auto& [option, actions] : needed) {
        if (values.has(option) &&
            std::find(actions.begin(), actions.end(), action) == actions.end())
            return say("%1 requires %2", option, say("%1 or %2", "--set", actions.front()));
    }
    return std::nullopt;
}

EditOptions editOptions(const OptionValues& values, int argc, const char* const* argv) {
    EditOptions edit;
    edit.path = values.one("PATH");
    edit.tree = values.has("--tree");
    edit.json = values.has("--json");
    edit.dryRun = values.has("--dry-run");
    edit.lossy = values.has("--lossy");
    const auto script = values.all("--edit");
    if (!script.empty() && (!script.front().empty() || hasEmptyScript(argc, argv)))
        edit.script = script.front();
    return edit;
}

ChangeOptions changeOptions(const OptionValues& values) {
    ChangeOptions change;
    change.paths = values.all("PATH");
    change.set = values.one("--set");
    change.remove = values.one("--remove");
    change.clear = values.has("--clear");
    change.clearDefault = values.has("--clear-default");
    change.copyFrom = values.one("--copy-from");
    change.list = values.one("--set-file");
    change.restore = values.one("--restore");
    change.undo = values.has("--undo");
    change.inEditor = values.has("--editor");
    change.recursive = values.has("--recursive");
    change.dryRun = values.has("--dry-run");
    change.lossy = values.has("--lossy");
    change.failures = values.one("--failures");
    change.json = values.has("--json");
    change.lines = values.has("--json-lines");
    change.yes = values.has("--yes");
    change.crossesMounts = values.has("--cross-mounts");
    return change;
}

/// Whether it changes many lists, and so tells how far it is.
bool isLongChange(const OptionValues& values) {
    if (values.has("--propagate") || values.has("--restore") || values.has("--undo"))
        return true;
    const auto& changes = aclActions().back();
    return values.has("--recursive") &&
           std::any_of(changes.begin(), changes.end(),
                       [&](std::string_view name) { return values.has(name); });
}

CommandLine aclCommand(const OptionValues& values, int argc, const char* const* argv) {
    if (const auto conflict = conflictIn(values))
        return misunderstood(*conflict, "acl");
    const auto paths = values.all("PATH");
    const bool tellsItsPaths = values.has("--restore") || values.has("--undo");
    if (paths.empty() && !tellsItsPaths)
        return misunderstood(say("%1 is required", "PATH"), "acl");
    if (tellsItsPaths && !paths.empty())
        return misunderstood(
            say("The following argument was not expected: %1", escaped(paths.front())), "acl");
    for (const auto name : {"--set", "--remove", "--copy-from", "--set-file", "--restore", "--save",
                            "--script", "--failures"}) {
        if (values.has(name) && values.one(name).empty())
            return misunderstood(say("%1 is followed by nothing", name), "acl");
    }
    for (const auto* one : {"--edit", "--script", "--editor", "--propagate"}) {
        if (values.has(one) && paths.size() > 1)
            return misunderstood(say("%1 takes one PATH", one), "acl");
    }
    if (values.has("--json-lines") && !isLongChange(values))
        return misunderstood(say("%1 requires %2", "--json-lines",
                                 say("%1 or %2", "--propagate, --recursive, --restore", "--undo")),
                             "acl");
    if (values.has("--propagate"))
        return PropagateOptions{values.one("PATH"),   values.has("--json-lines"),
                                values.has("--json"), values.has("--dry-run"),
                                values.has("--yes"),  values.one("--failures")};
    if (values.one("--save") == "-" && values.has("--json"))
        return misunderstood(say("the lists and %1 would both be on standard output; name a file "
                                 "behind %2",
                                 "--json", "--save"),
                             "acl");
    if (values.has("--save"))
        return SaveOptions{paths, values.one("--save"), values.has("--recursive"),
                           values.has("--cross-mounts"), values.has("--json")};
    if (values.has("--script")) {
        auto edit = editOptions(values, argc, argv);
        Problem problem;
        edit.script = contentOfFile(values.one("--script"), problem);
        if (problem)
            return unreadChange(*problem);
        return edit;
    }
    if (values.has("--edit"))
        return editOptions(values, argc, argv);
    for (const auto& row : aclActions()) {
        for (const auto name : row) {
            if (values.has(name))
                return changeOptions(values);
        }
    }
    return AclOptions{paths.front(),
                      {paths.begin() + 1, paths.end()},
                      values.has("--tree"),
                      values.has("--json")};
}

CommandLine accessCommand(const OptionValues& values) {
    AccessOptions access;
    access.path = values.one("PATH");
    access.user = values.one("--user");
    access.group = values.one("--group");
    access.json = values.has("--json");
    if (access.user.empty() && access.group.empty())
        return misunderstood(say("%1 is required", say("%1 or %2", "--user NAME", "--group NAME")),
                             "access");
    return access;
}

CommandLine sizeCommand(const OptionValues& values) {
    SizeOptions size;
    size.paths = values.all("PATH");
    size.json = values.has("--json");
    size.base2 = values.has("--base2");
    size.base10 = values.has("--base10");
    size.save = values.has("--save");
    size.lines = values.has("--json-lines");
    size.top = values.number("--top");
    size.depth = values.has("--depth") ? values.number("--depth") : size.top != 0 ? 1 : 0;
    if (values.has("--sort"))
        size.order = values.one("--sort") == "size"   ? SizeOrder::bySize
                     : values.one("--sort") == "name" ? SizeOrder::byName
                                                      : SizeOrder::asGiven;
    if (size.save && !size.base2 && !size.base10)
        return misunderstood(
            say("%1 requires %2", "--save", say("%1 or %2", "--base2", "--base10")), "size");
    if (size.paths.empty() && !size.save)
        size.paths = {"."};
    return size;
}

CommandLine renameCommand(const OptionValues& values) {
    RenameOptions rename;
    rename.words = values.all("PATH");
    rename.json = values.has("--json");
    if (rename.words.empty() || rename.words.size() % 2 != 0)
        return misunderstood(say("a new name is required behind each PATH"), "rename");
    return rename;
}

CommandLine whoCanCommand(const OptionValues& values) {
    if (values.all("PATH").empty())
        return misunderstood(say("%1 is required", "PATH"), "who-can");
    return WhoCanOptions{values.all("PATH"), values.one("--right"), values.has("--all"),
                         values.has("--json")};
}

CommandLine diffCommand(const OptionValues& values) {
    auto paths = values.all("PATH");
    DiffOptions diff;
    diff.saved = values.one("--saved");
    diff.recursive = values.has("--recursive");
    diff.json = values.has("--json");
    if (values.has("--saved") && diff.saved.empty())
        return misunderstood(say("%1 is followed by nothing", "--saved"), "diff");
    const std::size_t needed = values.has("--saved") ? 1 : 2;
    if (paths.size() < needed)
        return misunderstood(
            say("%1 is required", needed == 1 ? "PATH" : say("%1 or %2", "PATH PATH", "--saved")),
            "diff");
    if (paths.size() > needed)
        return misunderstood(
            say("The following argument was not expected: %1", escaped(paths[needed])), "diff");
    if (needed == 2)
        diff.before = paths.front();
    diff.after = paths.back();
    return diff;
}

Outcome helpCommand(const OptionValues& values) {
    const auto topic = values.one("COMMAND");
    if (topic == editTopic)
        return {ExitSuccess, editScriptHelp(), {}};
    const auto& table = commandTable();
    const bool isThere = std::any_of(table.begin(), table.end(),
                                     [&](const auto& command) { return command.name == topic; });
    if (!topic.empty() && !isThere)
        return noSuchCommand(topic, {editTopic});
    return {ExitSuccess, helpOfCommand(topic), {}};
}

}  // namespace

CommandLine parseCommandLine(int argc, const char* const* argv, const std::string& version,
                             CommonOptions* common) {
    if (common)
        common->json = jsonAskedFor(argc, argv);
    const auto parsed = parseWords(argc, argv, version);
    if (const auto* outcome = std::get_if<Outcome>(&parsed))
        return *outcome;
    const auto& [name, values, before] = std::get<ParsedWords>(parsed);
    if (common) {
        common->command = name;
        common->privileged = before.has("--privileged");
        common->colour = before.one("--color");
    }
    if (name == "acl")
        return aclCommand(values, argc, argv);
    if (name == "access")
        return accessCommand(values);
    if (name == "who-can")
        return whoCanCommand(values);
    if (name == "diff")
        return diffCommand(values);
    if (name == "check")
        return CheckOptions{values.one("TREE"), values.has("--cross-mounts"), values.has("--json"),
                            values.has("--json-lines")};
    if (name == "size")
        return sizeCommand(values);
    if (name == "ls")
        return LsOptions{values.has("PATH") ? values.all("PATH") : std::vector<std::string>{"."},
                         values.has("--json"), values.has("--long")};
    if (name == "rename")
        return renameCommand(values);
    return helpCommand(values);
}

bool wantsColours(std::string_view choice, bool isTerminal, const char* noColor, const char* term) {
    if (choice == "always" || choice == "never")
        return choice == "always";
    const auto text = [](const char* value) { return std::string_view(value ? value : ""); };
    return isTerminal && text(noColor).empty() && !text(term).empty() && text(term) != "dumb";
}

}  // namespace morvane
