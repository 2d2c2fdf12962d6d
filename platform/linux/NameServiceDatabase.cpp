// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <vector>

namespace morvane {
namespace {

using Record = UserDatabase::Record;

/// A record that does not fit into so many bytes is ignored: a group with that many members should
/// not be held in memory.
constexpr std::size_t maxRecordSize = std::size_t{16} << 20;

/// The kernel gives no process more groups than this.
constexpr std::size_t maxGroups = std::size_t{1} << 17;

/// Calls one of the get...._r functions with a buffer that grows until the record fits.
template <class Entry, class Call>
std::optional<Entry> ask(std::vector<char>& buffer, Call call) {
    buffer.resize(1024);
    for (;;) {
        Entry entry{};
        Entry* found = nullptr;
        const int code = call(&entry, buffer.data(), buffer.size(), &found);
        if (code == EINTR)
            continue;
        if (code == ERANGE && buffer.size() < maxRecordSize) {
            buffer.resize(buffer.size() * 4);
            continue;
        }
        if (code != 0 || !found)
            return std::nullopt;
        return entry;
    }
}

class NameServiceDatabase final : public UserDatabase {
  public:
    std::optional<Record> userWithId(std::uint32_t uid) override {
        return user([uid](passwd* entry, char* buffer, std::size_t size, passwd** found) {
            return getpwuid_r(uid, entry, buffer, size, found);
        });
    }

    std::optional<Record> userWithName(const std::string& name) override {
        return user([&](passwd* entry, char* buffer, std::size_t size, passwd** found) {
            return getpwnam_r(name.c_str(), entry, buffer, size, found);
        });
    }

    std::optional<Record> groupWithId(std::uint32_t gid) override {
        return group([gid](::group* entry, char* buffer, std::size_t size, ::group** found) {
            return getgrgid_r(gid, entry, buffer, size, found);
        });
    }

    std::optional<Record> groupWithName(const std::string& name) override {
        return group([&](::group* entry, char* buffer, std::size_t size, ::group** found) {
            return getgrnam_r(name.c_str(), entry, buffer, size, found);
        });
    }

    std::vector<Record> allUsers() override {
        const std::lock_guard lock(enumeration_);
        std::vector<Record> records;
        setpwent();
        while (const passwd* entry = getpwent())
            records.push_back({entry->pw_uid, entry->pw_name});
        endpwent();
        return records;
    }

    std::vector<Record> allGroups() override {
        const std::lock_guard lock(enumeration_);
        std::vector<Record> records;
        setgrent();
        while (const ::group* entry = getgrent())
            records.push_back({entry->gr_gid, entry->gr_name});
        endgrent();
        return records;
    }

    std::vector<std::uint32_t> groupsOfUser(std::uint32_t uid) override {
        std::vector<char> buffer;
        const auto entry =
            ask<passwd>(buffer, [uid](passwd* e, char* b, std::size_t size, passwd** found) {
                return getpwuid_r(uid, e, b, size, found);
            });
        if (!entry)
            return {};
        std::vector<gid_t> groups(64);
        auto count = static_cast<int>(groups.size());
        while (getgrouplist(entry->pw_name, entry->pw_gid, groups.data(), &count) < 0) {
            // The call has returned the number that it needs; the database may have grown
            // meanwhile.
            groups.resize(std::max(groups.size() * 2, static_cast<std::size_t>(count)));
            if (groups.size() > maxGroups)
                break;
            count = static_cast<int>(groups.size());
        }
        groups.resize(std::min(groups.size(), static_cast<std::size_t>(std::max(count, 0))));
        return groups;
    }

    std::string currentUserName() override {
        const auto record = userWithId(getuid());
        return record ? record->name : std::string();
    }

  private:
    template <class Call>
    std::optional<Record> user(Call call) {
        std::vector<char> buffer;
        const auto entry = ask<passwd>(buffer, call);
        if (!entry)
            return std::nullopt;
        return Record{entry->pw_uid, entry->pw_name};
    }

    template <class Call>
    std::optional<Record> group(Call call) {
        std::vector<char> buffer;
        const auto entry = ask<::group>(buffer, call);
        if (!entry)
            return std::nullopt;
        return Record{entry->gr_gid, entry->gr_name};
    }

    /// There is one enumeration in the whole process.
    std::mutex enumeration_;
};

}  // namespace

std::shared_ptr<UserDatabase> systemUserDatabase() {
    return std::make_shared<NameServiceDatabase>();
}

}  // namespace morvane
