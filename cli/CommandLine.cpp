#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>
#include <string_view>

namespace morvane {

namespace {

constexpr const char* footer =
    "Exit status: 0 done, 1 the operation failed, 2 the command line was not understood,\n"
    "3 the service could not be started or went away, 4 the server of a network mount has stored\n"
    "something else, 130 interrupted by Ctrl-C.";

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

}  // namespace

CommandLine parseCommandLine(int argc, const char* const* argv, const std::string& version,
                             CommonOptions* common) {
    CLI::App app("Shows who may do what with files and folders, and how large they are.",
                 "morvane");
    const std::string versionText = "morvane " + version;
    app.set_version_flag("--version", versionText, "Print the version and exit");
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.footer(footer);
    app.require_subcommand(1);
    CommonOptions options;
    app.add_flag("--privileged", options.privileged,
                 "Let the privileged helper do the work; the system asks you for the right to it");

    AclOptions acl;
    EditOptions edit;
    CLI::App* command =
        app.add_subcommand("acl", "Print or edit the access-control list of an item");
    command->set_version_flag("--version", versionText, "Print the version and exit");
    command->add_option("PATH", acl.path, "A file or a folder; a symbolic link is followed")
        ->required();
    auto* tree = command->add_flag("--tree", acl.tree, "Show each entry's boxes below it");
    command->add_flag("--json", acl.json, "Print JSON instead of a table")->excludes(tree);
    bool propagate = false;
    auto* propagateFlag =
        command->add_flag("--propagate", propagate,
                          "Give everything below the folder what it inherits of the folder's list");
    std::vector<std::string> script;
    auto* editFlag =
        command
            ->add_option("--edit", script,
                         "Change the list by these commands; without any, on the terminal. What "
                         "another program changes meanwhile is kept")
            ->expected(0, 1)
            ->type_name("[SCRIPT]");
    command->add_flag("--dry-run", edit.dryRun, "Show the list before and after, change nothing")
        ->needs(editFlag);
    command
        ->add_flag("--lossy", edit.lossy,
                   "Leave out what the file system cannot hold; never grants more")
        ->needs(editFlag);
    propagateFlag->excludes("--edit")->excludes("--tree")->excludes("--json");
    command->footer(footer);

    AccessOptions access;
    CLI::App* accessCommand =
        app.add_subcommand("access", "Tell what a user or group can really do to an item");
    accessCommand->set_version_flag("--version", versionText, "Print the version and exit");
    accessCommand->add_option("PATH", access.path, "A file or a folder")->required();
    auto* user = accessCommand->add_option("--user", access.user, "The user's name or number");
    accessCommand->add_option("--group", access.group, "The group's name or number")
        ->excludes(user);
    accessCommand->add_flag("--json", access.json, "Print JSON instead of boxes");
    accessCommand->footer(footer);

    SizeOptions size;
    CLI::App* sizeCommand =
        app.add_subcommand("size", "Add up the sizes of items with all that is below them");
    sizeCommand->set_version_flag("--version", versionText, "Print the version and exit");
    sizeCommand->add_option("PATH", size.paths,
                            "Files and folders; symbolic links are not followed");
    sizeCommand->add_flag("--json", size.json, "Print JSON instead of a table");
    auto* base2 =
        sizeCommand->add_flag("--base2", size.base2, "Keep as the default: 1 KB is 1024 bytes");
    sizeCommand->add_flag("--base10", size.base10, "Keep as the default: 1 KB is 1000 bytes")
        ->excludes(base2);
    sizeCommand->footer(footer);

    LsOptions ls;
    CLI::App* lsCommand = app.add_subcommand("ls", "List a folder in its own order");
    lsCommand->set_version_flag("--version", versionText, "Print the version and exit");
    lsCommand->add_option("DIR", ls.path, "A folder")->required();
    lsCommand->add_flag("--json", ls.json, "Print JSON instead of names");
    lsCommand->footer(footer);

    RenameOptions rename;
    CLI::App* renameCommand = app.add_subcommand(
        "rename", "Give items new names in their folders, also those that others give up");
    renameCommand->set_version_flag("--version", versionText, "Print the version and exit");
    renameCommand->add_option("PATH", rename.words, "Each item, and its new name behind it")
        ->type_name("NAME");
    renameCommand->add_flag("--json", rename.json, "Print as JSON where each item is now");
    renameCommand->footer(footer);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& stop) {
        std::ostringstream output;
        std::ostringstream message;
        if (app.exit(stop, output, message) == 0)
            return Outcome{ExitSuccess, output.str(), {}};
        std::string reason = escaped(stop.what());
        if (app.get_subcommands().empty()) {
            const auto* const word = std::find_if(
                argv + 1, argv + argc, [](const char* w) { return *w != '-' && *w != '\0'; });
            if (word != argv + argc)
                reason = "there is no command '" + escaped(*word) + "'";
        }
        return Outcome{
            ExitUsage,
            {},
            "morvane: " + reason + "\n  'morvane --help' tells how the command is used.\n"};
    }
    if (common)
        *common = options;
    if (*sizeCommand) {
        if (size.paths.empty() && !size.base2 && !size.base10)
            return Outcome{ExitUsage,
                           {},
                           "morvane: PATH is required\n"
                           "  'morvane size --help' tells how the command is used.\n"};
        return size;
    }
    if (*lsCommand)
        return ls;
    if (*renameCommand) {
        if (rename.words.empty() || rename.words.size() % 2 != 0)
            return Outcome{ExitUsage,
                           {},
                           "morvane: a new name is required behind each PATH\n"
                           "  'morvane rename --help' tells how the command is used.\n"};
        return rename;
    }
    if (*accessCommand) {
        if (access.user.empty() && access.group.empty())
            return Outcome{ExitUsage,
                           {},
                           "morvane: --user NAME or --group NAME is required\n"
                           "  'morvane access --help' tells how the command is used.\n"};
        return access;
    }
    if (propagate)
        return PropagateOptions{acl.path};
    if (*editFlag) {
        edit.path = acl.path;
        edit.tree = acl.tree;
        edit.json = acl.json;
        if (!script.empty() && (!script.front().empty() || hasEmptyScript(argc, argv)))
            edit.script = script.front();
        return edit;
    }
    return acl;
}

bool wantsColours(bool isTerminal, const char* noColor, const char* term) {
    const auto text = [](const char* value) { return std::string_view(value ? value : ""); };
    return isTerminal && text(noColor).empty() && !text(term).empty() && text(term) != "dumb";
}

}  // namespace morvane
