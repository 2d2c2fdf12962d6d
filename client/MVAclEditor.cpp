// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/MVAclEditor.h>
#include <MorvaneOperation/MVObservation.h>
#include <MorvaneOperation/acl_perms.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>
#include <vector>

namespace morvane {

namespace {

/// Null if the entry has none by itself.
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

bool isPossible(const std::vector<EntryChoice>& choices, std::int64_t code) {
    return std::any_of(choices.begin(), choices.end(), [&](const EntryChoice& choice) {
        return choice.code == code && choice.whyNot.empty();
    });
}

/// What is seen of an entry.
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

}  // namespace

struct MVAclEditor::State {
    /// What is known of an entry, beside itself.
    struct Row {
        std::unique_ptr<MVObservation> observation;
        /// The user has switched the box for execution on by itself.
        bool isExecutionChosen = false;
    };
    /// An entry at the place at which it counts.
    struct Read {
        Entry entry;
        std::int32_t tag;
        std::optional<NSUUID> uuid;

        bool keepsPlace() const { return entry->tag() == tag && entry->uuid() == uuid; }
    };

    explicit State(MVFileAcl list) : acl(std::move(list)) {}

    Row* rowOf(const MVAclEntry& entry) {
        const auto place = std::find_if(entries.begin(), entries.end(),
                                        [&](const Entry& other) { return other.get() == &entry; });
        return place == entries.end() ? nullptr
                                      : &rows[static_cast<std::size_t>(place - entries.begin())];
    }
    bool isExecutionChosen(const MVAclEntry& entry) {
        const auto* const row = rowOf(entry);
        return row && row->isExecutionChosen;
    }
    void chooseExecution(const MVAclEntry& entry, bool chosen) {
        if (auto* const row = rowOf(entry))
            row->isExecutionChosen = chosen;
    }
    Entry asWritten(std::size_t i) const {
        return rows[i].isExecutionChosen && acl.list ? acl.list->askingToExecute(entries[i])
                                                     : entries[i];
    }
    void readAgain() {
        read.clear();
        for (const auto& entry : entries)
            read.push_back({entry, entry->tag(), entry->uuid()});
    }

    MVFileAcl acl;  // but for its entries
    Entries entries = {};
    std::vector<Row> rows = {};  // of the entries, in their order
    std::vector<Read> read = {};

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

MVAclEditor::MVAclEditor(Private, MVFileAcl acl) {
    auto entries = std::exchange(acl.entries, {});
    state_ = std::make_unique<State>(std::move(acl));
    show(std::move(entries));
}

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
    return state_->entries;
}

MVFileAcl MVAclEditor::acl() const {
    const auto& entries = state_->entries;
    std::vector<std::pair<std::size_t, Entry>> keeping;
    Entries allowing;
    auto acl = state_->acl;
    for (std::size_t i = 0; i != entries.size(); ++i) {
        const auto& entry = entries[i];
        const auto read = std::find_if(state_->read.begin(), state_->read.end(),
                                       [&](const auto& each) { return each.entry == entry; });
        if (read != state_->read.end() && read->keepsPlace())
            keeping.emplace_back(static_cast<std::size_t>(read - state_->read.begin()),
                                 state_->asWritten(i));
        else
            (entry->tag() == MVAclTagDeny ? acl.entries : allowing).push_back(state_->asWritten(i));
    }
    std::sort(keeping.begin(), keeping.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& [place, entry] : keeping)
        acl.entries.push_back(std::move(entry));
    acl.entries.insert(acl.entries.end(), allowing.begin(), allowing.end());
    return acl;
}

void MVAclEditor::setEntries(Entries entries) {
    show(std::move(entries));
    for (std::size_t i = 0; i != state_->rows.size(); ++i) {
        const auto& entry = *state_->entries[i];
        state_->rows[i].isExecutionChosen = entry.tag() == MVAclTagAllow && executes(entry);
    }
    ++state_->editCount;
}

void MVAclEditor::adopt(const MVAclEditor& now) {
    state_->acl.origin = now.origin();
    state_->acl.list = now.state_->acl.list;
    for (const auto& entry : state_->entries)
        entry->setOrigin(now.origin());
    ++state_->editCount;
}

void MVAclEditor::show(Entries entries) {
    if (std::find(entries.begin(), entries.end(), nullptr) != entries.end())
        throw std::invalid_argument("an entry of the list is null");
    state_->entries.clear();
    state_->rows.clear();
    for (const auto& entry : entries)
        append(entry);
    state_->readAgain();
}

void MVAclEditor::append(const Entry& entry) {
    state_->rows.push_back({MVObservation::of(entry, seenKeyPaths(),
                                              [this, raw = entry.get()](const NSKeyPath& keyPath) {
                                                  ++state_->editCount;
                                                  // The call may end this observation, and the
                                                  // entry's place in the list.
                                                  if (const auto changed = state_->changed)
                                                      changed(*raw, keyPath);
                                              })});
    state_->entries.push_back(entry);
}

MVAclEditor::Entry MVAclEditor::add(CBIdentityRef who) {
    auto entry = MVAclEntry::newEntryForDirectory(isFolder());
    if (who)
        entry->setIdentity(std::move(who));
    append(entry);
    ++state_->editCount;
    return entry;
}

bool MVAclEditor::remove(const Entry& entry) {
    auto& entries = state_->entries;
    const auto place = std::find(entries.begin(), entries.end(), entry);
    if (place == entries.end() || !whyNotRemoved(*entry).empty())
        return false;
    state_->rows.erase(state_->rows.begin() + (place - entries.begin()));
    entries.erase(place);
    ++state_->editCount;
    return true;
}

bool MVAclEditor::sort() {
    std::vector<std::size_t> order(state_->entries.size());
    for (std::size_t i = 0; i != order.size(); ++i)
        order[i] = i;
    const auto score = [&](std::size_t i) { return state_->entries[i]->canonicalScore(); };
    const auto isBefore = [&](std::size_t a, std::size_t b) { return score(a) > score(b); };
    if (std::is_sorted(order.begin(), order.end(), isBefore))
        return false;
    std::stable_sort(order.begin(), order.end(), isBefore);
    Entries entries;
    std::vector<State::Row> rows;
    for (const auto i : order) {
        entries.push_back(std::move(state_->entries[i]));
        rows.push_back(std::move(state_->rows[i]));
    }
    state_->entries = std::move(entries);
    state_->rows = std::move(rows);
    state_->readAgain();
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
    if (entry->permissionGroup() == code && !state_->isExecutionChosen(*entry))
        return true;
    return isPossible(permissionChoices(*entry, list()), code) && edit(entry, [&] {
               state_->chooseExecution(*entry, false);
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
               // A group that is switched off takes back what was chosen, and one that is switched
               // on asks for no execution.
               const auto* const execution = executionBoxOf(*entry);
               if (execution == &box)
                   state_->chooseExecution(*entry, on);
               else if (!on && execution && execution->parentNode() == &box)
                   state_->chooseExecution(*entry, false);
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
        Entries asWritten;
        for (std::size_t i = 0; i != state.entries.size(); ++i)
            asWritten.push_back(state.asWritten(i));
        state.readExecutes = !state.acl.list || state.acl.list->readExecutes(asWritten);
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
