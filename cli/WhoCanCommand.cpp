// SPDX-License-Identifier: MIT
#include "WhoCanCommand.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <set>
#include <utility>

#include "EntryJson.h"
#include "EntryText.h"
#include "Failure.h"
#include "ListedRights.h"

namespace morvane {

namespace {

/// A right that can be asked for.
struct Right {
    std::string_view word;
    Boxes box;
    char letter;
    /// In JSON.
    const char* key;
};
constexpr std::array<Right, 6> knownRights{
    {{"read", ACL_READ_DATA, 'r', "read"},
     {"write", ACL_WRITE_DATA, 'w', "write"},
     {"execute", ACL_SEARCH, 'x', "execute"},
     {"delete", ACL_DELETE, 'd', "delete"},
     {"change-permissions", ACL_WRITE_SECURITY, 'C', "changePermissions"},
     {"change-owner", ACL_CHANGE_OWNER, 'o', "changeOwner"}}};

/// So many are asked about at once.
constexpr std::size_t askedAtOnce = 64;

/// Somebody with what is known of them.
struct Person {
    CBPosixIdentity who;
    /// Null for a number without a name.
    CBIdentityRef identity;
    /// What they can really do.
    Boxes boxes = 0;
    /// What the list gives them.
    ListedRights::Granted granted = {};
    /// The folder that keeps them out; empty if none does, or it cannot be told which.
    std::string folder = {};
    bool isKeptOut = false;
    /// They have what everyone else has, and by the same entries.
    bool isLikeOthers = false;

    bool isRoot() const { return who == CBPosixIdentity{CBPosixUser{0}}; }
    bool isEveryone() const { return std::holds_alternative<CBEveryone>(who); }
};

std::string nameOf(const Person& person) {
    if (person.identity)
        return person.identity->name();
    const auto* user = std::get_if<CBPosixUser>(&person.who);
    return user ? "uid " + std::to_string(user->uid)
                : "gid " + std::to_string(std::get<CBPosixGroup>(person.who).gid);
}

Phrase textOf(const Person& person) {
    if (person.isEveryone())
        return phrase("everyone else");
    return person.identity ? identityText(*person.identity) : Phrase(nameOf(person));
}

/// Everybody who is looked at, each once.
class People {
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
    std::vector<Person> all() && { return std::move(people_); }

  private:
    std::set<std::string> known_;
    std::vector<Person> people_;
};

/// What was found of one item.
class Answer {
  public:
    Answer(const WhoCanOptions& options, const WhoCanParts& parts, EntryList entries)
        : options_(options), parts_(parts), entries_(std::move(entries)), list_(entries_) {
        for (const auto& right : knownRights)
            wanted_ |= options.right.empty() || options.right == right.word ? right.box : 0;
    }

    /// Asks about everybody; the error if that fails.
    NSErrorRef ask(const NSURL& url);

    std::string asText(const Style& style) const;
    Json asJson(const std::string& path) const;

  private:
    std::vector<Person> everybody();
    void findFolders(const NSURL& url);
    std::vector<Phrase> throughWhat(const Person& person) const;
    std::size_t rankOf(const Person& person) const;
    std::string lettersOf(Boxes boxes) const;
    std::string table(const Style& style) const;
    std::string keptOutLines() const;
    std::string mask(const MVAclEntry& entry) const;

    const WhoCanOptions& options_;
    const WhoCanParts& parts_;
    const EntryList entries_;
    const ListedRights list_;
    Boxes wanted_ = 0;
    std::vector<Person> people_;
    /// Whether these are all users and groups of the system.
    bool isComplete_ = true;
    bool isInTime_ = true;
    /// The server of a network mount keeps it to itself.
    bool isRootUnknown_ = false;
};

std::vector<Person> Answer::everybody() {
    People people;
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
    const auto known = parts_.identities();
    isInTime_ = known.has_value();
    if (known) {
        isComplete_ = known->size() < MVFileClient::mostIdentities;
        for (const auto& identity : *known) {
            const auto who = posixIdentityOfUUID(identity->uniqueIdentifier());
            if (who && !std::holds_alternative<CBEveryone>(*who))
                people.add(*who, identity);
        }
    }
    people.add(CBEveryone{});
    return std::move(people).all();
}

NSErrorRef Answer::ask(const NSURL& url) {
    auto everybody = this->everybody();
    for (std::size_t from = 0; from < everybody.size(); from += askedAtOnce) {
        const auto to = std::min(from + askedAtOnce, everybody.size());
        std::vector<NSUUID> whom;
        for (auto i = from; i != to; ++i)
            whom.push_back(uuidOfPosixIdentity(everybody[i].who));
        const auto answers = parts_.access(url, whom);
        if (!parts_.goesOn())
            return NSError::errorWithDomain(NSPOSIXErrorDomain, ECANCELED);
        for (auto i = from; i != to; ++i) {
            auto& person = everybody[i];
            const auto& answer = answers[i - from];
            if (!answer && !person.isRoot())
                return answer.error();
            if (!answer) {
                isRootUnknown_ = true;
                continue;
            }
            person.boxes = boxesIn(*answer) & wanted_;
            const auto* user = std::get_if<CBPosixUser>(&person.who);
            person.granted =
                list_.to(person.who,
                         user ? parts_.groupsOf(user->uid) : std::vector<std::uint32_t>(), wanted_);
            people_.push_back(std::move(person));
        }
    }
    const auto others = std::move(people_.back());
    people_.pop_back();
    for (auto& person : people_) {
        // Whoever cannot do anything of what the list gives is kept from it by what is above.
        person.isKeptOut = person.boxes == 0 && person.granted.boxes != 0;
        person.isLikeOthers = person.boxes == others.boxes && !person.isRoot() &&
                              person.granted.boxes == others.granted.boxes &&
                              ListedRights::isForOthers(person.granted);
    }
    people_.push_back(others);
    people_.back().isKeptOut = others.boxes == 0 && others.granted.boxes != 0;
    std::stable_sort(people_.begin(), people_.end(),
                     [&](const Person& a, const Person& b) { return rankOf(a) < rankOf(b); });
    findFolders(url);
    return nullptr;
}

/// People come in the order of the entries that give them rights.
std::size_t Answer::rankOf(const Person& person) const {
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
void Answer::findFolders(const NSURL& url) {
    if (std::none_of(people_.begin(), people_.end(), [](const auto& p) { return p.isKeptOut; }))
        return;
    std::vector<std::pair<std::string, ListedRights>> above;
    for (auto path = parts_.resolved(url).path(); path.size() > 1;) {
        path.resize(std::max<std::size_t>(path.rfind('/'), 1));
        // A folder that cannot be looked at is passed over.
        if (const auto entries = parts_.list(NSURL::fileURLWithPath(path)))
            above.emplace_back(path, ListedRights(*entries));
    }
    for (auto& person : people_) {
        if (!person.isKeptOut)
            continue;
        const auto* user = std::get_if<CBPosixUser>(&person.who);
        const auto groups = user ? parts_.groupsOf(user->uid) : std::vector<std::uint32_t>();
        const auto closed = std::find_if(above.rbegin(), above.rend(), [&](const auto& folder) {
            return folder.second.to(person.who, groups, ACL_SEARCH).boxes == 0;
        });
        if (closed != above.rend())
            person.folder = closed->first;
    }
}

/// The mask that limits what the entry gives; empty if none does.
std::string Answer::mask(const MVAclEntry& entry) const {
    const auto subject = subjectOfEntry(entry);
    const bool isLimited = subject == EntrySubject::user || subject == EntrySubject::group ||
                           subject == EntrySubject::owningGroup;
    return isLimited ? masksHoldingBack(entry.origin().get()).list : std::string();
}

std::vector<Phrase> Answer::throughWhat(const Person& person) const {
    std::vector<Phrase> through;
    if (person.isRoot() && list_.isOverruledByRoot())
        return {phrase("root, whatever the list says")};
    for (const auto& entry : person.granted.through) {
        const auto letters = mask(*entry);
        const auto who = whoText(*entry);
        // TRANSLATORS: The entry by which somebody has a right, as "user alice, mask r-x".
        through.push_back(letters.empty() ? who : phrase("%1, mask %2", who, letters));
    }
    if ((person.boxes & ~person.granted.boxes & ACL_DELETE) != 0)
        through.push_back(phrase("the folder that it is in"));
    if (through.empty() && person.boxes != 0)
        through.push_back(phrase("what the server says"));
    return through;
}

std::string Answer::lettersOf(Boxes boxes) const {
    std::string letters;
    for (const auto& right : knownRights)
        letters += (boxes & right.box) != 0 ? right.letter : '-';
    return letters;
}

std::string Answer::table(const Style& style) const {
    const bool isOneRight = !options_.right.empty();
    std::vector<std::array<std::string, 3>> rows{{say("Who"), say("Letters"), say("Through")}};
    for (const auto& person : people_) {
        if (person.boxes == 0 || (person.isLikeOthers && !options_.all))
            continue;
        rows.push_back(
            {escaped(textOf(person).localized()), lettersOf(person.boxes),
             escaped(Phrase::list(translatable("; "), throughWhat(person)).localized())});
    }
    std::array<std::size_t, 2> widths{};
    for (const auto& row : rows) {
        for (std::size_t i = 0; i != widths.size(); ++i)
            widths[i] = std::max(widths[i], columnsOf(row[i]));
    }
    std::string text;
    for (const auto& row : rows) {
        auto line = padded(row[0], widths[0]) + "  ";
        if (!isOneRight)
            line += padded(row[1], widths[1]) + "  ";
        line += row[2];
        text += (&row == &rows.front() ? style.heading(line) : line) + '\n';
    }
    return rows.size() == 1 ? say("Nobody has this right.") + '\n' : text;
}

std::string Answer::keptOutLines() const {
    std::vector<std::pair<std::string, std::vector<Phrase>>> folders;
    for (const auto& person : people_) {
        if (!person.isKeptOut || (person.isLikeOthers && !options_.all))
            continue;
        auto at = std::find_if(folders.begin(), folders.end(),
                               [&](const auto& known) { return known.first == person.folder; });
        if (at == folders.end())
            at = folders.insert(at, {person.folder, {}});
        at->second.push_back(textOf(person));
    }
    std::string text;
    for (const auto& [folder, whom] : folders) {
        const auto names = Phrase::list(translatable(", "), whom);
        text += escaped(folder.empty()
                            ? say("A folder above keeps out, whatever the list says: %1.", names)
                            : say("The folder '%1' keeps out, whatever the list says: %2.", folder,
                                  names)) +
                '\n';
    }
    return text;
}

std::string Answer::asText(const Style& style) const {
    auto text = itemAsLines(entries_, style) + table(style);
    const auto add = [&](const std::string& line) { text += style.faint(line) + '\n'; };
    text += keptOutLines();
    const bool isLess = std::any_of(people_.begin(), people_.end(), [](const Person& person) {
        return person.boxes != 0 && (person.granted.boxes & ~person.boxes) != 0;
    });
    if (isLess)
        add(say("The mount or a flag of the item forbids some of what the list allows."));
    const auto like =
        static_cast<std::size_t>(std::count_if(people_.begin(), people_.end(), [](const auto& p) {
            return p.isLikeOthers && p.boxes != 0;
        }));
    if (like != 0 && !options_.all)
        add(countedPhrase("%1 user or group that is known has what everyone else has; --all names "
                          "it.",
                          "%1 users and groups that are known have what everyone else has; --all "
                          "names them.",
                          like)
                .localized());
    if (options_.right.empty())
        add(
            say("r read, w write, x execute or enter, d delete, C change permissions, o change "
                "owner"));
    if (!isInTime_)
        add(
            say("The users of this system were not listed in time; told are those whom the list "
                "names."));
    else if (!isComplete_)
        add(
            say("This system has more users and groups than %1; told are the first of them, and "
                "those whom the list names.",
                MVFileClient::mostIdentities));
    if (isRootUnknown_)
        add(say("What root may do the server tells to root alone; use --privileged."));
    return text;
}

Json Answer::asJson(const std::string& path) const {
    const auto jsonOf = [](const Person& person) {
        return Json{{"identity", nameOf(person)},
                    {"uuid", uuidOfPosixIdentity(person.who).UUIDString()},
                    {"isGroup", !std::holds_alternative<CBPosixUser>(person.who)}};
    };
    auto who = Json::array();
    auto keptOut = Json::array();
    for (const auto& person : people_) {
        if (person.isKeptOut) {
            auto object = jsonOf(person);
            object["folder"] = person.folder.empty() ? Json(nullptr) : jsonOfPath(person.folder);
            keptOut.push_back(std::move(object));
        }
        if (person.boxes == 0)
            continue;
        auto object = jsonOf(person);
        auto has = Json::object();
        for (const auto& right : knownRights) {
            if ((wanted_ & right.box) != 0)
                has[right.key] = (person.boxes & right.box) != 0;
        }
        object["rights"] = std::move(has);
        auto through = Json::array();
        for (const auto& entry : person.granted.through) {
            auto shown = jsonOfEntries({entry}).front();
            const auto letters = mask(*entry);
            through.push_back({{"subject", shown["subject"]},
                               {"identity", shown["identity"]},
                               {"mask", letters.empty() ? Json(nullptr) : Json(letters)}});
        }
        object["through"] = std::move(through);
        object["root"] = person.isRoot() && list_.isOverruledByRoot();
        object["folder"] = (person.boxes & ~person.granted.boxes & ACL_DELETE) != 0;
        who.push_back(std::move(object));
    }
    return {{"item", jsonOfListedItem(path, entries_)},
            {"complete", isComplete_ && isInTime_ && !isRootUnknown_},
            {"who", std::move(who)},
            {"keptOut", std::move(keptOut)}};
}

Outcome toldOf(const std::string& path, const WhoCanOptions& options, const WhoCanParts& parts,
               const Style& style, Json& items) {
    if (path.empty())
        return {ExitUsage, {}, message({say("the path is empty; name a file or a folder.")})};
    const auto url = NSURL::fileURLWithPath(path);
    const auto what = say("cannot tell the access to '%1'", escaped(path));
    const auto entries = parts.list(url);
    if (!entries)
        return failed(what, entries.error());
    Answer answer(options, parts, *entries);
    if (const auto error = answer.ask(url)) {
        auto outcome = failed(what, error);
        if (!parts.goesOn())
            outcome.exitCode = ExitInterrupted;
        return outcome;
    }
    if (options.json)
        items.push_back(answer.asJson(path));
    return {ExitSuccess, options.json ? std::string() : answer.asText(style), {}};
}

}  // namespace

Outcome runWhoCan(const WhoCanOptions& options, const WhoCanParts& parts, const Style& style) {
    Outcome all;
    auto items = Json::array();
    for (const auto& path : options.paths) {
        auto outcome = toldOf(path, options, parts, style, items);
        all.exitCode = std::max(all.exitCode, outcome.exitCode);
        all.message += outcome.message;
        if (outcome.error)
            all.error = outcome.error;
        if (!outcome.output.empty() && options.paths.size() > 1)
            all.output += (all.output.empty() ? "" : "\n") + style.heading(escaped(path)) + '\n';
        all.output += outcome.output;
        if (all.exitCode == ExitInterrupted)
            break;
    }
    if (options.json)
        all.output = jsonDocument("who-can", {{"items", std::move(items)}}, all);
    return all;
}

}  // namespace morvane
