// SPDX-License-Identifier: MIT
#include "LsCommand.h"

#include <MorvaneOperation/MVFileSizeInfo.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <nlohmann/json.hpp>

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

/// What is listed: in a folder, or the item that was named.
struct Listed {
    /// As the user has written it, or below that.
    std::string path;
    /// As it is shown.
    std::string name;
    NSURL url;
};

struct Listing {
    std::string path;
    bool isFolder = true;
    std::vector<Listed> items = {};
    /// Why it cannot be listed; null if it can.
    NSErrorRef error = nullptr;
};

/// A file, or a link that leads to one or nowhere: whoever names it means the item itself.
bool leadsToNoFolder(const NSError& error) {
    const auto code = error.code();
    return error.domain() == NSPOSIXErrorDomain &&
           (code == ENOTDIR || code == ENOENT || code == ELOOP);
}

Listing listingOf(const std::string& path, const ContentsSource& source, const FactsSource& facts) {
    Listing listing{path};
    const auto url = NSURL::fileURLWithPath(path);
    const auto contents = source(url);
    if (contents) {
        for (const auto& each : *contents) {
            const auto name = each.lastPathComponent();
            listing.items.push_back({pathIn(path, name), escaped(name), each});
        }
    } else if (leadsToNoFolder(*contents.error()) && facts(path)) {
        listing.isFolder = false;
        listing.items.push_back({path, escaped(path), url});
    } else {
        listing.error = contents.error();
    }
    return listing;
}

Json jsonOfItem(const Listed& listed, const std::optional<FileFacts>& facts) {
    auto item = jsonOfPath(listed.path);
    item["name"] = listed.url.lastPathComponent();
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

std::string detailedTable(const std::vector<Listed>& items, const FactsSource& facts) {
    constexpr std::size_t columns = 5;
    constexpr std::size_t sizeColumn = 3;
    using Row = std::array<std::string, columns>;
    std::vector<Row> rows;
    std::vector<std::string> names;
    std::array<std::size_t, columns> widths{};
    for (const auto& item : items) {
        const auto seen = facts(item.url.path());
        names.push_back(item.name);
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

std::string contentsAsText(const std::vector<Listed>& items, const LsOptions& options,
                           const FactsSource& facts) {
    if (options.detailed)
        return detailedTable(items, facts);
    std::string text;
    for (const auto& item : items)
        text += item.name + '\n';
    return text;
}

/// As ls(1) prints them: what is no folder first, then each folder, below its path if it is not all
/// that was named.
std::string listingsAsText(const std::vector<Listing>& listings, const LsOptions& options,
                           const FactsSource& facts, const Style& style) {
    std::vector<Listed> files;
    for (const auto& listing : listings) {
        if (!listing.isFolder)
            files.push_back(listing.items.front());
    }
    auto text = contentsAsText(files, options, facts);
    for (const auto& listing : listings) {
        if (!listing.isFolder || listing.error)
            continue;
        if (listings.size() > 1)
            text += (text.empty() ? "" : "\n") + style.heading(escaped(listing.path)) + ":\n";
        text += contentsAsText(listing.items, options, facts);
    }
    return text;
}

Json jsonOfListing(const Listing& listing, const FactsSource& facts) {
    Json json{{"item", jsonOfPath(listing.path)}, {"items", nullptr}};
    if (listing.error)
        return json;
    auto items = Json::array();
    for (const auto& item : listing.items)
        items.push_back(jsonOfItem(item, facts(item.url.path())));
    json["items"] = std::move(items);
    return json;
}

}  // namespace

std::string pathIn(const std::string& path, const std::string& name) {
    return path.ends_with('/') ? path + name : path + '/' + name;
}

Outcome runLs(const LsOptions& options, const ContentsSource& source, const FactsSource& facts,
              const Style& style) {
    if (std::count(options.paths.begin(), options.paths.end(), "") != 0)
        return {ExitUsage, {}, message({say("a path is empty; name a file or a folder.")})};
    Outcome outcome;
    std::vector<Listing> listings;
    for (const auto& path : options.paths) {
        const auto& listing = listings.emplace_back(listingOf(path, source, facts));
        if (!listing.error)
            continue;
        const auto why = failed(say("cannot list '%1'", escaped(path)), listing.error);
        if (options.paths.size() == 1)
            return why;
        outcome.exitCode = std::max(outcome.exitCode, why.exitCode);
        outcome.message += why.message;
        outcome.error = why.error;
    }
    if (!options.json) {
        outcome.output = listingsAsText(listings, options, facts, style);
    } else if (listings.size() == 1) {
        outcome.output = jsonDocument("ls", jsonOfListing(listings.front(), facts), outcome);
    } else {
        auto lists = Json::array();
        for (const auto& listing : listings)
            lists.push_back(jsonOfListing(listing, facts));
        outcome.output = jsonDocument("ls", {{"lists", std::move(lists)}}, outcome);
    }
    return outcome;
}

}  // namespace morvane
