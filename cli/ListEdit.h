// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "AclEditor.h"

/// What a person changes of a list: the entries as they were read, and the same change on what the
/// list is by then, where another program has changed it meanwhile.
///
///     ListEdit edit(entries);
///     AclEditor editor(edit.read(), ...);
///     ...
///     sink(edit.toWrite(editor), url);   // MVAclChanged
///     const auto notMade = edit.replay(editor, entriesReadAgain);
namespace morvane {

class ListEdit {
  public:
    /// `entries` are those that are edited, as the service has sent them: in the order in which
    /// they count.
    explicit ListEdit(const EntryList& entries);

    /// The entries that were read, in the order in which they count.
    EntryList read() const;
    /// The same in the order in which they are shown.
    EntryList shown() const;

    /// Whether `now` shows the entries that were read, and no others.
    bool isStill(const EntryList& now) const;

    /// The edited entries in the order in which they count. New ones count as made for the list
    /// that was read, so that they are refused with the others if it has changed.
    EntryList toWrite(const AclEditor& editor) const;

    /// What an edit makes other than it was read, line by line for people: "+ " is new, "- " is
    /// gone; below an entry whose line says no more than "Custom", the boxes that have changed.
    std::vector<std::string> changes(const AclEditor& editor) const;

    /// Has the editor go on with what its edit makes of `now`, whose entries from then on are the
    /// ones that were read. Answers which changes could not be made, as the entry is no longer what
    /// it was when it was read: "entry 4 (user alice)".
    std::vector<std::string> replay(AclEditor& editor, const EntryList& now);

  private:
    struct Entry {
        std::shared_ptr<MVAclEntry> entry;
        /// Everything that was shown of it when it was read, by which it is recognised.
        std::string asRead;
        /// Its number and subject at that time: "entry 4 (user alice)".
        std::string title;
        /// The entry's line, and one for each of its boxes, as they were shown at that time.
        std::vector<std::string> lines = {};
    };
    /// What was known of `entry` when it was read; null for a new one.
    const Entry* readAs(const std::shared_ptr<MVAclEntry>& entry) const;

    std::vector<Entry> read_;
};

}  // namespace morvane
