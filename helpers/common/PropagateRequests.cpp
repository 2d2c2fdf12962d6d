#include "PropagateRequests.h"

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/InheritedAcl.h>
#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <set>
#include <string>
#include <utility>
#include <variant>

#include "ClientQuestion.h"
#include "InheritedValues.h"
#include "Nfs4File.h"
#include "Nfs4Inheritance.h"
#include "Nfs4Names.h"
#include "PosixAclReader.h"
#include "RequestErrors.h"

namespace morvane {
namespace {

using Entries = std::vector<std::shared_ptr<MVAclEntry>>;

constexpr std::chrono::milliseconds interval{250};

std::string counted(std::uint64_t items) {
    return std::to_string(items) + (items == 1 ? " item" : " items");
}

/// `others` tells what has become of the rest.
std::string failuresText(const AclPropagation& propagation, const char* others) {
    const auto& first = propagation.firstFailures();
    std::string text = counted(propagation.failureCount()) + " could not be changed" + others +
                       "; " + (first.size() == 1 ? "the first is " : "the first are ");
    for (std::size_t i = 0; i != first.size(); ++i)
        text += (i == 0 ? "" : ", ") + quotedPath(NSURL::fileURLWithPath(first[i].path)) + " (" +
                (first[i].code == EREMOTEIO
                     ? "the server of the network mount has stored another list"
                     : NSError::errorWithDomain(NSPOSIXErrorDomain, first[i].code)
                           ->localizedDescription()) +
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
        const auto inherited = inheritedPosixLists(entries, *acl);
        if (!inherited.losses.empty())
            *error = lossesError(inherited.losses, url);
        return inheritedListWriter(inherited);
    }
    const auto& failure = std::get<AclReadFailure>(read);
    const auto native =
        failure.otherKindOfList ? readNfs4Item(item) : std::variant<Nfs4Item, int>(failure.code);
    if (const auto* code = std::get_if<int>(&native)) {
        *error = posixError(*code, url);
        return nullptr;
    }
    std::set<std::string> losses;
    auto writer = inheritedEntriesWriter(inheritedEntries(entries), std::get<Nfs4Item>(native),
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
