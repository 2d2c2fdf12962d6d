// SPDX-License-Identifier: MIT
#include "CommandTable.h"

#include <MorvaneOperation/platform/foundation/Phrase.h>

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
         translatable("Print or edit access-control lists"),
         {{.name = "PATH",
           .says = translatable("Files and folders; a symbolic link is followed"),
           .kind = WordKind::item,
           .times = Times::any},
          {.name = "--tree", .says = translatable("Show each entry's boxes below it")},
          {.name = "--json",
           .says = translatable("Print JSON instead of a table"),
           .excludes = {"--tree"}},
          {.name = "--set",
           .says = translatable("Give these rights, as in u:alice:rw,g:staff:rX,o::-; with d: in "
                                "front, to new items in a folder"),
           .kind = WordKind::text,
           .word = "ENTRIES"},
          {.name = "--remove",
           .says = translatable("Take away what the list says of them, as in u:alice,d:g:staff"),
           .kind = WordKind::text,
           .word = "ENTRIES"},
          {.name = "--clear",
           .says = translatable("Leave the owner, the owning group and everyone only")},
          {.name = "--clear-default",
           .says = translatable("Take away what new items in a folder get")},
          {.name = "--copy-from",
           .says = translatable("Take over the list of another item"),
           .kind = WordKind::item,
           .word = "OTHER"},
          {.name = "--set-file",
           .says =
               translatable("Take over a list as getfacl, nfs4_getfacl or --save write it; - is "
                            "standard input"),
           .kind = WordKind::item,
           .word = "FILE"},
          {.name = "--recursive",
           .says = translatable("Do it to everything below a folder, too; symbolic links below are "
                                "passed over"),
           .letter = 'R'},
          {.name = "--cross-mounts",
           .says = translatable("Enter the other file systems that are mounted below, too"),
           .needs = "--recursive"},
          {.name = "--save",
           .says = translatable("Write the lists to a file, for --restore; - is standard output"),
           .kind = WordKind::item,
           .word = "FILE"},
          {.name = "--restore",
           .says = translatable("Give each list of the file to the path that it tells; - is "
                                "standard input"),
           .kind = WordKind::item,
           .word = "FILE"},
          {.name = "--undo", .says = translatable("Take the last change of lists back")},
          {.name = "--propagate",
           .says = translatable(
               "Give everything below the folder what it inherits of the folder's list"),
           .excludes = {"--tree"}},
          {.name = "--yes",
           .says = translatable("Do not ask before it is propagated, or changed with all that is "
                                "below by the helper"),
           .letter = 'y'},
          {.name = "--edit",
           .says = translatable(
               "Change the list by these commands, which 'morvane help edit' tells; without "
               "any, on the "
               "terminal. What another program changes meanwhile is kept"),
           .kind = WordKind::text,
           .word = "[SCRIPT]"},
          {.name = "--script",
           .says = translatable("Likewise, by the commands in a file; - is standard input"),
           .kind = WordKind::item,
           .word = "FILE"},
          {.name = "--editor",
           .says = translatable("Change the list as text, in $VISUAL or $EDITOR")},
          {.name = "--json-lines",
           .says = translatable("Print a line of JSON for each item, and while the work goes on"),
           .excludes = {"--json"}},
          {.name = "--dry-run", .says = translatable("Show what would change, change nothing")},
          {.name = "--lossy",
           .says = translatable("Leave out what the file system cannot hold; never grants more")},
          {.name = "--failures",
           .says = translatable("List in this file what could not be changed, and why"),
           .kind = WordKind::item,
           .word = "FILE"}}},
        {"access",
         translatable("Tell what a user or group can really do to an item"),
         {{.name = "PATH",
           .says = translatable("A file or a folder"),
           .kind = WordKind::item,
           .times = Times::once},
          {.name = "--user",
           .says = translatable("The user's name or number"),
           .kind = WordKind::user,
           .word = "NAME"},
          {.name = "--group",
           .says = translatable("The group's name or number"),
           .kind = WordKind::group,
           .word = "NAME",
           .excludes = {"--user"}},
          {.name = "--json", .says = translatable("Print JSON instead of boxes")}}},
        {"who-can",
         translatable("Tell every user and group with a right to an item, and through what"),
         {{.name = "PATH",
           .says = translatable("Files and folders; a symbolic link is followed"),
           .kind = WordKind::item,
           .times = Times::any},
          {.name = "--right",
           .says =
               translatable("Tell those who have this right; execute is to enter a folder, too"),
           .kind = WordKind::choice,
           .word = "RIGHT",
           .choices = {"read", "write", "execute", "delete", "change-permissions", "change-owner"}},
          {.name = "--all",
           .says = translatable("Name those who have what everyone else has, too")},
          {.name = "--json", .says = translatable("Print JSON instead of a table")}}},
        {"diff",
         translatable("Compare the lists of two items, or an item's with a saved one"),
         {{.name = "PATH",
           .says = translatable("The two items; with --saved, the one whose list that was"),
           .kind = WordKind::item,
           .times = Times::any},
          {.name = "--saved",
           .says = translatable("Tell what has changed since this file was written by --save, "
                                "getfacl or nfs4_getfacl; - is standard input"),
           .kind = WordKind::item,
           .word = "FILE"},
          {.name = "--recursive",
           .says = translatable("Compare everything below both folders, too; symbolic links are "
                                "passed over"),
           .letter = 'R'},
          {.name = "--json", .says = translatable("Print JSON instead of lines")}},
         true},
        {"check",
         translatable("Look through a tree for lists that are likely to be mistakes"),
         {{.name = "TREE",
           .says = translatable("A folder; symbolic links below it are passed over"),
           .kind = WordKind::item,
           .times = Times::once},
          {.name = "--cross-mounts",
           .says = translatable("Enter the other file systems that are mounted below, too")},
          {.name = "--json", .says = translatable("Print JSON instead of lines")},
          {.name = "--json-lines",
           .says = translatable("Print a line of JSON for each finding, while the work goes on"),
           .excludes = {"--json"}}},
         true},
        {"size",
         translatable("Add up the sizes of items with all that is below them"),
         {{.name = "PATH",
           .says =
               translatable("Files and folders, otherwise where you are; symbolic links are not "
                            "followed"),
           .kind = WordKind::item,
           .times = Times::any},
          {.name = "--depth",
           .says = translatable("Show so many levels below each folder, too"),
           .kind = WordKind::number,
           .word = "N"},
          {.name = "--top",
           .says = translatable("Of each folder show only so many items, the largest"),
           .kind = WordKind::number,
           .word = "N"},
          {.name = "--sort",
           .says = translatable("The order of the items"),
           .kind = WordKind::choice,
           .word = "size|name|none",
           .choices = {"size", "name", "none"}},
          {.name = "--base2", .says = translatable("1 KB is 1024 bytes")},
          {.name = "--base10", .says = translatable("1 KB is 1000 bytes"), .excludes = {"--base2"}},
          {.name = "--save", .says = translatable("Keep that choice of units as the default")},
          {.name = "--json", .says = translatable("Print JSON instead of a table")},
          {.name = "--json-lines",
           .says = translatable("Print a line of JSON for each item, and while the work goes on"),
           .excludes = {"--json"}}}},
        {"ls",
         translatable("List folders, each in its own order"),
         {{.name = "PATH",
           .says = translatable("Folders, and files, which list themselves; without one, where you "
                                "are"),
           .kind = WordKind::item,
           .times = Times::any},
          {.name = "--long",
           .says = translatable("Show rights, owner, group, size and time of each item"),
           .letter = 'l'},
          {.name = "--json",
           .says = translatable("Print JSON instead of names"),
           .excludes = {"--long"}}}},
        {"rename",
         translatable("Give items new names in their folders, also those that others give up"),
         {{.name = "PATH",
           .says = translatable("Each item, and its new name behind it"),
           .kind = WordKind::item,
           .word = "NAME",
           .times = Times::any},
          {.name = "--json", .says = translatable("Print as JSON where each item is now")}}},
        {"help",
         translatable("Tell how a command is used, or the commands of an edit"),
         {{.name = "COMMAND",
           .says = translatable("One of these, or \"edit\""),
           .kind = WordKind::command}}},
    };
    return table;
}

bool endsLikeDiff(std::string_view command) {
    const auto& table = commandTable();
    return std::any_of(table.begin(), table.end(), [&](const CommandRow& row) {
        return row.name == command && row.endsLikeDiff;
    });
}

const std::vector<OptionRow>& commonOptions() {
    static const std::vector<OptionRow> options{
        {.name = "--privileged",
         .says = translatable(
             "Let the privileged helper do the work; the system asks you for the right to it")},
        {.name = "--color",
         .says = translatable("Whether to use colours; without it they are used on a terminal"),
         .kind = WordKind::choice,
         .word = "auto|always|never",
         .choices = {"auto", "always", "never"}},
    };
    return options;
}

const std::vector<EditCommandRow>& editCommands() {
    static const std::vector<EditCommandRow> commands{
        {"entry", "NUMBER",
         translatable("The commands that follow are for this entry; the first line of the table is "
                      "1. Entries "
                      "that "
                      "are added count on from the last.")},
        {"add", "WHO",
         translatable(
             "Adds an entry that allows reading and writing, and chooses it. WHO is user:NAME, "
             "group:NAME "
             "(a number may stand for the name), everyone, creator or creator-group.")},
        {"remove", "", translatable("Removes the entry.")},
        {"on", "BOX",
         translatable("Switches a box on, or a group with all its boxes. Read/NAME finds a box in "
                      "its group.")},
        {"off", "BOX", translatable("Switches it off.")},
        {"toggle", "BOX", translatable("Changes it as a click does.")},
        {"permissions", "CHOICE",
         translatable("All boxes as a choice of the menu sets them: all, read-write, read, write "
                      "or, for the "
                      "owner, the owning group and everyone, none.")},
        {"allow", "", translatable("The entry allows what is on.")},
        {"deny", "", translatable("The entry denies what is on.")},
        {"who", "WHO", translatable("Whom the entry is for.")},
        {"inherited", "yes|no",
         translatable("Whether the entry counts as inherited. One that does cannot be changed.")},
    };
    return commands;
}

}  // namespace morvane
