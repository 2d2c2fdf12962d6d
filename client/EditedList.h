// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/MVObservation.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace morvane {

/// The entries of a list that is edited: as they are shown, and in the order in which they count.
/// Those that were read stay where they are; one that is new, allows or denies now, or is for
/// somebody else, comes first if it denies, and last if it allows.
class EditedList {
  public:
    using Entry = std::shared_ptr<MVAclEntry>;
    using Entries = MVFileAcl::Entries;
    /// Called during each edit of an entry. The call may remove the entry from the list.
    using Changed = std::function<void(const MVAclEntry& entry, const NSKeyPath& keyPath)>;

    explicit EditedList(Changed changed) : changed_(std::move(changed)) {}

    const Entries& entries() const { return entries_; }
    /// Shows other entries, which count in this order. Throws std::invalid_argument, with nothing
    /// changed, if one of them is null.
    void show(Entries entries);
    /// Shows these entries. Each still counts at its place. Throws as show() does.
    void arrange(Entries entries);
    /// Has these count as the entries that were read, in this order. Of one that was read before,
    /// its state at that time stays known. Throws as show() does.
    void countAsRead(const Entries& entries);
    void append(const Entry& entry);
    /// False if the entry is not in the list.
    bool remove(const Entry& entry);
    /// Puts the entries in their canonical order, in which they count from then on. Returns false
    /// if they were in that order.
    bool sort();

    /// Whether the user has switched the box for execution on by itself. Only then is execution
    /// asked for; otherwise it is one of the rights that "Read" as a whole may have.
    bool isExecutionChosen(const MVAclEntry& entry) const;
    void setExecutionChosen(const MVAclEntry& entry, bool chosen);
    /// Has every box for execution that is on count as switched on by itself.
    void chooseShownExecution();
    /// Is told that a box of the entry, or a group of boxes, is about to be switched.
    void noteSwitch(const MVAclEntry& entry, const NSTreeNode& box, bool on);

    /// Returns what is to be written, in the order in which the entries are shown.
    Entries asShown(const std::optional<ItemList>& list) const;
    /// Returns the same in the order in which the entries count.
    Entries asWritten(const std::optional<ItemList>& list) const;

  private:
    /// What is known of an entry, beside itself.
    struct Row {
        std::unique_ptr<MVObservation> observation;
        bool isExecutionChosen = false;
    };
    /// An entry at the place at which it counts.
    struct Read {
        Entry entry;
        std::int32_t tag;
        std::optional<NSUUID> uuid;

        bool keepsPlace() const { return entry->tag() == tag && entry->uuid() == uuid; }
    };

    Row rowOf(const Entry& entry);
    std::optional<std::size_t> placeOf(const MVAclEntry& entry) const;
    Entry asWritten(std::size_t i, const std::optional<ItemList>& list) const;
    void readAgain();

    const Changed changed_;
    Entries entries_;
    std::vector<Row> rows_;  // of the entries, in their order
    std::vector<Read> read_;
};

}  // namespace morvane
