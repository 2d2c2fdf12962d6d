// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/identity/CBIdentity.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <map>
#include <mutex>
#include <utility>

namespace morvane {
namespace {

using Clock = CBIdentityAuthority::Clock;

constexpr const char* everyoneName = "everyone";

/// Counted from the answer, however late that comes. Long enough for a list to be shown, short
/// enough for a new user to be noticed.
constexpr auto lifetime = std::chrono::seconds(5);
/// Names and UUIDs come from files and peers: what is remembered of them is bounded.
constexpr std::size_t maxRemembered = 4096;

template <class Key>
class Memory {
  public:
    std::optional<CBIdentityRef> find(const Key& key, Clock::time_point now) {
        const std::lock_guard lock(mutex_);
        const auto found = entries_.find(key);
        if (found == entries_.end() || now >= found->second.until)
            return std::nullopt;
        return found->second.identity;
    }

    void remember(const Key& key, CBIdentityRef identity, Clock::time_point now) {
        const std::lock_guard lock(mutex_);
        if (entries_.size() >= maxRemembered)
            entries_.clear();
        entries_.insert_or_assign(key, Entry{std::move(identity), now + lifetime});
    }

    void clear() {
        const std::lock_guard lock(mutex_);
        entries_.clear();
    }

  private:
    struct Entry {
        CBIdentityRef identity;
        Clock::time_point until;
    };
    std::mutex mutex_;
    std::map<Key, Entry> entries_;
};

const CBIdentityRef& everyone() {
    // Never destroyed: another thread may decode while the process ends.
    static const auto& identity = *new CBIdentityRef(
        std::make_shared<const CBIdentity>(uuidOfPosixIdentity(CBEveryone{}), everyoneName, true));
    return identity;
}

}  // namespace

UserDatabase::~UserDatabase() = default;

struct CBIdentityAuthority::State {
    /// Lasts for as long as it is asked, even if another takes its place meanwhile.
    std::shared_ptr<UserDatabase> inUse() {
        const std::lock_guard lock(mutex);
        return database;
    }
    /// Unless another database has come since `asked` was.
    template <class Key>
    void remember(Memory<Key>& memory, const Key& key, const CBIdentityRef& identity,
                  const std::shared_ptr<UserDatabase>& asked) {
        const std::lock_guard lock(mutex);
        if (asked == database)
            memory.remember(key, identity, now());
    }

    std::mutex mutex;
    std::shared_ptr<UserDatabase> database;
    std::function<Clock::time_point()> now;
    Memory<NSUUID> byUUID;
    Memory<std::string> byName;
};

CBIdentityAuthority& CBIdentityAuthority::defaultIdentityAuthority() {
    static auto* const authority = new CBIdentityAuthority(systemUserDatabase());
    return *authority;
}

CBIdentityAuthority::CBIdentityAuthority(std::shared_ptr<UserDatabase> database,
                                         std::function<Clock::time_point()> now)
    : state_(std::make_unique<State>()) {
    state_->database = std::move(database);
    state_->now = std::move(now);
}

CBIdentityAuthority::~CBIdentityAuthority() = default;

void CBIdentityAuthority::setDatabase(std::shared_ptr<UserDatabase> database) {
    if (!database)
        database = systemUserDatabase();
    const std::lock_guard lock(state_->mutex);
    state_->database.swap(database);
    state_->byUUID.clear();
    state_->byName.clear();
}

UserDatabase& CBIdentityAuthority::database() const {
    return *state_->database;
}

std::shared_ptr<const CBIdentity> CBIdentity::identityWithUniqueIdentifier(
    const NSUUID& uuid, const CBIdentityAuthority& authority) {
    const auto posix = posixIdentityOfUUID(uuid);
    if (!posix)
        return nullptr;
    if (std::holds_alternative<CBEveryone>(*posix))
        return everyone();
    if (const auto* creator = std::get_if<CBCreator>(&*posix))
        return std::make_shared<const CBIdentity>(
            uuid, creator->isGroup ? "creator group" : "creator", creator->isGroup);
    auto& state = *authority.state_;
    if (const auto known = state.byUUID.find(uuid, state.now()))
        return *known;
    const auto* user = std::get_if<CBPosixUser>(&*posix);
    const auto database = state.inUse();
    auto record = user ? database->userWithId(user->uid)
                       : database->groupWithId(std::get<CBPosixGroup>(*posix).gid);
    CBIdentityRef identity;
    if (record)
        identity = std::make_shared<const CBIdentity>(uuid, std::move(record->name), !user);
    state.remember(state.byUUID, uuid, identity, database);
    return identity;
}

std::shared_ptr<const CBIdentity> CBIdentity::identityWithName(
    const std::string& name, const CBIdentityAuthority& authority) {
    if (name == everyoneName)
        return everyone();
    auto& state = *authority.state_;
    if (const auto known = state.byName.find(name, state.now()))
        return *known;
    CBIdentityRef identity;
    const auto database = state.inUse();
    if (auto user = database->userWithName(name)) {
        identity = std::make_shared<const CBIdentity>(uuidOfPosixIdentity(CBPosixUser{user->id}),
                                                      std::move(user->name), false);
    } else if (auto group = database->groupWithName(name)) {
        identity = std::make_shared<const CBIdentity>(uuidOfPosixIdentity(CBPosixGroup{group->id}),
                                                      std::move(group->name), true);
    }
    state.remember(state.byName, name, identity, database);
    return identity;
}

std::string NSUserName() {
    return CBIdentityAuthority::defaultIdentityAuthority().database().currentUserName();
}

}  // namespace morvane
