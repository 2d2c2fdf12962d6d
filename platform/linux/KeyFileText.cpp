// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/KeyFileText.h>

#include <algorithm>
#include <functional>
#include <optional>

namespace morvane::key_file {
namespace {

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\f\v";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

struct Line {
    std::size_t begin;
    std::size_t end;  // This is before the end of the line.
    std::string_view key;
    std::string_view value;
};

/// Calls `visit` for each key of the group; returns where a line can be inserted at the end of the
/// group, if the text has the group.
std::optional<std::size_t> forEachKey(std::string_view text,
                                      const std::function<void(const Line&)>& visit) {
    std::optional<std::size_t> place;
    bool inside = false;
    for (std::size_t begin = 0; begin < text.size();) {
        const auto end = std::min(text.find('\n', begin), text.size());
        const auto next = std::min(end + 1, text.size());
        const auto line = trimmed(text.substr(begin, end - begin));
        if (line.starts_with('[')) {
            inside = line == group;
            if (inside)
                place = next;
        } else if (inside && !line.empty() && !line.starts_with('#')) {
            if (const auto equals = line.find('='); equals != std::string_view::npos) {
                visit({begin, end, trimmed(line.substr(0, equals)),
                       trimmed(line.substr(equals + 1))});
            }
            place = next;
        }
        begin = next;
    }
    return place;
}

}  // namespace

DefaultsStore::Values parse(std::string_view text) {
    DefaultsStore::Values values;
    forEachKey(text, [&](const Line& line) {
        if (!line.key.empty())
            values.insert_or_assign(std::string(line.key), line.value);
    });
    return values;
}

std::string withValue(std::string_view text, std::string_view key, std::string_view value) {
    const auto assignment = std::string(key) + "=" + std::string(value);
    std::optional<Line> last;
    const auto place = forEachKey(text, [&](const Line& line) {
        if (line.key == key)
            last = line;
    });
    std::string result(text);
    if (last) {
        result.replace(last->begin, last->end - last->begin, assignment);
        return result;
    }
    auto at = place.value_or(text.size());
    if (at > 0 && result[at - 1] != '\n')
        result.insert(at++, 1, '\n');
    return result.insert(at, (place ? "" : std::string(group) + "\n") + assignment + "\n");
}

}  // namespace morvane::key_file
