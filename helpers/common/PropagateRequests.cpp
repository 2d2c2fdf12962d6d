#include "PropagateRequests.h"

#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

#include "ClientQuestion.h"
#include "EntryLosses.h"
#include "InheritedValues.h"
#include "Nfs4File.h"
#include "Nfs4Inheritance.h"
#include "PosixAclEntries.h"
#include "PosixAclReader.h"
#include "PosixAclReduction.h"
#include "RequestErrors.h"

namespace morvane {
namespace {

using Entries = std::vector<std::shared_ptr<MVAclEntry>>;

constexpr std::chrono::milliseconds interval{250};

/// Nodes are shared by the conversions, so each one gets entries of its own.
Entries copiesOf(const Entries& entries) {
    Entries copies;
    for (const auto& entry : entries) {
        NSErrorRef error;
        auto copy = NSKeyedUnarchiver::unarchivedObjectOfClasses(
            {&MVAclEntry::classObject(), &MVTreeNode::classObject(),
             &MVAclPermission::classObject()},
            NSKeyedArchiver::archivedDataWithRootObject(*entry), &error);
        if (!copy)
            throw std::invalid_argument(error ? error->localizedDescription()
                                              : "an entry cannot be copied");
        copies.push_back(std::static_pointer_cast<MVAclEntry>(std::move(copy)));
    }
    return copies;
}

Entries converted(const Entries& entries, bool (MVAclEntry::*convert)()) {
    Entries reached;
    for (const auto& entry : copiesOf(entries)) {
        if ((*entry.*convert)())
            reached.push_back(entry);
    }
    return reached;
}

/// Works out what a folder's entries become below it.
class Inheritance {
  public:
    Inheritance(const Entries& entries, const PosixAcl& folder) {
        lists_.owner = folder.owner;
        lists_.group = folder.group;
        for (const auto& entry : entries)
            (entry->isAcl() ? trees_ : flats_).push_back(entry);
        for (const auto& entry : flats_) {
            const auto who = identityOf(*entry);
            if (who && std::holds_alternative<CBPosixUser>(*who))
                lists_.owner = std::get<CBPosixUser>(*who).uid;
            else if (who && std::holds_alternative<CBPosixGroup>(*who))
                lists_.group = std::get<CBPosixGroup>(*who).gid;
        }
        for (const auto& own : entriesOfPosixAcl(folder)) {
            if (!own->isAcl() && !hasKind(flats_, *identityOf(*own)))
                flats_.push_back(own);
        }
    }

    InheritedLists lists() {
        auto entries = trees_;
        for (auto& level : lists_.levels) {
            const auto files = converted(entries, &MVAclEntry::convertInheritedToFileEntry);
            auto folders = converted(entries, &MVAclEntry::convertInheritedToDirectoryEntry);
            level.executable = reduced(files, false).access;
            level.file = withoutExecution(level.executable);
            const auto folder = reduced(copiesOf(folders), true);
            level.folder = folder.access;
            level.folderDefaults = folder.defaults;
            entries = std::move(folders);
        }
        return lists_;
    }

    const std::set<std::string>& losses() const { return losses_; }

  private:
    static std::optional<CBPosixIdentity> identityOf(const MVAclEntry& entry) {
        return entry.uuid() ? posixIdentityOfUUID(*entry.uuid()) : CBPosixIdentity{CBEveryone{}};
    }
    /// Whether one of the entries is for a user, for a group, or for everyone, as `who` is.
    static bool hasKind(const Entries& entries, const CBPosixIdentity& who) {
        return std::any_of(entries.begin(), entries.end(), [&](const auto& entry) {
            const auto other = identityOf(*entry);
            return other && other->index() == who.index();
        });
    }

    PosixAcl reduced(const Entries& inherited, bool isDirectory) {
        Entries entries;
        for (const auto& entry : inherited) {
            // The mark has no place in the list, and is not missed in it.
            entry->setInherited(false);
            entries.push_back(entry);
        }
        for (const auto& flat : copiesOf(flats_)) {
            const auto who = identityOf(*flat);
            if (std::none_of(inherited.begin(), inherited.end(),
                             [&](const auto& entry) { return identityOf(*entry) == who; }))
                entries.push_back(flat);
        }
        auto result =
            reduceToPosixAcl(entries, {lists_.owner, lists_.group, isDirectory, userIsInGroup});
        for (const auto& loss : result.losses)
            losses_.insert(loss.substr(std::min(loss.find('('), loss.size())));
        return std::move(result.acl);
    }

    /// A file is not made executable by what is said of folders: as in a new file, the mask
    /// withholds what the named ones could do.
    static PosixList withoutExecution(PosixList list) {
        for (auto* rights : {&list.owner, &list.owningGroup, &list.others})
            *rights = *rights - PosixExecute;
        if (list.mask) {
            list.mask = *list.mask - PosixExecute;
            // With an empty mask the system would take the named ones for others.
            if (list.mask == PosixNothing)
                list.mask = list.others;
        }
        return list;
    }

    Entries trees_;
    Entries flats_;
    InheritedLists lists_;
    std::set<std::string> losses_;
};

std::string counted(std::uint64_t items) {
    return std::to_string(items) + (items == 1 ? " item" : " items");
}

/// `others` tells what has become of the rest.
std::string failuresText(const AclPropagation& propagation, const char* others) {
    const auto& first = propagation.firstFailures();
    std::string text = counted(propagation.failureCount()) + " could not be changed" + others +
                       "; " + (first.size() == 1 ? "the first is " : "the first are ");
    for (std::size_t i = 0; i != first.size(); ++i)
        text +=
            (i == 0 ? "" : ", ") + quotedPath(NSURL::fileURLWithPath(first[i].path)) + " (" +
            NSError::errorWithDomain(NSPOSIXErrorDomain, first[i].code)->localizedDescription() +
            ")";
    return text;
}

NSErrorRef lossesError(const std::set<std::string>& losses, const NSURL& url) {
    return posixError(EOPNOTSUPP, url,
                      textOfLosses("The file system cannot hold all that is inherited.",
                                   {losses.begin(), losses.end()}),
                      "Nothing was changed. Change these entries.");
}

/// What writes to the items below the folder; empty, with `*error` set, if that cannot be done.
std::unique_ptr<const InheritedWriter> writerFor(const Entries& entries,
                                                 const FileDescriptor& folder, const NSURL& url,
                                                 NSErrorRef* error) {
    const AclItem item(FileDescriptor(fcntl(folder.get(), F_DUPFD_CLOEXEC, 0)));
    const auto read = readPosixAcl(item);
    if (const auto* acl = std::get_if<PosixAcl>(&read)) {
        Inheritance inheritance(entries, *acl);
        auto writer = inheritedListWriter(inheritance.lists());
        if (!inheritance.losses().empty())
            *error = lossesError(inheritance.losses(), url);
        return writer;
    }
    const auto& failure = std::get<AclReadFailure>(read);
    const auto native =
        failure.otherKindOfList ? readNfs4Item(item) : std::variant<Nfs4Item, int>(failure.code);
    if (const auto* code = std::get_if<int>(&native)) {
        *error = posixError(*code, url);
        return nullptr;
    }
    InheritedEntries inherited;
    auto reached = entries;
    for (auto& level : inherited) {
        level.file = converted(reached, &MVAclEntry::convertInheritedToFileEntry);
        level.folder = converted(reached, &MVAclEntry::convertInheritedToDirectoryEntry);
        reached = level.folder;
    }
    std::set<std::string> losses;
    auto writer = inheritedEntriesWriter(std::move(inherited), std::get<Nfs4Item>(native),
                                         systemNfs4Names(), losses);
    if (!losses.empty())
        *error = lossesError(losses, url);
    return writer;
}

}  // namespace

NSErrorRef propagateAclEntriesBelow(const Entries& entries, const NSURL& url,
                                    const std::weak_ptr<NSXPCConnection>& client,
                                    const PathRule& rule) {
    if (!url.isFileURL())
        return posixError(EINVAL, url, "Only a folder has something below it.");
    auto opened = openPath(url.path(), O_RDONLY | O_DIRECTORY | O_NONBLOCK, rule);
    if (const auto* code = std::get_if<int>(&opened))
        return posixError(*code, url);
    auto& folder = std::get<FileDescriptor>(opened);
    std::unique_ptr<const InheritedWriter> writer;
    try {
        NSErrorRef error;
        writer = writerFor(entries, folder, url, &error);
        if (error)
            return error;
    } catch (const std::exception& error) {
        return posixError(
            EINVAL, url,
            "The entries do not have the boxes of a folder's: " + std::string(error.what()),
            "Nothing was changed. Send entries as the folder has them.");
    }
    const auto question = std::make_shared<ClientQuestion>(client);
    AclPropagation propagation(
        std::move(writer), rule.onBehalfOf, [&](std::uint64_t) { return question->ask(); },
        interval);
    propagation.run(std::move(folder), url.path());
    return outcomeOfPropagation(propagation, url);
}

NSErrorRef outcomeOfPropagation(const AclPropagation& propagation, const NSURL& url) {
    const bool hasFailed = propagation.failureCount() != 0;
    if (propagation.isCancelled())
        return posixError(ECANCELED, url,
                          "The propagation was cancelled after " + counted(propagation.items()) +
                              "." + (hasFailed ? " " + failuresText(propagation, "") + "." : ""));
    if (!hasFailed)
        return nullptr;
    const auto& first = propagation.firstFailures().front();
    return posixError(first.code, NSURL::fileURLWithPath(first.path),
                      failuresText(propagation, ", the others are"));
}

}  // namespace morvane
