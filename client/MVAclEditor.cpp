// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/MVAclEditor.h>

#include <algorithm>
#include <filesystem>
#include <utility>
#include <vector>

#include "EditedList.h"

namespace morvane {

namespace {

bool isPossible(const std::vector<EntryChoice>& choices, std::int64_t code) {
    return std::any_of(choices.begin(), choices.end(), [&](const EntryChoice& choice) {
        return choice.code == code && choice.whyNot.empty();
    });
}

}  // namespace

struct MVAclEditor::State {
    explicit State(MVFileAcl read)
        : acl(std::move(read)), list([this](const MVAclEntry& entry, const NSKeyPath& keyPath) {
              // An edit of the identity sets the UUID as well; without it a name has become known.
              if (&keyPath != &MVAclEntry::identityKeyPath)
                  ++editCount;
              // The call may end the observation from which this comes.
              if (const auto told = changed)
                  told(entry, keyPath);
          }) {
        list.show(std::exchange(acl.entries, {}));
    }

    MVFileAcl acl;  // but for its entries
    EditedList list;

    std::uint64_t editCount = 0;
    std::uint64_t writtenCount = 0;
    /// For which count `readExecutes` was worked out.
    std::optional<std::uint64_t> readExecutesCount = {};
    bool readExecutes = true;

    Changed changed = {};
    std::size_t edits = 0;  // under way, one in the other
    std::vector<std::function<void()>> untold = {};
};

std::shared_ptr<MVAclEditor> MVAclEditor::init(MVFileAcl acl) {
    return std::make_shared<MVAclEditor>(Private(), std::move(acl));
}

MVAclEditor::MVAclEditor(Private, MVFileAcl acl)
    : state_(std::make_unique<State>(std::move(acl))) {}

MVAclEditor::~MVAclEditor() = default;

const NSURL& MVAclEditor::url() const {
    return state_->acl.url;
}

const std::shared_ptr<const MVAclOrigin>& MVAclEditor::origin() const {
    return state_->acl.origin;
}

const ItemList* MVAclEditor::list() const {
    return state_->acl.list ? &*state_->acl.list : nullptr;
}

bool MVAclEditor::isFolder() const {
    if (origin())
        return origin()->values().isDirectory;
    std::error_code ignored;
    return std::filesystem::is_directory(url().path(), ignored);
}

const MVAclEditor::Entries& MVAclEditor::entries() const {
    return state_->list.entries();
}

MVFileAcl MVAclEditor::acl() const {
    auto acl = state_->acl;
    acl.entries = state_->list.asWritten(acl.list);
    return acl;
}

void MVAclEditor::setEntries(Entries entries) {
    state_->list.show(std::move(entries));
    state_->list.chooseShownExecution();
    ++state_->editCount;
}

void MVAclEditor::showEntries(Entries entries) {
    state_->list.arrange(std::move(entries));
    ++state_->editCount;
}

void MVAclEditor::setReadEntries(const Entries& entries) {
    state_->list.countAsRead(entries);
    ++state_->editCount;
}

void MVAclEditor::adopt(const MVAclEditor& now) {
    state_->acl.origin = now.origin();
    state_->acl.list = now.state_->acl.list;
    for (const auto& entry : entries())
        entry->setOrigin(now.origin());
    ++state_->editCount;
}

MVAclEditor::Entry MVAclEditor::add(CBIdentityRef who) {
    auto entry = MVAclEntry::newEntryForDirectory(isFolder());
    if (who)
        entry->setIdentity(std::move(who));
    state_->list.append(entry);
    ++state_->editCount;
    return entry;
}

bool MVAclEditor::remove(const Entry& entry) {
    if (!whyNotRemoved(*entry).empty() || !state_->list.remove(entry))
        return false;
    ++state_->editCount;
    return true;
}

bool MVAclEditor::sort() {
    if (!state_->list.sort())
        return false;
    ++state_->editCount;
    return true;
}

bool MVAclEditor::edit(const Entry& entry, const std::function<bool()>& work) {
    if (entry->updatingPermissions())
        return false;
    const auto self = shared_from_this();  // whoever is told may drop it
    auto& state = *state_;
    ++state.edits;
    bool isDone = false;
    try {
        isDone = work();
    } catch (...) {
        --state.edits;
        throw;
    }
    if (--state.edits == 0) {
        for (const auto& notify : std::exchange(state.untold, {}))
            notify();
    }
    return isDone;
}

bool MVAclEditor::setIdentity(const Entry& entry, CBIdentityRef who) {
    if (!who || !entry->isAcl() || !whyNotChanged(*entry).empty())
        return false;
    return edit(entry, [&] {
        entry->setIdentity(std::move(who));
        return true;
    });
}

bool MVAclEditor::setRule(const Entry& entry, std::int32_t tag) {
    if (entry->tag() == tag)
        return true;
    return isPossible(ruleChoices(*entry, list()), tag) && edit(entry, [&] {
               entry->setTag(tag);
               return true;
           });
}

bool MVAclEditor::setPermissionGroup(const Entry& entry, std::int64_t code) {
    if (entry->permissionGroup() == code && !isExecutionChosen(*entry))
        return true;
    return isPossible(permissionChoices(*entry, list()), code) && edit(entry, [&] {
               state_->list.setExecutionChosen(*entry, false);
               entry->setPermissionGroup(code);
               return true;
           });
}

bool MVAclEditor::setAppliesTo(const Entry& entry, std::int64_t code) {
    if (appliesToCode(*entry) == code)
        return true;
    return isPossible(appliesToChoices(*entry, list()), code) &&
           edit(entry, [&] { return morvane::setAppliesTo(*entry, code); });
}

bool MVAclEditor::canSetInherited(const MVAclEntry& entry) const {
    return entry.inherited() ||
           (entry.isAcl() && (!origin() || origin()->values().storage == MVAclStorage::nfs4));
}

bool MVAclEditor::setInherited(const Entry& entry, bool inherited) {
    if (entry->inherited() == inherited)
        return true;
    return canSetInherited(*entry) && edit(entry, [&] {
               entry->setInherited(inherited);
               return true;
           });
}

bool MVAclEditor::canSetBox(const MVAclEntry& entry, const NSTreeNode& box, bool on) const {
    const auto* const permission = MVTreeNode::permissionOf(box);
    return permission && whyNotBox(entry, box, on ? list() : nullptr).empty();
}

bool MVAclEditor::setBox(const Entry& entry, const NSTreeNode& box, bool on) {
    const auto state = on ? MVStateOn : MVStateOff;
    return canSetBox(*entry, box, on) && edit(entry, [&] {
               state_->list.noteSwitch(*entry, box, on);
               MVTreeNode::setStateOf(box, state);
               return true;
           });
}

bool MVAclEditor::clickBox(const Entry& entry, const NSTreeNode& box) {
    const auto state = MVTreeNode::stateOf(box);
    return setBox(entry, box, state != MVStateOn && canSetBox(*entry, box, true));
}

Phrase MVAclEditor::whyNotClicked(const MVAclEntry& entry, const NSTreeNode& box) const {
    return whyNotBox(entry, box, MVTreeNode::stateOf(box) == MVStateOff ? list() : nullptr);
}

bool MVAclEditor::isExecutionChosen(const MVAclEntry& entry) const {
    return state_->list.isExecutionChosen(entry);
}

void MVAclEditor::setExecutionChosen(const MVAclEntry& entry, bool chosen) {
    state_->list.setExecutionChosen(entry, chosen);
    ++state_->editCount;
}

std::string MVAclEditor::letters(const MVAclEntry& entry) const {
    if (!origin())
        return {};
    const auto storage = origin()->values().storage;
    auto letters = lettersOfEntry(entry, storage);
    const bool isBundle = storage != MVAclStorage::nfs4 && entry.isAcl() &&
                          entry.tag() == MVAclTagAllow &&
                          MVTreeNode::stateOf(*entry.permissions().front()) == MVStateOn;
    if (isBundle && letters.back() == 'x' && !readExecutes())
        letters.back() = '-';
    return letters;
}

bool MVAclEditor::readExecutes() const {
    auto& state = *state_;
    if (state.readExecutesCount != state.editCount) {
        const auto& list = state.acl.list;
        state.readExecutes = !list || list->readExecutes(state.list.asShown(list));
        state.readExecutesCount = state.editCount;
    }
    return state.readExecutes;
}

std::uint64_t MVAclEditor::editCount() const {
    return state_->editCount;
}

bool MVAclEditor::isModified() const {
    return state_->editCount != state_->writtenCount;
}

void MVAclEditor::wasWritten(std::uint64_t editCount) {
    state_->writtenCount = editCount;
}

void MVAclEditor::setObserver(Changed changed) {
    state_->changed = std::move(changed);
}

void MVAclEditor::tell(std::function<void()> notify) {
    if (state_->edits == 0)
        notify();
    else
        state_->untold.push_back(std::move(notify));
}

}  // namespace morvane
