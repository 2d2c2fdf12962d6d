#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <sstream>
#include <string_view>

namespace morvane {

namespace {

constexpr const char* footer =
    "Exit status: 0 done, 1 the operation failed, 2 the command line was not understood,\n"
    "3 the service could not be started or went away.";

}  // namespace

CommandLine parseCommandLine(int argc, const char* const* argv, const std::string& version) {
    CLI::App app("Shows who may do what with a file or a folder.", "morvane");
    const std::string versionText = "morvane " + version;
    app.set_version_flag("--version", versionText, "Print the version and exit");
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.footer(footer);
    app.require_subcommand(1);

    AclOptions acl;
    CLI::App* command = app.add_subcommand("acl", "Print the access-control list of an item");
    command->set_version_flag("--version", versionText, "Print the version and exit");
    command->add_option("PATH", acl.path, "A file or a folder; a symbolic link is followed")
        ->required();
    auto* tree = command->add_flag("--tree", acl.tree, "Show each entry's boxes below it");
    command->add_flag("--json", acl.json, "Print JSON instead of a table")->excludes(tree);
    command->footer(footer);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& stop) {
        std::ostringstream output;
        std::ostringstream message;
        if (app.exit(stop, output, message) == 0)
            return Outcome{ExitSuccess, output.str(), {}};
        return Outcome{ExitUsage,
                       {},
                       "morvane: " + escaped(stop.what()) +
                           "\n  'morvane --help' tells how the command is used.\n"};
    }
    return acl;
}

bool wantsColours(bool isTerminal, const char* noColor, const char* term) {
    const auto text = [](const char* value) { return std::string_view(value ? value : ""); };
    return isTerminal && text(noColor).empty() && !text(term).empty() && text(term) != "dumb";
}

}  // namespace morvane
