// SPDX-License-Identifier: MIT
#include "IdentitySearch.h"

#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <tuple>
#include <utility>

#include "ClientOperation.h"

namespace morvane {

namespace {

/// How long the list of everybody is kept: while somebody types, and looks at the results.
constexpr auto lifetime = std::chrono::seconds(30);

/// The text with the letters of ASCII made small.
std::string folded(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return text;
}

/// One call of the host, until it is answered.
class Query {
  public:
    using Reply = std::function<void(Result<IdentitySearch::Identities>)>;

    explicit Query(Reply reply) : reply_(std::move(reply)) {}

    bool isWaiting() const { return !isAnswered_; }
    void answer(Result<IdentitySearch::Identities> answer) {
        if (!isAnswered_.exchange(true))
            reply_(std::move(answer));
    }
    std::optional<std::stop_callback<std::function<void()>>> whenStopped;

  private:
    const Reply reply_;
    std::atomic<bool> isAnswered_ = false;
};

}  // namespace

IdentitySearch::IdentitySearch() : queue_(DispatchQueue::serialQueue(nullptr)) {}

void IdentitySearch::find(std::string text, const std::stop_token& stop,
                          std::function<void(Result<Identities>)> reply) {
    const auto query = std::make_shared<Query>(std::move(reply));
    query->whenStopped.emplace(stop, [weak = std::weak_ptr(query)] {
        if (const auto self = weak.lock())
            self->answer(Failure{cancellation()});
    });
    queue_->async([self = shared_from_this(), query, text = std::move(text)] {
        if (!query->isWaiting())
            return;
        try {
            query->answer(self->found(text));
        } catch (const std::exception&) {
            query->answer(Failure{errorOfFailure(std::current_exception())});
        }
    });
}

IdentitySearch::Identities IdentitySearch::found(const std::string& text) {
    const auto wanted = folded(text);
    using Rank = std::tuple<bool, bool, std::string, bool>;
    std::vector<std::pair<Rank, CBIdentityRef>> ranked;
    bool isExact = false;
    for (const auto& identity : all()) {
        auto name = folded(identity->name());
        const auto at = name.find(wanted);
        if (at == std::string::npos)
            continue;
        isExact |= identity->name() == text;
        const bool isWhole = name.size() == wanted.size();
        ranked.emplace_back(Rank(!isWhole, at != 0, std::move(name), identity->isGroup()),
                            identity);
    }
    const auto most = std::min(ranked.size(), MVFileClient::mostIdentities);
    std::partial_sort(ranked.begin(), ranked.begin() + static_cast<std::ptrdiff_t>(most),
                      ranked.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    Identities identities;
    // A directory may know somebody whom it does not list.
    if (!text.empty() && !isExact) {
        if (auto named =
                CBIdentity::identityWithName(text, CBIdentityAuthority::defaultIdentityAuthority()))
            identities.push_back(std::move(named));
    }
    for (std::size_t i = 0; i != most; ++i)
        identities.push_back(std::move(ranked[i].second));
    return identities;
}

const IdentitySearch::Identities& IdentitySearch::all() {
    const auto now = std::chrono::steady_clock::now();
    if (now < goodUntil_)
        return all_;
    auto& authority = CBIdentityAuthority::defaultIdentityAuthority();
    all_.clear();
    for (auto& user : authority.database().allUsers())
        all_.push_back(std::make_shared<CBIdentity>(uuidOfPosixIdentity(CBPosixUser{user.id}),
                                                    std::move(user.name), false));
    all_.push_back(
        CBIdentity::identityWithUniqueIdentifier(uuidOfPosixIdentity(CBEveryone{}), authority));
    for (auto& group : authority.database().allGroups())
        all_.push_back(std::make_shared<CBIdentity>(uuidOfPosixIdentity(CBPosixGroup{group.id}),
                                                    std::move(group.name), true));
    goodUntil_ = std::chrono::steady_clock::now() + lifetime;
    return all_;
}

}  // namespace morvane
