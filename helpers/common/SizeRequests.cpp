#include "SizeRequests.h"

#include <fcntl.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "ClientQuestion.h"
#include "RequestErrors.h"
#include "SizeWalker.h"

namespace morvane {
namespace {

constexpr std::int64_t unknown = -1;
/// A link at the end of the path is an item of its own, here as everywhere.
constexpr int itemFlags = O_PATH | O_NOFOLLOW;

/// Tells the client how far a walk is, and asks it whether to go on.
class ProgressReport {
  public:
    ProgressReport(std::size_t count, const std::weak_ptr<NSXPCConnection>& client,
                   const std::weak_ptr<SizeWalker>& walker, SizeWalker::Pace pace)
        : question_(std::make_shared<ClientQuestion>(client,
                                                     [walker] {
                                                         if (const auto walk = walker.lock())
                                                             walk->cancel();
                                                     })),
          pace_(std::move(pace)),
          sizes_(count, unknown),
          lastTold_(pace_.now()) {}

    bool goesOn() const { return question_->goesOn(); }

    /// Between items, each of which may be too small for its walk to tell anything.
    void tellIfDue(std::size_t index) {
        if (pace_.now() - lastTold_ >= pace_.interval)
            tell(index, 0);
    }
    void setSize(std::size_t index, std::int64_t size) { sizes_[index] = size; }

    /// `index` is the item that is being walked.
    bool tell(std::size_t index, std::int64_t bytesSoFar) {
        lastTold_ = pace_.now();
        sizes_[index] = bytesSoFar;
        return question_->ask([&](MVFileResponse& client, const ClientQuestion::Answer& answer) {
            std::vector<std::shared_ptr<MVFileSizeItem>> items;
            items.reserve(sizes_.size());
            for (std::size_t i = 0; i < sizes_.size(); ++i) {
                auto& item = items.emplace_back(MVFileSizeItem::initWithSize(sizes_[i]));
                item->setBusy(i >= index);
            }
            client.updateFileSizes(std::move(items), answer);
        });
    }

  private:
    const std::shared_ptr<ClientQuestion> question_;
    const SizeWalker::Pace pace_;
    std::vector<std::int64_t> sizes_;
    SizeWalker::Pace::Clock::time_point lastTold_;
};

std::string skippedText(const SizeWalker::Unreadable& unreadable) {
    const auto url = NSURL::fileURLWithPath(unreadable.first);
    const auto reason = NSError::errorWithDomain(NSPOSIXErrorDomain, unreadable.error);
    const auto first = quotedPath(url) + " (" + reason->localizedDescription() + ")";
    return unreadable.count == 1
               ? "1 item could not be read and counts as nothing: " + first
               : std::to_string(unreadable.count) +
                     " items could not be read and count as nothing; the first is " + first;
}

std::int64_t sizeOfUrl(SizeWalker& walker, const NSURL& url, const PathRule& rule) {
    const auto& path = url.path();
    if (!rule.onBehalfOf)
        return walker.sizeOf(path);
    const auto opened = openPath(path, itemFlags, rule);
    if (const auto* item = std::get_if<FileDescriptor>(&opened))
        return walker.sizeOf(path, item->get());
    walker.cannotRead(path, std::get<int>(opened));
    return 0;
}

}  // namespace

SizesAnswer sizesOfUrls(const std::vector<NSURL>& urls,
                        const std::weak_ptr<NSXPCConnection>& client, const PathRule& rule,
                        SizeWalker::Pace pace) {
    for (const auto& url : urls) {
        if (!url.isFileURL())
            return {{}, posixError(EINVAL, url, "Only files and folders have a size.")};
    }
    std::optional<ProgressReport> report;
    std::size_t current = 0;
    const auto walker = std::make_shared<SizeWalker>(
        [&](std::int64_t bytes, std::uint64_t) { return report->tell(current, bytes); }, pace);
    report.emplace(urls.size(), client, walker, std::move(pace));
    SizesAnswer answer;
    for (; current < urls.size(); ++current) {
        report->tellIfDue(current);
        const auto size = report->goesOn() ? sizeOfUrl(*walker, urls[current], rule) : unknown;
        report->setSize(current, size);
        auto& item = answer.sizes.emplace_back(MVFileSizeItem::initWithSize(size));
        item->setBusy(!report->goesOn());
    }
    const auto& unreadable = walker->unreadable();
    const auto skipped = unreadable.count > 0 ? skippedText(unreadable) : "";
    if (!report->goesOn())
        answer.error = posixError(
            ECANCELED, urls.front(),
            "The computation was cancelled." + (skipped.empty() ? "" : " " + skipped + "."));
    else if (unreadable.count > 0)
        answer.error =
            posixError(unreadable.error, NSURL::fileURLWithPath(unreadable.first), skipped);
    return answer;
}

}  // namespace morvane
