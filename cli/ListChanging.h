// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "AccessCommand.h"
#include "AclCommand.h"
#include "EditCommand.h"
#include "EditedItem.h"
#include "FailedItems.h"
#include "FileFacts.h"
#include "Journal.h"
#include "JsonDocument.h"
#include "ListChange.h"
#include "LsCommand.h"
#include "Outcome.h"
#include "PlannedChange.h"

/// Changes the lists of many items, one after the other.
namespace morvane {

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
    /// Asks the user whether to go on after `said`; null if nobody can be asked, or need not be.
    std::function<bool(const std::string& said)> goesOn;
    /// The command that takes a change back.
    std::string undo;
    /// Lets the user change a text; empty if it was left as it is.
    std::function<std::optional<std::string>(const std::string& text, Problem& problem)> edited;
};

/// What the command line asks for.
struct ChangeOptions {
    std::vector<std::string> paths;
    /// The words behind --set and --remove; empty without these options.
    std::string set;
    std::string remove;
    bool clear = false;
    bool clearDefault = false;
    /// Another item whose list is copied.
    std::string copyFrom;
    /// A file with one list for all paths, or with many that tell their paths; "-" is standard
    /// input.
    std::string list;
    std::string restore;
    /// Whether the last change is taken back.
    bool undo = false;
    /// Whether the list is changed in an editor.
    bool inEditor = false;
    /// Whether everything below is changed as well.
    bool recursive = false;
    /// Whether other file systems below are entered.
    bool crossesMounts = false;
    bool dryRun = false;
    bool lossy = false;
    /// The file that lists the paths that could not be changed.
    std::string failures;
    /// Whether the result is printed as JSON, as one object or in lines.
    bool json = false;
    bool lines = false;
    /// Whether nobody is to be asked.
    bool yes = false;
};

/// An item whose list is to be changed, and what is to be done to it.
struct ItemChange {
    std::string path;
    ListChange change;
    bool recursive = false;
    /// The identityOfFile() of the item that the list is meant for, if that was noted.
    std::optional<std::string> item = std::nullopt;
    /// The digest of the only list that may be replaced; empty if any may be.
    std::string onlyOf = {};
    /// The flags that the list tells of, as FileFacts::flagsText().
    std::string flags = {};
};

/// Makes a change of each list in `text`, for the path that it tells. Lists that are notes are
/// meant for the very items.
std::vector<ItemChange> changesOfText(const std::string& text, bool isNoted, Problem& problem);

/// The outcome if the words, or the text with the lists, are wrong.
Outcome misusedChange(const std::string& problem);
/// The outcome if the file that has the lists, or the script, could not be read.
Outcome unreadChange(const std::string& problem);

/// Changes lists one after the other, notes each before, and tells what became of them.
class ListChanging {
  public:
    ListChanging(const ChangeOptions& options, const ChangeParts& parts, Journal& journal,
                 const Style& style)
        : options_(options), parts_(parts), journal_(journal), style_(style) {}

    Outcome run(const std::vector<ItemChange>& all);

    /// The positions of the changes that could not be made, or not for everything below.
    const std::vector<std::size_t>& failedChanges() const { return failedChanges_; }

  private:
    void fail(const std::string& path, const std::string& why, ExitCode code);
    void fail(const std::string& path, const NSErrorRef& error);

    void change(const std::string& path, bool isBelow, const ItemChange& work);

    /// False if another program has changed the list since it was read.
    bool write(const std::string& path, const NSURL& url, ChangedList& list,
               const std::string& before, bool leftCreatorWithout, EditedItem& item);

    Outcome ended(const std::vector<ItemChange>& all);

    Json jsonOfChange() const;

    /// Notes an item that lacks a flag which its list tells of.
    void compareFlags(const std::string& path, const std::string& told);
    std::string toldFlags() const;

    std::string listNow(const std::string& path) const;

    std::string closingLine() const;

    /// Returns the failures for standard error, and writes all of them to the file that was asked
    /// for.
    std::string toldFailures() const;

    const ChangeOptions& options_;
    const ChangeParts& parts_;
    Journal& journal_;
    const Style& style_;
    std::vector<PlannedChange> planned_;
    std::size_t done_ = 0;
    std::size_t changed_ = 0;
    std::size_t unchanged_ = 0;
    /// How many lists somebody else has changed since the change that is taken back.
    std::size_t changedSince_ = 0;
    std::size_t lackFlags_ = 0;
    /// The first of these.
    std::string lacksFlags_;
    std::vector<FailedItem> failures_;
    std::vector<std::size_t> failedChanges_;
    /// The lines below the failures.
    std::string help_;
    ExitCode worst_ = ExitSuccess;
    NSErrorRef error_;
    Problem misuse_;
    bool isStopped_ = false;
};

/// The line that tells how far the work is.
std::string changeLine(std::size_t done);

/// The same as a line of --json-lines.
std::string changeAsJson(std::size_t done, std::chrono::duration<double> elapsed);

}  // namespace morvane
