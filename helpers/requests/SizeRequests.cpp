// SPDX-License-Identifier: MIT
#include "SizeRequests.h"

#include <MorvaneOperation/MVItemFailures.h>

#include <cerrno>
#include <string>
#include <utility>

#include "ClientQuestion.h"
#include "RequestErrors.h"
#include "SizeWalker.h"
#include "WorkErrors.h"

namespace morvane {
namespace {

std::vector<std::string> pathsOf(const std::vector<NSURL>& urls) {
    std::vector<std::string> paths;
    paths.reserve(urls.size());
    for (const auto& url : urls)
        paths.push_back(url.path());
    return paths;
}

/// The work, which may outlive its request.
class SizeJob {
  public:
    SizeJob(const std::vector<NSURL>& urls, PathRule rule) : walker_(pathsOf(urls), rule) {}

    void run() { walker_.run(); }
    void cancel() { walker_.cancel(); }
    WalkFailures unreadable() const { return walker_.unreadable(); }

    /// One item for each URL; those that are not done are busy.
    std::vector<std::shared_ptr<MVFileSizeItem>> items() const {
        std::vector<std::shared_ptr<MVFileSizeItem>> items;
        for (const auto& sum : walker_.sums()) {
            items.push_back(MVFileSizeItem::initWithSize(sum.bytes));
            items.back()->setBusy(!sum.isDone);
        }
        return items;
    }

  private:
    SizeWalker walker_;
};

Phrase skippedText(const WalkFailures& unreadable) {
    const auto& [path, code] = unreadable.first.front();
    // TRANSLATORS: A path, and why it could not be read or changed.
    const auto first =
        phrase("%1 (%2)", quotedPath(NSURL::fileURLWithPath(path)), Phrase::ofSystemError(code));
    if (unreadable.notReached == 0)
        // TRANSLATORS: %2 is a path, with the reason in brackets.
        return countedPhrase("1 item could not be read and counts as nothing: %2",
                             "%1 items could not be read and count as nothing; the first is %2",
                             unreadable.count, first);
    if (unreadable.notReached == unreadable.count)
        return countedPhrase(
            "1 item could not be read and counts as nothing, and what is below it "
            "was not reached: %2",
            "%1 items could not be read and count as nothing, and what is below "
            "them was not reached; the first is %2",
            unreadable.count, first);
    return phrase(
        "%1 items could not be read and count as nothing, and what is below %2 of them "
        "was not reached; the first is %3",
        unreadable.count, unreadable.notReached, first);
}

}  // namespace

SizesAnswer sizesOfUrls(const std::vector<NSURL>& urls,
                        const std::weak_ptr<NSXPCConnection>& client, const PathRule& rule,
                        std::chrono::milliseconds interval) {
    for (const auto& url : urls) {
        if (!url.isFileURL())
            return {{}, posixError(EINVAL, url, phrase("Only files and folders have a size."))};
    }
    if (urls.empty())
        return {};
    const auto job = std::make_shared<SizeJob>(urls, rule);
    const auto question = std::make_shared<ClientQuestion>(client, [job] { job->cancel(); });
    const auto tell = [&](MVCountedResponse& host, const ClientQuestion::Answer& answer) {
        host.updateFileSizes(job->items(), answer);
    };
    const auto end =
        supervise([job] { job->run(); }, {.user = userOfRule(rule),
                                          .interval = interval,
                                          .goesOn = [&] { return question->ask(tell); },
                                          .cancel = [&] { job->cancel(); }});
    if (auto error = errorOfWork(end, urls.front()))
        return {{}, std::move(error)};
    SizesAnswer answer{job->items(), nullptr};
    const auto unreadable = job->unreadable();
    const auto skipped = unreadable.count > 0 ? skippedText(unreadable) : Phrase();
    const auto error = [&](int code, const NSURL& url, const Phrase& text) {
        return errorWithFailures(posixError(code, url, text),
                                 {errorsOfFailures(unreadable), {0, unreadable.count}});
    };
    if (!question->goesOn())
        answer.error =
            error(ECANCELED, urls.front(),
                  sentences({phrase("The computation was cancelled."),
                             skipped.empty() ? skipped : phrase("%1.", skipped), leftText(end)}));
    else if (unreadable.count > 0)
        answer.error = error(unreadable.first.front().code,
                             NSURL::fileURLWithPath(unreadable.first.front().path), skipped);
    return answer;
}

}  // namespace morvane
