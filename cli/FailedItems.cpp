// SPDX-License-Identifier: MIT
#include "FailedItems.h"

#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <cerrno>
#include <fstream>
#include <nlohmann/json.hpp>

#include "ListText.h"

namespace morvane {

namespace {

/// Returns the path in a form that holds neither a line break nor a tab.
std::string pathInALine(const std::string& path) {
    std::string text;
    for (const char c : quotedPath(path))
        text += c == '\t' ? std::string("\\011") : std::string(1, c);
    return text;
}

}  // namespace

std::string writtenFailures(const std::string& file, const std::vector<FailedItem>& failures) {
    std::ofstream lines(file, std::ios::binary);
    for (const auto& failure : failures)
        lines << pathInALine(failure.path) << '\t' << escaped(failure.why) << '\n';
    if (lines.flush())
        return {};
    return message(
        {say("'%1' could not be written: %2", escaped(file), Phrase::ofSystemError(errno))});
}

Json jsonOfFailures(const std::vector<FailedItem>& failures) {
    auto all = Json::array();
    for (const auto& failure : failures)
        all.push_back(jsonOfFailedItem(failure.path, failure.why));
    return all;
}

}  // namespace morvane
