// SPDX-License-Identifier: MIT
#include "PlannedChange.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "Text.h"

namespace morvane {

namespace {

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty() && line.front() != '#')
            lines.push_back(line.substr(0, line.find('\t')));
    }
    return lines;
}

std::vector<std::string> without(std::vector<std::string> lines,
                                 const std::vector<std::string>& others) {
    std::erase_if(lines, [&](const auto& line) {
        return std::find(others.begin(), others.end(), line) != others.end();
    });
    return lines;
}

}  // namespace

PlannedChange::PlannedChange(std::string path, const std::string& before, const std::string& after)
    : path_(std::move(path)),
      removed_(without(linesOf(before), linesOf(after))),
      added_(without(linesOf(after), linesOf(before))) {}

std::string PlannedChange::asText() const {
    auto text = escaped(path_) + '\n';
    for (const auto& line : removed_)
        text += "  - " + escaped(line) + '\n';
    for (const auto& line : added_)
        text += "  + " + escaped(line) + '\n';
    if (removed_.empty() && added_.empty())
        text += "  " + say("(the same entries in another order)") + '\n';
    return text;
}

Json PlannedChange::asJson() const {
    auto item = jsonOfPath(path_);
    item["removed"] = removed_;
    item["added"] = added_;
    return item;
}

}  // namespace morvane
