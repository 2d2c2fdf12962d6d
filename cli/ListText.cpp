// SPDX-License-Identifier: MIT
#include "ListText.h"

#include <MorvaneOperation/Nfs4AclEntries.h>
#include <MorvaneOperation/PosixAclEntries.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <iterator>
#include <utility>

namespace morvane {

namespace {

std::string unquoted(std::string_view text) {
    constexpr std::size_t digits = 3;
    constexpr int octal = 8;
    std::string path;
    while (!text.empty()) {
        if (text.starts_with("\\\\")) {
            path += '\\';
            text.remove_prefix(2);
            continue;
        }
        const auto value = text.front() == '\\' && text.size() > digits
                               ? numberIn<unsigned>(text.substr(1, digits), octal)
                               : std::nullopt;
        path += value ? static_cast<char>(*value) : text.front();
        text.remove_prefix(value ? digits + 1 : 1);
    }
    return path;
}
}  // namespace

std::string quotedPath(std::string_view path) {
    std::string text;
    for (const char c : path) {
        if (c == '\n' || c == '\r' || c == '\\') {
            constexpr unsigned lowBits = 7;
            const auto byte = static_cast<unsigned char>(c);
            text += {'\\', static_cast<char>('0' + (byte >> 6U)),
                     static_cast<char>('0' + (byte >> 3U & lowBits)),
                     static_cast<char>('0' + (byte & lowBits))};
        } else {
            text += c;
        }
    }
    return text;
}
std::vector<ListText> parsedLists(std::string_view text, UnknownNames unknown, Problem& problem) {
    constexpr std::string_view pathHead = "# file: ";
    std::vector<ListText> lists;
    bool isOpen = false;
    std::size_t number = 0;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        const auto whole = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        ++number;
        const auto line = trimmed(whole);
        if (line.empty()) {
            isOpen = false;
            continue;
        }
        if (!isOpen || line.starts_with("# file:")) {
            lists.emplace_back();
            isOpen = true;
        }
        auto& list = lists.back();
        const auto take = [&](std::string_view head, std::string& value) {
            if (line.starts_with(head))
                value = unquoted(trimmed(line.substr(head.size())));
        };
        if (line.front() == '#') {
            take("# file:", list.path);
            // A name may begin and end with blanks.
            if (whole.starts_with(pathHead))
                list.path = unquoted(whole.substr(
                    pathHead.size(),
                    whole.ends_with('\r') ? whole.size() - pathHead.size() - 1 : whole.npos));
            take("# owner:", list.owner);
            take("# group:", list.group);
            take("# flags:", list.flags);
            take("# item:", list.item);
            take("# became:", list.became);
        } else if (isNfs4Line(line)) {
            list.nfs4.push_back(nfs4Entry(line, unknown, problem));
        } else {
            list.posix.push_back(textEntry(line, true, unknown, problem));
        }
        if (!problem && !list.nfs4.empty() && !list.posix.empty())
            problem = say("entries of a POSIX list and of an NFSv4 list stand in one");
        if (problem) {
            problem = say("line %1: %2", number, *problem);
            return {};
        }
    }
    // Comments without an entry are not a list.
    std::erase_if(lists, [](const ListText& list) {
        return list.path.empty() && list.posix.empty() && list.nfs4.empty();
    });
    return lists;
}

std::string listAsText(std::string_view path, const EntryList& entries, const std::string& flags) {
    const auto list = ItemList::asRead(entries);
    if (!list)
        return {};
    const auto& item = list->item();
    const auto name = [](std::uint32_t id, bool isGroup) {
        return nameOfNumber(id, isGroup).value_or(std::to_string(id));
    };
    std::string text = "# file: " + quotedPath(path) + "\n# owner: " + name(item.owner, false) +
                       "\n# group: " + name(item.group, true) + '\n';
    if (!flags.empty())
        text += "# flags: " + flags + '\n';
    if (const auto acl = list->storedPosixAcl())
        text += linesOfPosix(*acl);
    else
        text +=
            linesOfNfs4(nfs4AclOfEntries(entries, {}, {item.owner, item.group, item.isDirectory},
                                         namesOfThisSystem())
                            .acl);
    return text + '\n';
}
EntryList entriesOfText(const ListText& list, const MVAclOrigin::Values& item, Problem& problem) {
    EntryList entries;
    MVAclOrigin::StoredLists stored;
    if (!list.nfs4.empty()) {
        entries = entriesOfNfs4Acl({.entries = list.nfs4},
                                   {item.owner, item.group, item.isDirectory}, namesOfThisSystem());
    } else if (const auto acl = posixAclOfText(list.posix, item, problem)) {
        entries = entriesOfPosixAcl(*acl);
        stored = storedListsOf(*acl);
    }
    const auto origin = MVAclOrigin::initWithValues(item, std::move(stored));
    for (const auto& entry : entries)
        entry->setOrigin(origin);
    return entries;
}

std::string contentOfFile(const std::string& path, Problem& problem) {
    std::string content;
    std::ifstream file;
    errno = 0;
    if (path != "-")
        file.open(path, std::ios::binary);
    std::istream& from = path == "-" ? std::cin : file;
    std::array<char, std::size_t{64} << 10> block{};
    while (from && content.size() <= mostContent) {
        from.read(block.data(), block.size());
        content.append(block.data(), static_cast<std::size_t>(from.gcount()));
    }
    if ((path != "-" && !file.is_open()) || from.bad() || errno == EISDIR)
        problem = say("'%1' cannot be read: %2", escaped(path), Phrase::ofSystemError(errno));
    else if (content.size() > mostContent)
        problem =
            say("'%1' holds more than %2 MiB, which is no file of lists, or one to be divided",
                escaped(path), mostContent >> 20);
    return content;
}

}  // namespace morvane
