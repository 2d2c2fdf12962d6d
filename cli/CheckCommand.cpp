// SPDX-License-Identifier: MIT
#include "CheckCommand.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <algorithm>
#include <array>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>
#include <vector>

#include "Failure.h"
#include "GivenList.h"
#include "JsonDocument.h"
#include "ListedRights.h"
#include "Text.h"

namespace morvane {

namespace {

enum class Finding { differs, unknown, unreadable };
constexpr std::array<const char*, 3> namesOfFindings{"differs", "unknown", "unreadable"};

/// Returns nothing for a name that this system does not know.
std::optional<CBPosixIdentity> subjectOf(const MVAclEntry& entry) {
    if (!entry.uuid())
        return CBEveryone{};
    return posixIdentityOfUUID(*entry.uuid());
}

bool hasName(const CBPosixIdentity& who) {
    if (const auto* user = std::get_if<CBPosixUser>(&who))
        return nameOfOwner(user->uid, false).has_value();
    const auto* group = std::get_if<CBPosixGroup>(&who);
    return !group || nameOfOwner(group->gid, true).has_value();
}

class Check {
  public:
    Check(const CheckOptions& options, const TreeParts& parts) : options_(options), parts_(parts) {}

    Outcome run();

  private:
    bool lookInside(const std::string& folder);
    bool look(const std::string& folder, const std::vector<std::string>& names,
              const GivenList& given, std::vector<std::string>& below);
    void lookAt(const std::string& path, const EntryList& entries, const GivenList* given);
    void lookForUnknown(const std::string& path, const EntryList& entries);
    /// What stands for the name of somebody whom this system does not know.
    const std::string& nameOf(const MVAclEntry& entry);
    /// Whether the list lets somebody but root do all of `needed`. A group without members is
    /// nobody.
    bool isForSomebody(const EntryList& entries, Boxes needed);
    bool isInUse(const CBPosixGroup& group);
    void tell(const std::string& path, Finding finding, const Phrase& reason,
              const std::string& identity = {});
    void fail(const std::string& path, const NSErrorRef& error);
    Json counts() const;
    std::string closingLine() const;
    bool goesOn() const { return !parts_.progress || parts_.progress(done_); }

    const CheckOptions& options_;
    const TreeParts& parts_;
    std::uint64_t mount_ = 0;
    std::vector<std::string> folders_;
    std::size_t done_ = 0;
    /// The entries of the largest list in a folder so far.
    std::size_t largest_ = 0;
    std::array<std::size_t, namesOfFindings.size()> found_{};
    std::size_t failed_ = 0;
    NSErrorRef error_;
    bool groupsAsked_ = false;
    std::optional<std::set<std::uint32_t>> groups_;
    std::map<NSUUID, std::string> names_;
    Json findings_ = Json::array();
};

bool Check::isInUse(const CBPosixGroup& group) {
    if (!groupsAsked_)
        groups_ = parts_.groupsInUse();
    groupsAsked_ = true;
    // Whoever has the number of a group that this system does not know may be elsewhere.
    return !groups_ || groups_->contains(group.gid) || !hasName(group);
}

bool Check::isForSomebody(const EntryList& entries, Boxes needed) {
    const ListedRights rights(entries);
    std::vector<CBPosixGroup> groups;
    for (const auto& entry : entries) {
        const auto who = subjectOf(*entry);
        // The server of a network mount may know whom this system does not.
        const bool has = who ? *who != CBPosixIdentity{CBPosixUser{0}} &&
                                   rights.to(*who, {}, needed).boxes == needed
                             : entry->tag() == MVAclTagAllow &&
                                   (boxesIn(entry->permissions()) & needed) == needed;
        if (!has)
            continue;
        const auto* const group = who ? std::get_if<CBPosixGroup>(&*who) : nullptr;
        if (!group)
            return true;
        groups.push_back(*group);
    }
    // Only now, as listing the users of a system takes its time.
    return std::any_of(groups.begin(), groups.end(),
                       [&](const CBPosixGroup& group) { return isInUse(group); });
}

void Check::fail(const std::string& path, const NSErrorRef& error) {
    ++failed_;
    error_ = error;
    parts_.complain(
        failureMessage(say("cannot read the access-control list of '%1'", escaped(path)), *error));
}

void Check::tell(const std::string& path, Finding finding, const Phrase& reason,
                 const std::string& identity) {
    const auto kind = static_cast<std::size_t>(finding);
    ++found_[kind];
    const auto text = reason.localized();
    if (!options_.json && !options_.lines) {
        // TRANSLATORS: A path, and what is the matter with it.
        parts_.print(say("%1: %2", escaped(path), escaped(text)) + '\n');
        return;
    }
    auto object = jsonOfPath(path);
    object["finding"] = namesOfFindings[kind];
    object["message"] = text;
    object["identity"] = identity.empty() ? Json(nullptr) : Json(identity);
    if (options_.lines)
        parts_.print(jsonLine("check", "finding", std::move(object)));
    else
        findings_.push_back(std::move(object));
}

const std::string& Check::nameOf(const MVAclEntry& entry) {
    auto& name = names_[*entry.uuid()];
    if (name.empty())
        name = identityName(entry);
    return name;
}

void Check::lookForUnknown(const std::string& path, const EntryList& entries) {
    std::set<std::string> told;
    const auto tellOnce = [&](const std::string& identity, const Phrase& reason) {
        if (told.insert(identity).second)
            tell(path, Finding::unknown, reason, identity);
    };
    if (const auto item = ItemList::asRead(entries)) {
        const auto& values = item->item();
        const auto look = [&](const CBPosixIdentity& who, const Phrase& text, const Phrase& says) {
            if (!hasName(who))
                tellOnce(text.english(), says);
        };
        const auto owner = ownerText(values);
        const auto group = owningGroupText(values);
        look(CBPosixUser{values.owner}, owner,
             phrase("its owner is %1, whom this system does not know", owner));
        look(CBPosixGroup{values.group}, group,
             phrase("its group is %1, which this system does not know", group));
    }
    for (const auto& entry : entries) {
        const auto who = subjectOf(*entry);
        // Only then, as the database of users is asked for a name each time.
        if (who && hasName(*who))
            continue;
        const auto& name = nameOf(*entry);
        if (!who)  // a name of a network mount, of which no more is known here
            tellOnce(name, phrase("it has an entry for a name that this system does not know"));
        else
            tellOnce(name, phrase("it has an entry for %1, whom this system does not know", name));
    }
}

void Check::lookAt(const std::string& path, const EntryList& entries, const GivenList* given) {
    if (given) {
        const auto difference = given->differenceOf(entries);
        if (!difference.empty())
            tell(path, Finding::differs, difference);
    }
    lookForUnknown(path, entries);
    if (entries.empty())
        return;  // on a network mount that lets nobody do anything, and says no more
    const bool isFolder = isOfFolder(entries);
    if (!isForSomebody(entries, isFolder ? ACL_LIST_DIRECTORY | ACL_SEARCH : ACL_READ_DATA))
        tell(path, Finding::unreadable,
             isFolder ? phrase("nobody but root can look into it")
                      : phrase("nobody but root can read it"));
}

bool Check::look(const std::string& folder, const std::vector<std::string>& names,
                 const GivenList& given, std::vector<std::string>& below) {
    std::vector<NSURL> urls;
    for (const auto& name : names)
        urls.push_back(NSURL::fileURLWithPath(pathIn(folder, name)));
    const auto lists = parts_.lists(urls);
    if (!goesOn())
        return false;
    for (std::size_t i = 0; i != names.size(); ++i) {
        auto path = pathIn(folder, names[i]);
        ++done_;
        if (!lists[i]) {
            fail(path, lists[i].error());
            continue;
        }
        largest_ = std::max(largest_, lists[i]->size());
        lookAt(path, *lists[i], &given);
        if (isOfFolder(*lists[i]))
            below.push_back(std::move(path));
    }
    return goesOn();
}

bool Check::lookInside(const std::string& folder) {
    // Its list is read again, as all of those that wait would take much room.
    const auto own = parts_.lists({NSURL::fileURLWithPath(folder)});
    const auto names = namesWithLists(folder, parts_, mount_);
    if (!goesOn())
        return false;
    if (!own.front() || !names) {
        fail(folder, own.front() ? names.error() : own.front().error());
        return true;
    }
    const GivenList given(*own.front());
    std::vector<std::string> below;
    // Lists in a folder are often like its own.
    largest_ = own.front()->size();
    for (auto from = names->begin(); from != names->end();) {
        const auto count = static_cast<std::ptrdiff_t>(listsAtOnceAfter(largest_));
        const auto to = from + std::min(count, names->end() - from);
        if (!look(folder, {from, to}, given, below))
            return false;
        from = to;
    }
    folders_.insert(folders_.end(), std::make_move_iterator(below.rbegin()),
                    std::make_move_iterator(below.rend()));
    return true;
}

Json Check::counts() const {
    auto counts = Json{{"items", done_}};
    for (std::size_t i = 0; i != found_.size(); ++i)
        counts[namesOfFindings[i]] = found_[i];
    return counts;
}

std::string Check::closingLine() const {
    std::vector<Phrase> parts;
    const auto add = [&](Finding finding, auto counted) {
        if (const auto count = found_[static_cast<std::size_t>(finding)])
            parts.push_back(counted(count));
    };
    add(Finding::differs, [](std::size_t count) {
        return countedPhrase("%1 list is another than its folder would give",
                             "%1 lists are others than their folders would give", count);
    });
    add(Finding::unknown, [](std::size_t count) {
        return countedPhrase("%1 time somebody is named whom this system does not know",
                             "%1 times somebody is named whom this system does not know", count);
    });
    add(Finding::unreadable, [](std::size_t count) {
        return countedPhrase("%1 item can be read by nobody but root",
                             "%1 items can be read by nobody but root", count);
    });
    const auto looked = countedPhrase("%1 item looked at", "%1 items looked at", done_);
    if (parts.empty())
        return say("%1, nothing found.", looked);
    // TRANSLATORS: "10 items looked at: 2 items can be read by nobody but root."
    return say("%1: %2.", looked, Phrase::list(translatable("; "), parts));
}

Outcome Check::run() {
    const auto lists = parts_.lists({NSURL::fileURLWithPath(options_.path)});
    bool goesOn = this->goesOn();
    if (goesOn && !lists.front()) {
        auto outcome =
            failed(say("cannot read the access-control list of '%1'", escaped(options_.path)),
                   lists.front().error());
        if (outcome.exitCode == ExitFailure)
            outcome.exitCode = ExitTrouble;
        return outcome;
    }
    if (goesOn) {
        ++done_;
        lookAt(options_.path, *lists.front(), nullptr);
        const auto facts = factsOfNamed(options_.path, parts_.facts);
        const bool isFolder = isOfFolder(*lists.front()) || (facts && facts->isFolder());
        mount_ = !options_.crossesMounts && facts ? facts->mount : 0;
        if (isFolder)
            folders_.push_back(options_.path);
    }
    while (goesOn && !folders_.empty()) {
        const auto folder = std::move(folders_.back());
        folders_.pop_back();
        goesOn = lookInside(folder);
    }
    Outcome outcome;
    if (std::any_of(found_.begin(), found_.end(), [](std::size_t count) { return count != 0; }))
        outcome.exitCode = ExitDifferent;
    if (failed_ != 0) {
        outcome.exitCode = exitCodeOf(*error_) == ExitService ? ExitService : ExitTrouble;
        outcome.error = error_;
        outcome.message = message({countedPhrase("%1 item could not be looked at.",
                                                 "%1 items could not be looked at.", failed_)
                                       .localized()});
    }
    if (!goesOn) {
        outcome.exitCode = ExitInterrupted;
        outcome.message = stoppedLooking();
    }
    if (options_.lines)
        outcome.output = lastJsonLine("check", {{"counts", counts()}}, outcome);
    else if (options_.json)
        outcome.output = jsonDocument(
            "check", {{"counts", counts()}, {"findings", std::move(findings_)}}, outcome);
    else
        outcome.output = closingLine() + '\n';
    return outcome;
}

}  // namespace

Outcome runCheck(const CheckOptions& options, const TreeParts& parts) {
    if (options.path.empty())
        return {ExitTrouble, {}, message({say("the path is empty; name a folder.")})};
    return Check(options, parts).run();
}

}  // namespace morvane
