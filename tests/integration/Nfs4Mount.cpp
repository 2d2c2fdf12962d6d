// SPDX-License-Identifier: MIT
// Preloaded into a program, lets it find the lists of a network mount in user attributes: what it
// asks for as system.nfs4_acl is user.nfs4_acl. MORVANE_NFS_SERVER tells what its server is like:
//
//   (not set)   holds every list as it is
//   linux       holds a POSIX list, as Linux's own does: refuses the inherited flag and "one
//   level",
//               and answers with what three rights for each class make of the rest
//   names       holds every list as it is, and knows nobody by number
//   short       takes no list of more than three entries
//
// With any of them a rename that must not overwrite is one that the mount does not know.
#include <dlfcn.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr const char* prefix = "system.nfs4_acl";

bool isList(const char* name) {
    return std::strncmp(name, prefix, std::strlen(prefix)) == 0;
}

std::string stored(const char* name) {
    return isList(name) ? std::string("user") + (name + 6) : name;
}

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::string server() {
    const char* name = std::getenv("MORVANE_NFS_SERVER");
    return name ? name : "";
}

struct Entry {
    std::uint32_t type, flags, mask;
    std::string who;
};
using Entries = std::vector<Entry>;

Entries decoded(const unsigned char* bytes) {
    const auto word = [&] {
        std::uint32_t value = 0;
        for (int i = 0; i != 4; ++i)
            value = value << 8U | *bytes++;
        return value;
    };
    Entries entries(word());
    for (auto& entry : entries) {
        entry.type = word();
        entry.flags = word();
        entry.mask = word();
        const auto length = word();
        entry.who.assign(reinterpret_cast<const char*>(bytes), length);
        bytes += (length + 3) / 4 * 4;
    }
    return entries;
}

std::string encoded(const Entries& entries) {
    std::string bytes;
    const auto add = [&](std::uint32_t value) {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes += static_cast<char>(value >> shift);
    };
    add(static_cast<std::uint32_t>(entries.size()));
    for (const auto& entry : entries) {
        add(entry.type);
        add(entry.flags);
        add(entry.mask);
        add(static_cast<std::uint32_t>(entry.who.size()));
        bytes += entry.who;
        bytes.resize((bytes.size() + 3) / 4 * 4);
    }
    return bytes;
}

constexpr std::uint32_t files = 0x1, folders = 0x2, oneLevel = 0x4, onlyBelow = 0x8, isGroup = 0x40,
                        inherited = 0x80;
constexpr std::uint32_t deny = 1;

/// What the entries so far have decided for a class of the POSIX list.
struct Decided {
    std::uint32_t allowed = 0;
    std::uint32_t denied = 0;

    void decide(const Entry& entry) {
        auto& bits = entry.type == deny ? denied : allowed;
        bits |= entry.mask & ~(allowed | denied);
    }
};

/// One POSIX list, made of allow/deny entries and told as such again.
class PosixList {
  public:
    explicit PosixList(bool isDirectory) : write_(isDirectory ? 0x46 : 0x6) {}

    void add(const Entry& entry) {
        if (entry.who == "OWNER@")
            return owner_.decide(entry);
        const bool toAll = entry.who == "EVERYONE@";
        if (!toAll && entry.who != "GROUP@") {
            auto& named = (entry.flags & isGroup) != 0 ? groups_ : users_;
            auto& who = named.try_emplace(entry.who, others_).first->second;
            who.decide(entry);
            // Whoever comes later is charged with it.
            if (entry.type == deny && &named == &users_)
                owner_.decide({deny, 0, who.denied, {}});
            if (entry.type == deny && &named == &groups_)
                decideForAll({deny, 0, who.denied, {}});
        } else if (toAll) {
            decideForAll(entry);
        } else {
            group_.decide(entry);
            if (entry.type == deny)
                decideForAll({deny, 0, group_.denied, {}});
        }
    }

    void tell(Entries& to, std::uint32_t flags) const {
        const auto rights = [&](const Decided& decided) {
            const auto has = [&](std::uint32_t bits) { return (decided.allowed & bits) == bits; };
            return (has(0x1) ? 4U : 0U) | (has(write_) ? 2U : 0U) | (has(0x20) ? 1U : 0U);
        };
        const auto bits = [&](unsigned of) {
            return ((of & 4U) != 0 ? 0x1U : 0U) | ((of & 2U) != 0 ? write_ : 0U) |
                   ((of & 1U) != 0 ? 0x20U : 0U);
        };
        unsigned users = 0;
        unsigned groups = rights(group_);
        for (const auto& [who, decided] : users_)
            users |= rights(decided);
        for (const auto& [who, decided] : groups_)
            groups |= rights(decided);
        const auto others = rights(others_);
        const auto allow = [&](const std::string& who, unsigned of, std::uint32_t more,
                               std::uint32_t moreFlags) {
            to.push_back({0, flags | moreFlags, bits(of) | 0x120080 | more, who});
        };
        const auto denyWhere = [&](const std::string& who, unsigned of, unsigned later,
                                   std::uint32_t moreFlags) {
            if (const auto less = ~of & later & 7U)
                to.push_back({deny, flags | moreFlags, bits(less), who});
        };
        denyWhere("OWNER@", rights(owner_), users | groups | others, 0);
        allow("OWNER@", rights(owner_), 0x40100, 0);
        for (const auto& [who, decided] : users_) {
            denyWhere(who, rights(decided), groups | others, 0);
            allow(who, rights(decided), 0, 0);
        }
        allow("GROUP@", rights(group_), 0, 0);
        for (const auto& [who, decided] : groups_)
            allow(who, rights(decided), 0, isGroup);
        denyWhere("GROUP@", rights(group_), others, 0);
        for (const auto& [who, decided] : groups_)
            denyWhere(who, rights(decided), others, isGroup);
        allow("EVERYONE@", others, 0, 0);
    }

  private:
    void decideForAll(const Entry& entry) {
        owner_.decide(entry);
        group_.decide(entry);
        others_.decide(entry);
        for (auto* named : {&users_, &groups_}) {
            for (auto& [who, decided] : *named)
                decided.decide(entry);
        }
    }

    const std::uint32_t write_;
    Decided owner_;
    Decided group_;
    Decided others_;
    std::map<std::string, Decided> users_;
    std::map<std::string, Decided> groups_;
};

/// What the server stores of `asked`; empty, with errno set, if it refuses it.
std::optional<Entries> storedByServer(const Entries& asked, bool isDirectory) {
    const auto is = server();
    const auto any = [&](auto&& condition) {
        return std::any_of(asked.begin(), asked.end(), condition);
    };
    if (is == "names" && any([](const Entry& e) {
            return e.who.find_first_not_of("0123456789") == std::string::npos;
        })) {
        errno = EINVAL;
        return std::nullopt;
    }
    const bool refused = (is == "linux" && any([](const Entry& e) {
                              return (e.flags & (oneLevel | inherited)) != 0;
                          })) ||
                         (is == "short" && asked.size() > 3);
    if (refused) {
        errno = EIO;
        return std::nullopt;
    }
    if (is != "linux")
        return asked;
    PosixList own(isDirectory);
    PosixList below(isDirectory);
    bool hasBelow = false;
    for (const auto& entry : asked) {
        if (entry.type > deny)
            continue;
        if ((entry.flags & onlyBelow) == 0)
            own.add(entry);
        if (isDirectory && (entry.flags & (files | folders)) != 0) {
            below.add(entry);
            hasBelow = true;
        }
    }
    Entries stored;
    own.tell(stored, 0);
    if (hasBelow)
        below.tell(stored, files | folders | onlyBelow);
    return stored;
}

}  // namespace

extern "C" {

#pragma GCC visibility push(default)

ssize_t getxattr(const char* path, const char* name, void* value, size_t size) noexcept {
    return next<ssize_t(const char*, const char*, void*, size_t)>("getxattr")(
        path, stored(name).c_str(), value, size);
}

int setxattr(const char* path, const char* name, const void* value, size_t size,
             int flags) noexcept {
    auto* const system = next<int(const char*, const char*, const void*, size_t, int)>("setxattr");
    if (std::strcmp(name, prefix) != 0 || server().empty())
        return system(path, stored(name).c_str(), value, size, flags);
    struct stat status {};
    if (stat(path, &status) != 0)
        return -1;
    const auto list =
        storedByServer(decoded(static_cast<const unsigned char*>(value)), S_ISDIR(status.st_mode));
    if (!list)
        return -1;
    const auto bytes = encoded(*list);
    return system(path, stored(name).c_str(), bytes.data(), bytes.size(), flags);
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
              unsigned flags) noexcept {
    if (flags != 0 && !server().empty()) {
        errno = EINVAL;
        return -1;
    }
    return next<int(int, const char*, int, const char*, unsigned)>("renameat2")(
        fromFolder, from, toFolder, to, flags);
}

#pragma GCC visibility pop

}  // extern "C"
