// SPDX-License-Identifier: MIT
#include "RightHolders.h"

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <set>
#include <utility>

namespace morvane {

namespace {

/// How many are asked about at once.
constexpr std::size_t askedAtOnce = 64;

/// Collects everybody who is looked at, each once.
class KnownPeople {
  public:
    void add(const CBPosixIdentity& who, CBIdentityRef identity = nullptr) {
        if (std::holds_alternative<CBCreator>(who))
            return;
        const auto uuid = uuidOfPosixIdentity(who);
        if (!known_.insert(uuid.UUIDString()).second)
            return;
        if (!identity)
            identity = CBIdentity::identityWithUniqueIdentifier(
                uuid, CBIdentityAuthority::defaultIdentityAuthority());
        people_.push_back({who, std::move(identity)});
    }
    std::vector<RightHolder> all() && { return std::move(people_); }

  private:
    std::set<std::string> known_;
    std::vector<RightHolder> people_;
};

class Asking {
  public:
    Asking(const EntryList& entries, Boxes wanted, const RightSources& sources)
        : entries_(entries), wanted_(wanted), sources_(sources), list_(entries) {}

    /// Returns the error if that fails.
    NSErrorRef ask(const NSURL& url);
    RightHolders found() && { return std::move(found_); }

  private:
    std::vector<RightHolder> everybody();
    void compareWithOthers();
    void findFolders(const NSURL& url);
    std::size_t rankOf(const RightHolder& person) const;
    std::vector<std::uint32_t> groupsOf(const RightHolder& person) const;

    const EntryList& entries_;
    const Boxes wanted_;
    const RightSources& sources_;
    const ListedRights list_;
    RightHolders found_;
};

std::vector<RightHolder> Asking::everybody() {
    KnownPeople people;
    const auto item = ItemList::asRead(entries_);
    if (item) {
        people.add(CBPosixUser{item->item().owner});
        people.add(CBPosixGroup{item->item().group});
    }
    for (const auto& entry : entries_) {
        const auto who = entry->uuid() ? posixIdentityOfUUID(*entry->uuid()) : std::nullopt;
        if (who && !std::holds_alternative<CBEveryone>(*who))
            people.add(*who);
    }
    people.add(CBPosixUser{0});
    const auto known = sources_.identities();
    found_.areListedInTime = known.has_value();
    if (known) {
        found_.areAllListed = known->size() < MVFileClient::mostIdentities;
        for (const auto& identity : *known) {
            const auto who = posixIdentityOfUUID(identity->uniqueIdentifier());
            if (who && !std::holds_alternative<CBEveryone>(*who))
                people.add(*who, identity);
        }
    }
    people.add(CBEveryone{});
    return std::move(people).all();
}

NSErrorRef Asking::ask(const NSURL& url) {
    auto everybody = this->everybody();
    for (std::size_t from = 0; from < everybody.size(); from += askedAtOnce) {
        const auto to = std::min(from + askedAtOnce, everybody.size());
        std::vector<NSUUID> whom;
        for (auto i = from; i != to; ++i)
            whom.push_back(uuidOfPosixIdentity(everybody[i].who));
        const auto answers = sources_.access(url, whom);
        if (!sources_.goesOn())
            return NSError::errorWithDomain(NSPOSIXErrorDomain, ECANCELED);
        for (auto i = from; i != to; ++i) {
            auto& person = everybody[i];
            const auto& answer = answers[i - from];
            if (!answer && !person.isRoot())
                return answer.error();
            if (!answer) {
                found_.isRootUnknown = true;
                continue;
            }
            const auto boxes = boxesIn(*answer);
            person.boxes = boxes & wanted_;
            person.granted = list_.to(person.who, groupsOf(person), wanted_);
            // Whoever can reach the item can at least read its attributes; findFolders() finds out
            // where the others are stopped.
            person.isKeptOut = boxes == 0 && person.granted.boxes != 0;
            found_.all.push_back(std::move(person));
        }
    }
    compareWithOthers();
    std::stable_sort(
        found_.all.begin(), found_.all.end(),
        [&](const RightHolder& a, const RightHolder& b) { return rankOf(a) < rankOf(b); });
    findFolders(url);
    return nullptr;
}

void Asking::compareWithOthers() {
    const auto& others = found_.all.back();
    for (auto& person : found_.all)
        person.isLikeOthers =
            !person.isEveryone() && !person.isRoot() && person.boxes == others.boxes &&
            person.granted.boxes == others.granted.boxes && !list_.isVoidFor(person.who) &&
            ListedRights::isForOthers(person.granted);
}

std::vector<std::uint32_t> Asking::groupsOf(const RightHolder& person) const {
    const auto* user = std::get_if<CBPosixUser>(&person.who);
    return user ? sources_.groupsOf(user->uid) : std::vector<std::uint32_t>();
}

/// People come in the order of the entries that give them rights.
std::size_t Asking::rankOf(const RightHolder& person) const {
    constexpr auto last = std::numeric_limits<std::size_t>::max();
    if (person.isEveryone())
        return last;
    if (person.isRoot())
        return entries_.size() + 1;
    if (person.granted.through.empty())
        return entries_.size();
    return static_cast<std::size_t>(
        std::find(entries_.begin(), entries_.end(), person.granted.through.front()) -
        entries_.begin());
}

/// Finds the topmost folder that keeps each of those out who are kept out.
void Asking::findFolders(const NSURL& url) {
    if (std::none_of(found_.all.begin(), found_.all.end(),
                     [](const auto& p) { return p.isKeptOut; }))
        return;
    std::vector<std::pair<std::string, ListedRights>> above;
    bool areAllSeen = true;
    for (auto path = sources_.resolved(url).path(); path.size() > 1;) {
        path.resize(std::max<std::size_t>(path.rfind('/'), 1));
        if (const auto entries = sources_.list(NSURL::fileURLWithPath(path)))
            above.emplace_back(path, ListedRights(*entries));
        else
            areAllSeen = false;
    }
    for (auto& person : found_.all) {
        if (!person.isKeptOut)
            continue;
        const auto groups = groupsOf(person);
        const auto closed = std::find_if(above.rbegin(), above.rend(), [&](const auto& folder) {
            return folder.second.to(person.who, groups, ACL_SEARCH).boxes == 0;
        });
        if (closed != above.rend())
            person.folder = closed->first;
        else
            person.isKeptOut = !areAllSeen;  // what cannot be looked at may keep out
    }
}

}  // namespace

bool RightHolder::hasFromFolder() const {
    return (boxes & ~granted.boxes & ACL_DELETE) != 0;
}

std::string RightHolder::name() const {
    if (identity)
        return identity->name();
    const auto* user = std::get_if<CBPosixUser>(&who);
    return user ? "uid " + std::to_string(user->uid)
                : "gid " + std::to_string(std::get<CBPosixGroup>(who).gid);
}

Result<RightHolders> rightHoldersOf(const NSURL& url, const EntryList& entries, Boxes wanted,
                                    const RightSources& sources) {
    Asking asking(entries, wanted, sources);
    if (auto error = asking.ask(url))
        return Failure{std::move(error)};
    return std::move(asking).found();
}

}  // namespace morvane
