#include "ListEdit.h"

#include <MorvaneOperation/IdentityText.h>

#include <algorithm>
#include <utility>

namespace morvane {

namespace {

bool holds(const EntryList& list, const std::shared_ptr<MVAclEntry>& entry) {
    return std::find(list.begin(), list.end(), entry) != list.end();
}

std::string allShownOf(const std::shared_ptr<MVAclEntry>& entry) {
    return entriesAsJson({entry});
}

}  // namespace

ListEdit::ListEdit(EntryList entries) {
    for (auto& entry : entries) {
        auto text = allShownOf(entry);
        read_.push_back({std::move(entry), std::move(text), {}});
    }
    const auto numbered = shown();
    for (auto& [entry, asRead, title] : read_) {
        const auto place = std::find(numbered.begin(), numbered.end(), entry) - numbered.begin();
        title = "entry " + std::to_string(place + 1) + " (" +
                (entry->identity() ? identityText(*entry->identity()) : identityName(*entry)) + ")";
    }
}

EntryList ListEdit::shown() const {
    EntryList entries;
    for (const auto& read : read_)
        entries.push_back(read.entry);
    sortCanonically(entries);
    return entries;
}

EntryList ListEdit::inOrderOfEvaluation(const EntryList& edited) const {
    EntryList denying;
    EntryList allowing;
    for (const auto& entry : edited) {
        if (std::any_of(read_.begin(), read_.end(),
                        [&](const Entry& read) { return read.entry == entry; }))
            continue;
        if (!read_.empty())
            entry->setOrigin(read_.front().entry->origin());
        (entry->tag() == MVAclTagDeny ? denying : allowing).push_back(entry);
    }
    auto result = std::move(denying);
    for (const auto& read : read_) {
        if (holds(edited, read.entry))
            result.push_back(read.entry);
    }
    result.insert(result.end(), allowing.begin(), allowing.end());
    return result;
}

ListEdit::Replayed ListEdit::replay(const EntryList& edited, const EntryList& now) {
    ListEdit current(now);
    std::vector<bool> isTaken(now.size());
    const auto take = [&](const std::string& asRead) -> Entry* {
        for (std::size_t i = 0; i != isTaken.size(); ++i) {
            if (!isTaken[i] && current.read_[i].asRead == asRead) {
                isTaken[i] = true;
                return &current.read_[i];
            }
        }
        return nullptr;
    };
    Replayed result;
    EntryList removed;
    for (const auto& [entry, asRead, title] : read_) {
        auto* const found = take(asRead);
        const bool isRemoved = !holds(edited, entry);
        if (!isRemoved && allShownOf(entry) == asRead)
            continue;
        if (!found) {
            result.notMade.push_back(title);
        } else if (isRemoved) {
            removed.push_back(found->entry);
        } else {
            entry->setOrigin(found->entry->origin());
            found->entry = entry;
        }
    }
    for (const auto& entry : current.shown()) {
        if (!holds(removed, entry))
            result.entries.push_back(entry);
    }
    for (const auto& entry : edited) {
        if (std::none_of(read_.begin(), read_.end(),
                         [&](const Entry& read) { return read.entry == entry; }))
            result.entries.push_back(entry);
    }
    read_ = std::move(current.read_);
    return result;
}

}  // namespace morvane
