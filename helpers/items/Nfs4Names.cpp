// SPDX-License-Identifier: MIT
#include "Nfs4Names.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fstream>
#include <variant>

namespace morvane {

namespace {

constexpr std::size_t maxRecordSize = std::size_t{1} << 24;

/// Calls one of the get...r() functions with a buffer that is large enough; returns whether it
/// found a record.
template <class Record, class Call>
bool findRecord(Record& record, std::vector<char>& buffer, Call&& call) {
    buffer.resize(16384);
    for (;;) {
        Record* found = nullptr;
        const int code = call(&record, buffer.data(), buffer.size(), &found);
        if (code != ERANGE || buffer.size() >= maxRecordSize)
            return code == 0 && found;
        buffer.resize(buffer.size() * 2);
    }
}

std::optional<CBPosixIdentity> identityCalled(const std::string& name, bool isGroup) {
    std::vector<char> buffer;
    if (isGroup) {
        struct group record {};
        if (findRecord(record, buffer,
                       [&](auto... rest) { return getgrnam_r(name.c_str(), rest...); }))
            return CBPosixGroup{record.gr_gid};
    } else {
        struct passwd record {};
        if (findRecord(record, buffer,
                       [&](auto... rest) { return getpwnam_r(name.c_str(), rest...); }))
            return CBPosixUser{record.pw_uid};
    }
    return std::nullopt;
}

std::optional<std::string> nameOfIdentity(const CBPosixIdentity& identity) {
    std::vector<char> buffer;
    if (const auto* user = std::get_if<CBPosixUser>(&identity)) {
        struct passwd record {};
        if (findRecord(record, buffer,
                       [&](auto... rest) { return getpwuid_r(user->uid, rest...); }))
            return record.pw_name;
    }
    if (const auto* group = std::get_if<CBPosixGroup>(&identity)) {
        struct group record {};
        if (findRecord(record, buffer,
                       [&](auto... rest) { return getgrgid_r(group->gid, rest...); }))
            return record.gr_name;
    }
    return std::nullopt;
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::optional<CBPosixIdentity> identityOfName(const std::string& who, bool isGroup) {
    if (auto identity = identityCalled(who, isGroup))
        return identity;
    const auto at = who.rfind('@');
    if (at == std::string::npos || at == 0)
        return std::nullopt;
    if (lowerCase(who.substr(at + 1)) != systemNfs4Domain())
        return std::nullopt;
    return identityCalled(who.substr(0, at), isGroup);
}

}  // namespace

std::string nfs4DomainOf(std::istream& settingsOfIdmapd, const std::string& hostName) {
    std::string section;
    for (std::string line; std::getline(settingsOfIdmapd, line);) {
        line.erase(std::remove_if(line.begin(), line.end(),
                                  [](unsigned char c) { return std::isspace(c); }),
                   line.end());
        line = lowerCase(line.substr(0, line.find_first_of("#;")));
        if (line.starts_with('['))
            section = line;
        else if (section == "[general]" && line.starts_with("domain=") && line.size() > 7)
            return line.substr(7);
    }
    const auto dot = hostName.find('.');
    if (dot != std::string::npos && dot + 1 < hostName.size())
        return lowerCase(hostName.substr(dot + 1));
    return "localdomain";
}

std::string systemNfs4Domain() {
    char host[256] = {};
    if (gethostname(host, sizeof host - 1) != 0)
        host[0] = '\0';
    std::ifstream settings("/etc/idmapd.conf");
    return nfs4DomainOf(settings, host);
}

Nfs4Names systemNfs4Names() {
    return {identityOfName, nameOfIdentity};
}

}  // namespace morvane
