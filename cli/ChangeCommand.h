// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "AccessCommand.h"
#include "AclCommand.h"
#include "EditCommand.h"
#include "FileFacts.h"
#include "Journal.h"
#include "ListChange.h"
#include "LsCommand.h"
#include "Outcome.h"

/// `morvane acl PATH... --set ENTRIES` and the like: the same change of many lists.
namespace morvane {

/// What is to be done, as the command line says it.
struct ChangeOptions {
    std::vector<std::string> paths;
    /// Entries as behind --set and --remove; empty if they are not asked for.
    std::string set;
    std::string remove;
    bool clear = false;
    bool clearDefault = false;
    /// Another item whose list is to be taken.
    std::string copyFrom;
    /// A file with one list for all paths, or with many that tell their paths; "-" is standard
    /// input.
    std::string list;
    std::string restore;
    /// The last change is taken back.
    bool undo = false;
    /// The list is changed in an editor.
    bool inEditor = false;
    /// And everything below.
    bool recursive = false;
    bool dryRun = false;
    bool lossy = false;
    /// Where the paths that could not be changed are to be listed.
    std::string failures;
    /// What became of them is told for programs.
    bool json = false;
};

/// What the command works with.
struct ChangeParts {
    AclSource source;
    AclSink sink;
    ContentsSource contents;
    FactsSource facts;
    /// Null if this program itself can look at the items.
    AccessSource access;
    /// Is told how many items are done; answers whether to go on.
    std::function<bool(std::size_t done)> progress;
    /// Lets the user change a text; empty if it was left as it is.
    std::function<std::optional<std::string>(const std::string& text, Problem& problem)> edited;
};

Outcome runChange(const ChangeOptions& options, const ChangeParts& parts, Journal& journal,
                  const Style& style);

/// `morvane acl PATH... --save FILE`: the lists of the items, and with `recursive` of everything
/// below them.
struct SaveOptions {
    std::vector<std::string> paths;
    /// "-" is standard output.
    std::string file;
    bool recursive = false;
    bool json = false;
};
Outcome runSave(const SaveOptions& options, const ChangeParts& parts);

/// The line that tells how far the work is.
std::string changeLine(std::size_t done);

}  // namespace morvane
