// SPDX-License-Identifier: MIT
#include "PropagateRequests.h"

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/InheritedAcl.h>
#include <MorvaneOperation/MVItemFailures.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <variant>

#include "ClientQuestion.h"
#include "Nfs4Inheritance.h"
#include "Nfs4Names.h"
#include "Nfs4Storing.h"
#include "PosixInheritance.h"
#include "RequestErrors.h"
#include "StoredAcl.h"
#include "WorkErrors.h"

// After the system's headers, which use some of these names.
#include <MorvaneOperation/acl_perms.h>

namespace morvane {
namespace {

using Entries = std::vector<std::shared_ptr<MVAclEntry>>;

/// How many items could not be changed.
Phrase failuresText(const WalkFailures& failures) {
    const auto& first = failures.first;
    if (failures.notReached != 0 && failures.notReached == failures.count)
        return countedPhrase(
            "%1 item could not be changed or entered, and what is below it was not "
            "reached",
            "%1 items could not be changed or entered, and what is below them was "
            "not reached",
            failures.count);
    if (failures.notReached != 0)
        return phrase(
            "%1 items could not be changed or entered, and what is below %2 of them was "
            "not reached",
            failures.count, failures.notReached);
    // If all of the first ones are alike, all are.
    const bool isStored = std::all_of(first.begin(), first.end(),
                                      [](const WalkFailure& one) { return one.code == EREMOTEIO; });
    return isStored ? countedPhrase("%1 item could not be changed as asked",
                                    "%1 items could not be changed as asked", failures.count)
                    : countedPhrase("%1 item could not be changed", "%1 items could not be changed",
                                    failures.count);
}

/// `text`, with the first of the items that it is about.
Phrase withFirst(const Phrase& text, const std::vector<WalkFailure>& failures) {
    std::vector<Phrase> first;
    for (const auto& [path, code] : failures) {
        first.push_back(
            phrase("%1 (%2)", quotedPath(NSURL::fileURLWithPath(path)), textOfFailure(code)));
    }
    const auto list = Phrase::list(translatable(", "), first);
    // TRANSLATORS: %2 is "3 items could not be changed, the others are", %3 one or several paths,
    // each with the reason in brackets.
    return countedPhrase("%2; the first is %3", "%2; the first are %3", first.size(), text, list);
}

/// `losses` of items below, each with the first entry of the folder's that is for the same one and
/// is inherited, in the order of these.
std::vector<EntryLoss> countedAmong(const Entries& entries, const EntryLossSet& losses) {
    std::map<Phrase, std::size_t> places;
    for (std::size_t i = 0; !losses.empty() && i != entries.size(); ++i) {
        std::vector<EntryLoss> ignored;
        const auto& groups = entries[i]->permissions();
        const bool isInherited = !entries[i]->isAcl() || groups.size() <= permissionGroups ||
                                 (boxesOn(*groups[permissionGroups], i, *entries[i], ignored) &
                                  (ACL_ENTRY_FILE_INHERIT | ACL_ENTRY_DIRECTORY_INHERIT)) != 0;
        if (isInherited)
            places.emplace(makeLoss(i, *entries[i], EntryLossReason::stored, {}, {}).who, i);
    }
    std::vector<EntryLoss> counted(losses.begin(), losses.end());
    for (auto& loss : counted) {
        const auto found = places.find(loss.who);
        loss.entry = found == places.end() ? entries.size() : found->second;
    }
    std::stable_sort(counted.begin(), counted.end(),
                     [](const EntryLoss& a, const EntryLoss& b) { return a.entry < b.entry; });
    return counted;
}

NSErrorRef lossesError(const Entries& entries, const EntryLossSet& losses, const NSURL& url) {
    const auto lost = countedAmong(entries, losses);
    return posixError(EOPNOTSUPP, url,
                      phrase("The file system cannot hold all that is inherited. %1",
                             textOfLosses(textsOfLosses(lost, canonicalNumbers(entries)))),
                      phrase("Nothing was changed. Change these entries."), errorsOfLosses(lost));
}

/// What writes to the items below the folder.
Result<std::unique_ptr<const InheritedWriter>> writerFor(const Entries& entries,
                                                         const FileDescriptor& folder,
                                                         const NSURL& url) {
    const auto read = readStoredAcl(AclItem::borrowed(folder.get()));
    if (!read)
        return Failure{posixError(read.error(), url)};
    if (const auto* acl = std::get_if<PosixAcl>(&*read)) {
        const auto inherited = inheritedPosixLists(entries, *acl);
        if (auto error = errorOfFit(inherited.fit, url))
            return Failure{std::move(error)};
        if (!inherited.losses.empty())
            return Failure{lossesError(entries, inherited.losses, url)};
        return inheritedListWriter(inherited);
    }
    EntryLossSet losses;
    auto writer = inheritedEntriesWriter(inheritedEntries(entries), std::get<Nfs4Item>(*read),
                                         systemNfs4Names(), losses);
    if (!losses.empty())
        return Failure{lossesError(entries, losses, url)};
    return writer;
}

MVItemCounts countsOf(const AclPropagation& propagation) {
    return {propagation.done(), propagation.failureCount()};
}

/// The work, which may outlive its request.
class PropagationJob {
  public:
    PropagationJob(Entries entries, NSURL url, PathRule rule)
        : entries_(std::move(entries)), url_(std::move(url)), rule_(rule) {}

    void run() {
        auto opened = openPath(url_.path(), O_RDONLY | O_DIRECTORY | O_NONBLOCK, rule_);
        if (!opened) {
            refusal_ = posixError(opened.error(), url_);
            return;
        }
        std::unique_ptr<const InheritedWriter> writer;
        try {
            if (auto made = writerFor(entries_, *opened, url_))
                writer = *std::move(made);
            else
                refusal_ = made.error();
        } catch (const std::exception& error) {
            refusal_ = posixError(
                EINVAL, url_,
                phrase("The entries do not have the boxes of a folder's: %1", error.what()),
                phrase("Nothing was changed. Send entries as the folder has them."));
        }
        if (writer)
            propagation_.run(*writer, *std::move(opened), url_.path());
    }
    void cancel() { propagation_.cancel(); }

    /// Once the work is done: why it was not begun.
    const NSErrorRef& refusal() const { return refusal_; }
    const AclPropagation& propagation() const { return propagation_; }

  private:
    const Entries entries_;
    const NSURL url_;
    const PathRule rule_;
    NSErrorRef refusal_;
    AclPropagation propagation_{rule_.onBehalfOf};
};

}  // namespace

NSErrorRef propagateAclEntriesBelow(const Entries& entries, const NSURL& url,
                                    const std::weak_ptr<NSXPCConnection>& client,
                                    const PathRule& rule, std::chrono::milliseconds interval) {
    if (!url.isFileURL())
        return posixError(EINVAL, url, phrase("Only a folder has something below it."));
    const auto job = std::make_shared<PropagationJob>(entries, url, rule);
    const auto question = std::make_shared<ClientQuestion>(client, [job] { job->cancel(); });
    const auto tell = [&](MVCountedResponse& host, const ClientQuestion::Answer& answer) {
        const auto counts = countsOf(job->propagation());
        host.updateItemCounts(static_cast<std::int64_t>(counts.done),
                              static_cast<std::int64_t>(counts.failed), answer);
    };
    const auto end =
        supervise([job] { job->run(); }, {.user = userOfRule(rule),
                                          .interval = interval,
                                          .goesOn = [&] { return question->ask(tell); },
                                          .cancel = [&] { job->cancel(); }});
    if (auto error = errorOfWork(end, url))
        return error;
    if (end == WorkEnd::done && job->refusal())
        return job->refusal();
    question->tellEnd(tell);
    return outcomeOfPropagation(job->propagation(), entries, url, end);
}

NSErrorRef outcomeOfPropagation(const AclPropagation& propagation, const Entries& entries,
                                const NSURL& url, WorkEnd end) {
    const auto failures = propagation.failures();
    const auto lost = countedAmong(entries, propagation.lost());
    const auto error = [&](int code, const NSURL& where, const Phrase& text) {
        const auto told = posixError(code, where, text, {}, errorsOfLosses(lost));
        return errorWithFailures(
            told, {errorsOfFailures(failures), {propagation.done(), failures.count}});
    };
    std::vector<Phrase> details;
    if (!lost.empty())
        details.push_back(phrase("The lists that are stored differ in: %1.", textOfStoring(lost)));
    for (const auto& reason : propagation.reasons())
        details.push_back(reason);
    const auto told = [&](const Phrase& text) {
        auto all = details;
        all.insert(all.begin(), text);
        return all;
    };
    if (propagation.isCancelled()) {
        auto all = told(failures.count == 0
                            ? Phrase()
                            : phrase("%1.", withFirst(failuresText(failures), failures.few())));
        all.insert(all.begin(), countedPhrase("The propagation was cancelled after %1 item.",
                                              "The propagation was cancelled after %1 items.",
                                              propagation.items()));
        all.push_back(leftText(end));
        return error(ECANCELED, url, sentences(std::move(all)));
    }
    if (failures.count == 0)
        return nullptr;
    // A list that is stored otherwise is the least of what may have happened.
    const auto few = failures.few();
    auto worst = std::find_if(few.begin(), few.end(),
                              [](const WalkFailure& one) { return one.code != EREMOTEIO; });
    if (worst == few.end())
        worst = few.begin();
    const auto failed = failuresText(failures);
    const auto text = withFirst(failures.notReached == 0
                                    // TRANSLATORS: %1 is "3 items could not be changed".
                                    ? phrase("%1, the others are", failed)
                                    : phrase("%1; the others are changed", failed),
                                few);
    return error(worst->code, NSURL::fileURLWithPath(worst->path),
                 details.empty() ? text : sentences(told(phrase("%1.", text))));
}

}  // namespace morvane
