// SPDX-License-Identifier: MIT
#include "CommandTable.h"

#include <algorithm>

namespace morvane {

std::vector<std::string_view> CommandRow::excludedBy(std::string_view option) const {
    std::vector<std::string_view> excluded;
    for (const auto& row : options) {
        const auto& others = row.excludes;
        if (row.name == option)
            excluded.insert(excluded.end(), others.begin(), others.end());
        else if (std::find(others.begin(), others.end(), option) != others.end())
            excluded.push_back(row.name);
    }
    return excluded;
}

const std::vector<CommandRow>& commandTable() {
    using Times = OptionRow::Times;
    static const std::vector<CommandRow> table{
        {"acl",
         "Print or edit the access-control list of an item",
         {{.name = "PATH",
           .says = "A file or a folder; a symbolic link is followed",
           .kind = WordKind::item,
           .times = Times::once},
          {.name = "--tree", .says = "Show each entry's boxes below it"},
          {.name = "--json", .says = "Print JSON instead of a table", .excludes = {"--tree"}},
          {.name = "--propagate",
           .says = "Give everything below the folder what it inherits of the folder's list",
           .excludes = {"--tree", "--json"}},
          {.name = "--edit",
           .says = "Change the list by these commands, which 'morvane help edit' tells; without "
                   "any, on the "
                   "terminal. What another program changes meanwhile is kept",
           .kind = WordKind::text,
           .word = "[SCRIPT]",
           .excludes = {"--propagate"}},
          {.name = "--dry-run",
           .says = "Show the list before and after, change nothing",
           .needs = "--edit"},
          {.name = "--lossy",
           .says = "Leave out what the file system cannot hold; never grants more",
           .needs = "--edit"}}},
        {"access",
         "Tell what a user or group can really do to an item",
         {{.name = "PATH",
           .says = "A file or a folder",
           .kind = WordKind::item,
           .times = Times::once},
          {.name = "--user",
           .says = "The user's name or number",
           .kind = WordKind::user,
           .word = "NAME"},
          {.name = "--group",
           .says = "The group's name or number",
           .kind = WordKind::group,
           .word = "NAME",
           .excludes = {"--user"}},
          {.name = "--json", .says = "Print JSON instead of boxes"}}},
        {"size",
         "Add up the sizes of items with all that is below them",
         {{.name = "PATH",
           .says = "Files and folders; symbolic links are not followed",
           .kind = WordKind::item,
           .times = Times::any},
          {.name = "--json", .says = "Print JSON instead of a table"},
          {.name = "--base2", .says = "Keep as the default: 1 KB is 1024 bytes"},
          {.name = "--base10",
           .says = "Keep as the default: 1 KB is 1000 bytes",
           .excludes = {"--base2"}}}},
        {"ls",
         "List a folder in its own order",
         {{.name = "DIR", .says = "A folder", .kind = WordKind::folder, .times = Times::once},
          {.name = "--json", .says = "Print JSON instead of names"}}},
        {"rename",
         "Give items new names in their folders, also those that others give up",
         {{.name = "PATH",
           .says = "Each item, and its new name behind it",
           .kind = WordKind::item,
           .word = "NAME",
           .times = Times::any},
          {.name = "--json", .says = "Print as JSON where each item is now"}}},
        {"help",
         "Tell how a command is used, or the commands of an edit",
         {{.name = "COMMAND", .says = "One of these, or \"edit\"", .kind = WordKind::command}}},
    };
    return table;
}

const std::vector<OptionRow>& commonOptions() {
    static const std::vector<OptionRow> options{
        {.name = "--privileged",
         .says = "Let the privileged helper do the work; the system asks you for the right to it"},
    };
    return options;
}

const std::vector<EditCommandRow>& editCommands() {
    static const std::vector<EditCommandRow> commands{
        {"entry", "NUMBER",
         "The commands that follow are for this entry; the first line of the table is 1. Entries "
         "that "
         "are added count on from the last."},
        {"add", "WHO",
         "Adds an entry that allows reading and writing, and chooses it. WHO is user:NAME, "
         "group:NAME "
         "(a number may stand for the name), everyone, creator or creator-group."},
        {"remove", "", "Removes the entry."},
        {"on", "BOX",
         "Switches a box on, or a group with all its boxes. Read/NAME finds a box in its group."},
        {"off", "BOX", "Switches it off."},
        {"toggle", "BOX", "Changes it as a click does."},
        {"permissions", "CHOICE",
         "All boxes as a choice of the menu sets them: all, read-write, read, write or, for the "
         "owner, the owning group and everyone, none."},
        {"allow", "", "The entry allows what is on."},
        {"deny", "", "The entry denies what is on."},
        {"who", "WHO", "Whom the entry is for."},
        {"inherited", "yes|no",
         "Whether the entry counts as inherited. One that does cannot be changed."},
    };
    return commands;
}

}  // namespace morvane
