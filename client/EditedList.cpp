// SPDX-License-Identifier: MIT
#include "EditedList.h"

#include <MorvaneOperation/acl_perms.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <unordered_map>
#include <utility>

namespace morvane {

namespace {

/// Returns the entry's box for execution; null if it has none by itself.
const NSTreeNode* executionBoxOf(const MVAclEntry& entry) {
    if (entry.permissions().empty())
        return nullptr;
    for (const auto& box : entry.permissions().front()->childNodes()) {
        const auto* permission = MVTreeNode::permissionOf(*box);
        if (permission && static_cast<std::uint32_t>(permission->permission()) == ACL_SEARCH)
            return box.get();
    }
    return nullptr;
}

bool executes(const MVAclEntry& entry) {
    const auto* const box = executionBoxOf(entry);
    return box && MVTreeNode::stateOf(*box) == MVStateOn;
}

/// The properties of an entry that are shown.
const std::vector<const NSKeyPath*>& seenKeyPaths() {
    static const std::vector<const NSKeyPath*> seen{&MVAclEntry::identityKeyPath,
                                                    &MVAclEntry::uuidKeyPath,
                                                    &MVAclEntry::tagKeyPath,
                                                    &MVAclEntry::inheritedKeyPath,
                                                    &MVAclEntry::permissionGroupKeyPath,
                                                    &MVAclEntry::permissionsKeyPath,
                                                    &MVAclEntry::applicableToKeyPath};
    return seen;
}

void requireEntries(const EditedList::Entries& entries) {
    if (std::find(entries.begin(), entries.end(), nullptr) != entries.end())
        throw std::invalid_argument("an entry of the list is null");
}

}  // namespace

void EditedList::show(Entries entries) {
    requireEntries(entries);
    entries_.clear();
    rows_.clear();
    for (const auto& entry : entries)
        append(entry);
    readAgain();
}

void EditedList::arrange(Entries entries) {
    requireEntries(entries);
    // Those at the front stay most times, as when one is added.
    const auto same =
        std::mismatch(entries_.begin(), entries_.end(), entries.begin(), entries.end());
    const auto firstOther = static_cast<std::size_t>(same.first - entries_.begin());
    std::unordered_map<Entry, Row> known;
    for (std::size_t i = firstOther; i != entries_.size(); ++i)
        known.emplace(entries_[i], std::move(rows_[i]));
    std::vector<Row> others;
    for (std::size_t i = firstOther; i != entries.size(); ++i) {
        auto row = known.extract(entries[i]);
        others.push_back(row ? std::move(row.mapped()) : rowOf(entries[i]));
    }
    rows_.reserve(entries.size());
    rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(firstOther), rows_.end());
    std::move(others.begin(), others.end(), std::back_inserter(rows_));
    entries_ = std::move(entries);
}

void EditedList::countAsRead(const Entries& entries) {
    requireEntries(entries);
    std::unordered_map<Entry, Read> known;
    for (auto& read : read_)
        known.emplace(read.entry, std::move(read));
    read_.clear();
    for (const auto& entry : entries) {
        const auto read = known.find(entry);
        read_.push_back(read != known.end() ? read->second
                                            : Read{entry, entry->tag(), entry->uuid()});
    }
}

void EditedList::append(const Entry& entry) {
    rows_.push_back(rowOf(entry));
    entries_.push_back(entry);
}

bool EditedList::remove(const Entry& entry) {
    const auto place = placeOf(*entry);
    if (!place)
        return false;
    rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(*place));
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(*place));
    return true;
}

bool EditedList::sort() {
    const auto isBefore = [](const Entry& a, const Entry& b) {
        return a->canonicalScore() > b->canonicalScore();
    };
    if (std::is_sorted(entries_.begin(), entries_.end(), isBefore))
        return false;
    auto sorted = entries_;
    std::stable_sort(sorted.begin(), sorted.end(), isBefore);
    arrange(std::move(sorted));
    readAgain();
    return true;
}

bool EditedList::isExecutionChosen(const MVAclEntry& entry) const {
    const auto place = placeOf(entry);
    return place && rows_[*place].isExecutionChosen;
}

void EditedList::setExecutionChosen(const MVAclEntry& entry, bool chosen) {
    if (const auto place = placeOf(entry))
        rows_[*place].isExecutionChosen = chosen;
}

void EditedList::chooseShownExecution() {
    for (std::size_t i = 0; i != rows_.size(); ++i)
        rows_[i].isExecutionChosen = entries_[i]->tag() == MVAclTagAllow && executes(*entries_[i]);
}

void EditedList::noteSwitch(const MVAclEntry& entry, const NSTreeNode& box, bool on) {
    const auto place = placeOf(entry);
    const auto* const execution = executionBoxOf(entry);
    if (!place || !execution)
        return;
    // A group that is switched off takes back what was chosen, and one that is switched on asks
    // for no execution.
    if (execution == &box)
        rows_[*place].isExecutionChosen = on;
    else if (!on && execution->parentNode() == &box)
        rows_[*place].isExecutionChosen = false;
}

EditedList::Entries EditedList::asShown(const std::optional<ItemList>& list) const {
    Entries entries;
    for (std::size_t i = 0; i != entries_.size(); ++i)
        entries.push_back(asWritten(i, list));
    return entries;
}

EditedList::Entries EditedList::asWritten(const std::optional<ItemList>& list) const {
    std::vector<std::pair<std::size_t, Entry>> keeping;
    Entries denying;
    Entries allowing;
    for (std::size_t i = 0; i != entries_.size(); ++i) {
        const auto& entry = entries_[i];
        const auto read = std::find_if(read_.begin(), read_.end(),
                                       [&](const Read& each) { return each.entry == entry; });
        if (read != read_.end() && read->keepsPlace())
            keeping.emplace_back(static_cast<std::size_t>(read - read_.begin()),
                                 asWritten(i, list));
        else
            (entry->tag() == MVAclTagDeny ? denying : allowing).push_back(asWritten(i, list));
    }
    std::sort(keeping.begin(), keeping.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    auto written = std::move(denying);
    for (auto& [place, entry] : keeping)
        written.push_back(std::move(entry));
    written.insert(written.end(), allowing.begin(), allowing.end());
    return written;
}

EditedList::Row EditedList::rowOf(const Entry& entry) {
    return {MVObservation::of(
        entry, seenKeyPaths(),
        [this, raw = entry.get()](const NSKeyPath& keyPath) { changed_(*raw, keyPath); })};
}

std::optional<std::size_t> EditedList::placeOf(const MVAclEntry& entry) const {
    const auto place = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const Entry& other) { return other.get() == &entry; });
    if (place == entries_.end())
        return std::nullopt;
    return static_cast<std::size_t>(place - entries_.begin());
}

EditedList::Entry EditedList::asWritten(std::size_t i, const std::optional<ItemList>& list) const {
    return rows_[i].isExecutionChosen && list ? list->askingToExecute(entries_[i]) : entries_[i];
}

void EditedList::readAgain() {
    read_.clear();
    countAsRead(entries_);
}

}  // namespace morvane
