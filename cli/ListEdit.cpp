// SPDX-License-Identifier: MIT
#include "ListEdit.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/IdentityText.h>

#include <algorithm>
#include <utility>

#include "EntryJson.h"

namespace morvane {

namespace {

bool holds(const EntryList& list, const std::shared_ptr<MVAclEntry>& entry) {
    return std::find(list.begin(), list.end(), entry) != list.end();
}

std::vector<std::string> linesOf(const MVAclEntry& entry, std::string_view letters) {
    std::vector<std::string> lines{entryAsLine(entry, letters)};
    for (const auto& group : entry.permissions()) {
        lines.push_back(boxAsText(*group));
        for (const auto& box : group->childNodes())
            lines.push_back(boxAsText(*box));
    }
    return lines;
}

std::string allShownOf(const std::shared_ptr<MVAclEntry>& entry) {
    return entriesAsJson({entry});
}

}  // namespace

ListEdit::ListEdit(const EntryList& entries) {
    const auto storage = storageOf(entries);
    for (const auto& entry : entries) {
        auto text = allShownOf(entry);
        read_.push_back(
            {entry, std::move(text), {}, linesOf(*entry, lettersOfEntry(*entry, storage))});
    }
    const auto numbered = shown();
    for (auto& read : read_) {
        const auto& entry = *read.entry;
        const auto place =
            std::find(numbered.begin(), numbered.end(), read.entry) - numbered.begin();
        read.title = say("entry %1 (%2)", place + 1, identityText(entry));
    }
}

EntryList ListEdit::read() const {
    EntryList entries;
    for (const auto& read : read_)
        entries.push_back(read.entry);
    return entries;
}

EntryList ListEdit::shown() const {
    auto entries = read();
    sortCanonically(entries);
    return entries;
}

bool ListEdit::isStill(const EntryList& now) const {
    return std::equal(read_.begin(), read_.end(), now.begin(), now.end(),
                      [](const Entry& read, const std::shared_ptr<MVAclEntry>& entry) {
                          return read.asRead == allShownOf(entry);
                      });
}

EntryList ListEdit::toWrite(const AclEditor& editor) const {
    auto entries = editor.entriesToWrite();
    for (const auto& entry : entries) {
        if (!read_.empty() && !readAs(entry))
            entry->setOrigin(read_.front().entry->origin());
    }
    return entries;
}

const ListEdit::Entry* ListEdit::readAs(const std::shared_ptr<MVAclEntry>& entry) const {
    const auto found = std::find_if(read_.begin(), read_.end(),
                                    [&](const Entry& read) { return read.entry == entry; });
    return found == read_.end() ? nullptr : &*found;
}

std::vector<std::string> ListEdit::changes(const AclEditor& editor) const {
    const auto& edited = editor.entries();
    const auto letters = editor.letters();
    std::vector<std::string> changes;
    for (const auto& shownEntry : shown()) {
        const auto& read = *readAs(shownEntry);
        const auto& before = read.lines;
        const auto place = std::find(edited.begin(), edited.end(), read.entry);
        if (place == edited.end()) {
            changes.push_back("- " + before.front());
            continue;
        }
        const auto after =
            linesOf(*read.entry, letters[static_cast<std::size_t>(place - edited.begin())]);
        if (after == before)
            continue;
        const bool saysEnough =
            after.front() != before.front() && read.entry->permissionGroup() != MVAclGroupCustom;
        if (after.front() == before.front()) {
            changes.push_back("  " + after.front());
        } else {
            changes.push_back("- " + before.front());
            changes.push_back("+ " + after.front());
        }
        for (std::size_t i = 1; !saysEnough && i < std::min(before.size(), after.size()); ++i) {
            if (after[i] != before[i])
                changes.push_back("      " + after[i]);
        }
    }
    for (std::size_t i = 0; i != edited.size(); ++i) {
        if (!readAs(edited[i]))
            changes.push_back("+ " + entryAsLine(*edited[i], letters[i]));
    }
    return changes;
}

std::vector<std::string> ListEdit::replay(AclEditor& editor, const EntryList& now) {
    const auto edited = editor.entries();
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
    std::vector<std::string> notMade;
    EntryList removed;
    for (const auto& read : read_) {
        const auto& entry = read.entry;
        auto* const found = take(read.asRead);
        const bool isRemoved = !holds(edited, entry);
        if (!isRemoved && allShownOf(entry) == read.asRead)
            continue;
        if (!found) {
            notMade.push_back(read.title);
        } else if (isRemoved) {
            removed.push_back(found->entry);
        } else {
            entry->setOrigin(found->entry->origin());
            found->entry = entry;
        }
    }
    auto entries = current.shown();
    std::erase_if(entries, [&](const auto& entry) { return holds(removed, entry); });
    for (const auto& entry : edited) {
        if (!readAs(entry))
            entries.push_back(entry);
    }
    read_ = std::move(current.read_);
    editor.goOn(now, read(), std::move(entries));
    return notMade;
}

}  // namespace morvane
