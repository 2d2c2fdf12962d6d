#include "SizeRequests.h"

#include <MorvaneOperation/MVFileResponse.h>
#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>

#include "RequestErrors.h"
#include "SizeWalker.h"

namespace morvane {
namespace {

/// A few times a second: often enough to look alive and to be stopped, too seldom to cost anything.
constexpr std::chrono::milliseconds interval{250};

/// Tells the client how far a walk is, and stops the walk when the client says no or has gone.
class ProgressReport : public std::enable_shared_from_this<ProgressReport> {
  public:
    ProgressReport(std::size_t count, std::weak_ptr<NSXPCConnection> client)
        : client_(std::move(client)), sizes_(count, unknown) {}

    /// Before the walk begins. The answers of the client may come after its end.
    void setWalker(std::weak_ptr<SizeWalker> walker) { walker_ = std::move(walker); }

    bool goesOn() const { return goesOn_; }

    /// Between items, each of which may be too small for its walk to tell anything.
    void tellIfDue(std::size_t index) {
        if (std::chrono::steady_clock::now() - lastTold_ >= interval)
            tell(index, 0);
    }
    void setSize(std::size_t index, std::int64_t size) { sizes_[index] = size; }

    /// `index` is the item that is being walked.
    bool tell(std::size_t index, std::int64_t bytesSoFar) {
        const auto client = client_.lock();
        if (!client) {
            stop();
            return false;
        }
        lastTold_ = std::chrono::steady_clock::now();
        sizes_[index] = bytesSoFar;
        std::vector<std::shared_ptr<MVFileSizeItem>> items;
        items.reserve(sizes_.size());
        for (std::size_t i = 0; i < sizes_.size(); ++i) {
            auto& item = items.emplace_back(MVFileSizeItem::initWithSize(sizes_[i]));
            item->setBusy(i >= index);
        }
        const auto answer = [self = shared_from_this()](bool yes) {
            if (!yes)
                self->stop();
        };
        const auto proxy = client->remoteObjectProxyWithErrorHandler<MVFileResponse>(
            [self = shared_from_this()](NSErrorRef error) {
                // A client that merely has no answer for us lets the work go on.
                if (error->code() != NSXPCConnectionReplyInvalid)
                    self->stop();
            });
        proxy->updateFileSizes(std::move(items), answer);
        proxy->progressWithReply(answer);
        return goesOn_;
    }

  private:
    static constexpr std::int64_t unknown = -1;

    void stop() {
        goesOn_ = false;
        if (const auto walker = walker_.lock())
            walker->cancel();
    }

    const std::weak_ptr<NSXPCConnection> client_;
    std::weak_ptr<SizeWalker> walker_;
    std::vector<std::int64_t> sizes_;
    std::chrono::steady_clock::time_point lastTold_ = std::chrono::steady_clock::now();
    std::atomic<bool> goesOn_ = true;
};

NSErrorRef skippedError(const SizeWalker::Unreadable& unreadable) {
    const auto url = NSURL::fileURLWithPath(unreadable.first);
    const auto reason = NSError::errorWithDomain(NSPOSIXErrorDomain, unreadable.error);
    // The URL's text: a path need not be text.
    return posixError(unreadable.error, url,
                      std::to_string(unreadable.count) +
                          (unreadable.count == 1 ? " item" : " items") +
                          " could not be read and count as nothing; the first is " +
                          url.absoluteString() + " (" + reason->localizedDescription() + ")");
}

}  // namespace

SizesAnswer sizesOfUrls(const std::vector<NSURL>& urls,
                        const std::weak_ptr<NSXPCConnection>& client, const PathRule& rule) {
    for (const auto& url : urls) {
        if (!url.isFileURL())
            return {{}, posixError(EINVAL, url, "Only files and folders have a size.")};
        if (!rule.onBehalfOf)
            continue;
        // A link at the end of the path is an item of its own, here as everywhere.
        const auto opened = openPath(url.path(), O_PATH | O_NOFOLLOW, rule);
        if (const auto* code = std::get_if<int>(&opened))
            return {{}, posixError(*code, url)};
    }
    const auto report = std::make_shared<ProgressReport>(urls.size(), client);
    std::size_t current = 0;
    const auto walker = std::make_shared<SizeWalker>(
        [&](std::int64_t bytes, std::uint64_t) { return report->tell(current, bytes); }, interval);
    report->setWalker(walker);
    SizesAnswer answer;
    for (; current < urls.size(); ++current) {
        report->tellIfDue(current);
        const auto size = report->goesOn() ? walker->sizeOf(urls[current].path()) : -1;
        report->setSize(current, size);
        auto& item = answer.sizes.emplace_back(MVFileSizeItem::initWithSize(size));
        item->setBusy(!report->goesOn());
    }
    if (!report->goesOn()) {
        answer.error = posixError(ECANCELED, urls.front(), "The computation was cancelled.");
    } else if (walker->unreadable().count > 0) {
        answer.error = skippedError(walker->unreadable());
    }
    return answer;
}

}  // namespace morvane
