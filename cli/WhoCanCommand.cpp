// SPDX-License-Identifier: MIT
#include "WhoCanCommand.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/acl_perms.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <utility>

#include "EntryJson.h"
#include "EntryText.h"
#include "Failure.h"

namespace morvane {

namespace {

/// A right that can be asked for.
struct Right {
    std::string_view word;
    Boxes box;
    char letter;
    /// The name in JSON.
    const char* key;
};
constexpr std::array<Right, 6> knownRights{
    {{"read", ACL_READ_DATA, 'r', "read"},
     {"write", ACL_WRITE_DATA, 'w', "write"},
     {"execute", ACL_SEARCH, 'x', "execute"},
     {"delete", ACL_DELETE, 'd', "delete"},
     {"change-permissions", ACL_WRITE_SECURITY, 'C', "changePermissions"},
     {"change-owner", ACL_CHANGE_OWNER, 'o', "changeOwner"}}};

Phrase textOf(const RightHolder& person) {
    if (person.isEveryone())
        return phrase("everyone else");
    return person.identity ? identityText(*person.identity) : Phrase(person.name());
}

/// Tells what was found out about one item.
class Answer {
  public:
    Answer(const WhoCanOptions& options, Boxes wanted, const EntryList& entries,
           const RightHolders& holders)
        : options_(options),
          wanted_(wanted),
          entries_(entries),
          holders_(holders),
          list_(entries) {}

    std::string asText(const Style& style) const;
    Json asJson(const std::string& path) const;

  private:
    std::vector<Phrase> throughWhat(const RightHolder& person) const;
    bool isTold(const RightHolder& person) const { return !person.isLikeOthers || options_.all; }
    std::string table(const Style& style) const;
    std::string keptOutLines() const;
    std::string notes(const Style& style) const;

    const WhoCanOptions& options_;
    const Boxes wanted_;
    const EntryList& entries_;
    const RightHolders& holders_;
    const ListedRights list_;
};

/// The mask that limits what the entry gives; empty if none does.
std::string maskOver(const MVAclEntry& entry) {
    const auto subject = subjectOfEntry(entry);
    const bool isLimited = subject == EntrySubject::user || subject == EntrySubject::group ||
                           subject == EntrySubject::owningGroup;
    return isLimited ? masksHoldingBack(entry.origin().get()).list : std::string();
}

/// Whether there is also an entry of this kind for the same group: the owning group can be named as
/// well.
bool hasFor(const MVAclEntry& group, EntrySubject kind, const EntryList& entries) {
    return std::any_of(entries.begin(), entries.end(), [&](const auto& other) {
        return subjectOfEntry(*other) == kind && other->uuid() == group.uuid();
    });
}

std::vector<Phrase> Answer::throughWhat(const RightHolder& person) const {
    std::vector<Phrase> through;
    if (person.isRoot() && list_.isOverruledByRoot())
        return {phrase("root, whatever the list says")};
    for (const auto& entry : person.granted.through) {
        const auto letters = maskOver(*entry);
        auto who = whoText(*entry);
        const auto subject = subjectOfEntry(*entry);
        if (subject == EntrySubject::group &&
            hasFor(*entry, EntrySubject::owningGroup, person.granted.through))
            continue;  // told with that
        if (subject == EntrySubject::owningGroup &&
            hasFor(*entry, EntrySubject::group, person.granted.through))
            // TRANSLATORS: "group staff (owning group) and by name"
            who = phrase("%1 and by name", who);
        else if (subject == EntrySubject::everyone && list_.isVoidFor(person.who))
            // TRANSLATORS: "everyone (the mask --- voids the list)", of one whom the list names.
            who = phrase("%1 (the mask --- voids the list)", who);
        // TRANSLATORS: The entry by which somebody has a right, as "user alice, mask r-x".
        through.push_back(letters.empty() ? who : phrase("%1, mask %2", who, letters));
    }
    if (person.hasFromFolder())
        through.push_back(phrase("the folder that it is in"));
    if (through.empty() && person.boxes != 0)
        through.push_back(phrase("what the server says"));
    return through;
}

std::string lettersOf(Boxes boxes) {
    std::string letters;
    for (const auto& right : knownRights)
        letters += (boxes & right.box) != 0 ? right.letter : '-';
    return letters;
}

std::string Answer::table(const Style& style) const {
    const bool isOneRight = !options_.right.empty();
    std::vector<std::array<std::string, 3>> rows{{say("Who"), say("Letters"), say("Through")}};
    for (const auto& person : holders_.all) {
        if (person.boxes == 0 || !isTold(person))
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
    for (const auto& person : holders_.all) {
        if (!person.isKeptOut || !isTold(person))
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
    return itemAsLines(entries_, style) + table(style) + keptOutLines() + notes(style);
}

std::string Answer::notes(const Style& style) const {
    std::string text;
    const auto add = [&](const std::string& line) { text += style.faint(line) + '\n'; };
    const bool isLess =
        std::any_of(holders_.all.begin(), holders_.all.end(), [](const RightHolder& person) {
            return !person.isKeptOut && (person.granted.boxes & ~person.boxes) != 0;
        });
    if (isLess)
        add(say("The mount or a flag of the item forbids some of what the list allows."));
    const auto like = static_cast<std::size_t>(
        std::count_if(holders_.all.begin(), holders_.all.end(),
                      [](const auto& p) { return p.isLikeOthers && p.boxes != 0; }));
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
    if (!holders_.areListedInTime)
        add(
            say("The users of this system were not listed in time; told are those whom the list "
                "names."));
    else if (!holders_.areAllListed)
        add(
            say("This system has more users and groups than %1; told are the first of them, and "
                "those whom the list names.",
                MVFileClient::mostIdentities));
    if (holders_.isRootUnknown)
        add(say("What root may do the server tells to root alone; use --privileged."));
    return text;
}

Json Answer::asJson(const std::string& path) const {
    const auto jsonOf = [](const RightHolder& person) {
        return Json{{"identity", person.name()},
                    {"uuid", uuidOfPosixIdentity(person.who).UUIDString()},
                    {"isGroup", !std::holds_alternative<CBPosixUser>(person.who)}};
    };
    auto who = Json::array();
    auto keptOut = Json::array();
    for (const auto& person : holders_.all) {
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
            const auto letters = maskOver(*entry);
            through.push_back({{"subject", shown["subject"]},
                               {"identity", shown["identity"]},
                               {"mask", letters.empty() ? Json(nullptr) : Json(letters)}});
        }
        object["through"] = std::move(through);
        object["root"] = person.isRoot() && list_.isOverruledByRoot();
        object["folder"] = person.hasFromFolder();
        who.push_back(std::move(object));
    }
    return {{"item", jsonOfListedItem(path, entries_)},
            {"complete", holders_.isComplete()},
            {"who", std::move(who)},
            {"keptOut", std::move(keptOut)}};
}

Outcome toldOf(const std::string& path, const WhoCanOptions& options, const RightSources& sources,
               const Style& style, Json& items) {
    if (path.empty())
        return {ExitUsage, {}, message({say("the path is empty; name a file or a folder.")})};
    const auto url = NSURL::fileURLWithPath(path);
    const auto what = say("cannot tell the access to '%1'", escaped(path));
    const auto entries = sources.list(url);
    if (!entries)
        return failed(what, entries.error());
    Boxes wanted = 0;
    for (const auto& right : knownRights)
        wanted |= options.right.empty() || options.right == right.word ? right.box : 0;
    const auto holders = rightHoldersOf(url, *entries, wanted, sources);
    if (!holders) {
        return sources.goesOn() ? failed(what, holders.error())
                                : Outcome{ExitInterrupted, {}, stoppedLooking()};
    }
    const Answer answer(options, wanted, *entries, *holders);
    if (options.json)
        items.push_back(answer.asJson(path));
    return {ExitSuccess, options.json ? std::string() : answer.asText(style), {}};
}

}  // namespace

Outcome runWhoCan(const WhoCanOptions& options, const RightSources& sources, const Style& style) {
    Outcome all;
    auto items = Json::array();
    for (const auto& path : options.paths) {
        auto outcome = toldOf(path, options, sources, style, items);
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
