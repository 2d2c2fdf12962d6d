// SPDX-License-Identifier: MIT
#include "CommandLine.h"

#include <algorithm>
#include <string_view>

#include "CommandParser.h"
#include "CommandTable.h"
#include "EditScript.h"
#include "Text.h"

namespace morvane {

namespace {

/// Whether --edit is followed by a script without commands, which the parser does not tell from
/// none.
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

CommandLine aclCommand(const OptionValues& values, int argc, const char* const* argv) {
    if (values.has("--propagate"))
        return PropagateOptions{values.one("PATH"), values.has("--json-lines")};
    const AclOptions acl{values.one("PATH"), values.has("--tree"), values.has("--json")};
    if (!values.has("--edit"))
        return acl;
    EditOptions edit;
    edit.path = acl.path;
    edit.tree = acl.tree;
    edit.json = acl.json;
    edit.dryRun = values.has("--dry-run");
    edit.lossy = values.has("--lossy");
    const auto script = values.all("--edit");
    if (!script.empty() && (!script.front().empty() || hasEmptyScript(argc, argv)))
        edit.script = script.front();
    return edit;
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
        return misunderstood(say("%1 is required", "PATH"), "size");
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
    if (name == "size")
        return sizeCommand(values);
    if (name == "ls")
        return LsOptions{values.one("DIR"), values.has("--json"), values.has("--long")};
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
