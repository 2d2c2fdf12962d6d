// SPDX-License-Identifier: MIT
#include "LsCommand.h"

#include <MorvaneOperation/MVFileSizeInfo.h>

#include <algorithm>
#include <array>
#include <ctime>

#include "Failure.h"
#include "JsonDocument.h"
#include "Text.h"

namespace morvane {
namespace {

std::string timeText(std::int64_t seconds, bool isLocal) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if (!(isLocal ? localtime_r(&time, &parts) : gmtime_r(&time, &parts)))
        return std::to_string(seconds);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(),
                                       isLocal ? "%Y-%m-%d %H:%M" : "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

Json jsonOfItem(const std::string& path, const NSURL& url, const std::optional<FileFacts>& facts) {
    auto item = jsonOfPath(path);
    item["name"] = url.lastPathComponent();
    const auto fact = [&](const char* key, auto value) {
        item[key] = facts ? Json(value(*facts)) : Json(nullptr);
    };
    using Facts = const FileFacts&;
    fact("kind", [](Facts f) { return f.kind(); });
    fact("size", [](Facts f) { return f.size; });
    fact("mode", [](Facts f) { return f.modeText().substr(0, 10); });
    fact("hasList", [](Facts f) { return f.hasList; });
    fact("owner", [](Facts f) { return jsonOfOwner(f.owner, false); });
    fact("group", [](Facts f) { return jsonOfOwner(f.group, true); });
    fact("modified", [](Facts f) { return timeText(f.modified, false); });
    fact("target", [](Facts f) { return f.target.empty() ? Json(nullptr) : Json(f.target); });
    return item;
}

std::string ownerText(std::uint32_t id, bool isGroup) {
    const auto name = nameOfOwner(id, isGroup);
    return name ? escaped(*name) : std::to_string(id);
}

std::string detailedTable(const std::vector<NSURL>& urls, const FactsSource& facts) {
    constexpr std::size_t columns = 5;
    constexpr std::size_t sizeColumn = 3;
    using Row = std::array<std::string, columns>;
    std::vector<Row> rows;
    std::vector<std::string> names;
    std::array<std::size_t, columns> widths{};
    for (const auto& url : urls) {
        const auto seen = facts(url.path());
        names.push_back(escaped(url.lastPathComponent()));
        if (seen && !seen->target.empty())
            names.back() += " -> " + escaped(seen->target);
        rows.push_back(
            seen
                ? Row{seen->modeText(), ownerText(seen->owner, false), ownerText(seen->group, true),
                      seen->isFolder() ? "-"
                                       : MVFileSizeInfo::sharedFileSizeInfo()->stringWithFileSize(
                                             seen->size, true),
                      timeText(seen->modified, true)}
                : Row{"?", "?", "?", "?", "?"});
        for (std::size_t i = 0; i != columns; ++i)
            widths[i] = std::max(widths[i], columnsOf(rows.back()[i]));
    }
    std::string text;
    for (std::size_t line = 0; line != rows.size(); ++line) {
        for (std::size_t i = 0; i != columns; ++i) {
            const auto& cell = rows[line][i];
            text += i == sizeColumn ? std::string(widths[i] - columnsOf(cell), ' ') + cell
                                    : padded(cell, widths[i]);
            text += "  ";
        }
        text += names[line] + '\n';
    }
    return text;
}

}  // namespace

std::string pathIn(const std::string& path, const std::string& name) {
    return path.ends_with('/') ? path + name : path + '/' + name;
}

Outcome runLs(const LsOptions& options, const ContentsSource& source, const FactsSource& facts) {
    if (options.path.empty())
        return {ExitUsage, {}, message({say("the path is empty; name a folder.")})};
    const auto contents = source(NSURL::fileURLWithPath(options.path));
    if (!contents)
        return failed(say("cannot list '%1'", escaped(options.path)), contents.error());
    Outcome outcome;
    if (options.json) {
        auto items = Json::array();
        for (const auto& url : *contents)
            items.push_back(
                jsonOfItem(pathIn(options.path, url.lastPathComponent()), url, facts(url.path())));
        outcome.output = jsonDocument(
            "ls", {{"item", jsonOfPath(options.path)}, {"items", std::move(items)}}, outcome);
    } else if (options.detailed) {
        outcome.output = detailedTable(*contents, facts);
    } else {
        for (const auto& url : *contents)
            outcome.output += escaped(url.lastPathComponent()) + '\n';
    }
    return outcome;
}

}  // namespace morvane
