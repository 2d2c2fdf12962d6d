// SPDX-License-Identifier: MIT
#include "SizeRequests.h"

#include <MorvaneOperation/MVItemFailures.h>

#include <cerrno>
#include <mutex>
#include <string>
#include <utility>

#include "ClientQuestion.h"
#include "RequestErrors.h"
#include "SizeWalker.h"
#include "WorkErrors.h"

namespace morvane {
namespace {

constexpr std::int64_t unknown = -1;

/// The work, which may outlive its request.
class SizeJob {
  public:
    SizeJob(const std::vector<NSURL>& urls, PathRule rule)
        : urls_(urls), rule_(rule), sizes_(urls.size(), unknown) {}

    void run() {
        for (const auto& url : urls_) {
            const bool isKnown = walker_.add(url.path(), rule_);
            if (walker_.isCancelled())
                return;
            const std::lock_guard lock(mutex_);
            const auto size = walker_.take();
            sizes_[done_++] = isKnown ? size : unknown;
        }
    }
    void cancel() { walker_.cancel(); }
    WalkFailures unreadable() const { return walker_.unreadable(); }

    /// One item for each URL: those that are done, then the one that is walked and those that are
    /// not begun, which are busy.
    std::vector<std::shared_ptr<MVFileSizeItem>> items() {
        const std::lock_guard lock(mutex_);
        std::vector<std::shared_ptr<MVFileSizeItem>> items;
        items.reserve(sizes_.size());
        for (std::size_t i = 0; i < sizes_.size(); ++i) {
            const auto size = i == done_ ? walker_.bytes() : sizes_[i];
            items.push_back(MVFileSizeItem::initWithSize(size));
            items.back()->setBusy(i >= done_);
        }
        return items;
    }

  private:
    const std::vector<NSURL> urls_;
    const PathRule rule_;
    SizeWalker walker_;
    std::mutex mutex_;
    std::vector<std::int64_t> sizes_;
    std::size_t done_ = 0;
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
