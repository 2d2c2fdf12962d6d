// SPDX-License-Identifier: MIT
#include "RequestJournal.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace morvane {

namespace {

/// No user has this number, which stands for all who are not remembered.
constexpr std::int64_t otherUsers = -2;

std::string nameOf(const RequestClient& client) {
    return "uid " + std::to_string(client.user) + " pid " + std::to_string(client.process) + ": ";
}

std::string andMore(std::size_t items) {
    return " and " + std::to_string(items) + " more";
}

}  // namespace

RequestJournal::Request::Request(std::shared_ptr<RequestJournal> journal,
                                 const RequestClient& client, std::string_view selector,
                                 const RequestItems& items)
    : journal_(std::move(journal)),
      client_(client),
      selector_(selector),
      items_(items.count == 0   ? ""
             : items.count == 1 ? items.text(0)
                                : items.text(0) + andMore(items.count - 1)) {
    const std::lock_guard lock(journal_->mutex_);
    tellBegin(items);
    journal_->running_.insert(this);
    ++journal_->begun_;
}

RequestJournal::Request::~Request() {
    const std::lock_guard lock(journal_->mutex_);
    try {
        end("dropped", "It was not answered.");
    } catch (const std::exception&) {
        // There is no memory for a line.
    }
    journal_->running_.erase(this);
    journal_->ended_.notify_all();
}

void RequestJournal::Request::done() {
    const std::lock_guard lock(journal_->mutex_);
    end("done", "");
}

void RequestJournal::Request::failed(std::string_view why) {
    const std::lock_guard lock(journal_->mutex_);
    end("failed", why);
}

void RequestJournal::Request::end(std::string_view outcome, std::string_view why) {
    if (!std::exchange(hasEnded_, true))
        journal_->sink_(line(outcome, why) + (items_.empty() ? "" : " " + items_));
}

std::string RequestJournal::Request::line(std::string_view outcome, std::string_view why) const {
    return std::string(outcome) + ": " + nameOf(client_) + selector_ +
           (why.empty() ? "" : " " + escapedForLog(why));
}

void RequestJournal::Request::tellBegin(const RequestItems& items) const {
    const auto begun = line("begun", "");
    if (items.count == 0)
        journal_->sink_(begun);
    std::size_t bytes = 0;
    for (std::size_t i = 0; i != items.count; ++i) {
        const auto one = begun + " " + items.text(i);
        bytes += one.size();
        if (bytes > bytesOfOneRequest) {
            journal_->sink_(begun + andMore(items.count - i));
            return;
        }
        journal_->sink_(one);
    }
}

RequestJournal::RequestJournal(Sink sink, Clock clock)
    : sink_(std::move(sink)), clock_(std::move(clock)) {}

void RequestJournal::refused(const RequestClient& client, std::string_view selector,
                             std::string_view why) {
    const std::lock_guard lock(mutex_);
    const auto found = refusalsOf(client.accountable.value_or(client.user));
    auto& refusals = found->second;
    if (!takeLine(refusals)) {
        ++refusals.leftOut;
        return;
    }
    tellLeftOut(found->first, refusals);
    sink_("refused: " + nameOf(client) + std::string(selector) + " " + escapedForLog(why));
}

std::shared_ptr<RequestJournal::Request> RequestJournal::begin(const RequestClient& client,
                                                               std::string_view selector,
                                                               const RequestItems& items) {
    return std::make_shared<Request>(shared_from_this(), client, selector, items);
}

std::optional<std::uint64_t> RequestJournal::begunWhileNoneRuns() const {
    const std::lock_guard lock(mutex_);
    const bool isIdle = std::all_of(running_.begin(), running_.end(),
                                    [](const Request* request) { return request->hasEnded_; });
    return isIdle ? std::optional(begun_) : std::nullopt;
}

void RequestJournal::tellLeftOut() {
    const std::lock_guard lock(mutex_);
    for (auto& [user, refusals] : refusals_) {
        if (refusals.leftOut > 0 && takeLine(refusals))
            tellLeftOut(user, refusals);
    }
}

void RequestJournal::close(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    ended_.wait_for(lock, patience, [&] { return running_.empty(); });
    for (auto* request : running_)
        request->end("unfinished", "The helper ends.");
    for (auto& [user, refusals] : refusals_)
        tellLeftOut(user, refusals);
}

bool RequestJournal::takeLine(Refusals& refusals) const {
    const auto now = clock_();
    if (refusals.whole > now + (refusalsAtOnce - 1) * refusalInterval)
        return false;
    refusals.whole = std::max(refusals.whole, now) + refusalInterval;
    return true;
}

void RequestJournal::tellLeftOut(std::int64_t user, Refusals& refusals) {
    if (refusals.leftOut == 0)
        return;
    sink_("refused: " + (user == otherUsers ? "other users" : "uid " + std::to_string(user)) +
          ": " + std::to_string(refusals.leftOut) + " more, left out here");
    refusals.leftOut = 0;
}

std::map<std::int64_t, RequestJournal::Refusals>::iterator RequestJournal::refusalsOf(
    std::int64_t user) {
    const auto known = refusals_.find(user);
    if (known != refusals_.end())
        return known;
    if (refusals_.size() >= usersRemembered) {
        std::erase_if(refusals_, [now = clock_()](const auto& each) {
            return each.second.leftOut == 0 && each.second.whole <= now;
        });
        if (refusals_.size() >= usersRemembered)
            user = otherUsers;
    }
    return refusals_.try_emplace(user).first;
}

std::string escapedForLog(std::string_view text) {
    constexpr std::size_t longest = 4096;
    constexpr const char* digits = "0123456789abcdef";
    std::string escaped;
    for (const char c : text) {
        if (escaped.size() >= longest)
            break;
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte >= 0x7F || c == '\\' || c == '"') {
            escaped += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
        } else {
            escaped += c;
        }
    }
    return escaped;
}

}  // namespace morvane
