// SPDX-License-Identifier: MIT
#include "Report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace bench {
namespace {

std::string number(double value) {
    char text[32];
    const int digits = value < 10 ? 2 : value < 100 ? 1 : 0;
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

struct Unit {
    const char* name;
    double size;
};

/// The unit in which `median` has one to three digits before the point.
template <std::size_t N>
Unit unitFor(double median, const std::array<Unit, N>& units) {
    Unit chosen = units[0];
    for (const auto& unit : units) {
        if (median >= unit.size)
            chosen = unit;
    }
    return chosen;
}

std::string withSpread(const Summary& summary, Unit unit) {
    return number(summary.median / unit.size) + unit.name + " (" + number(summary.min / unit.size) +
           "–" + number(summary.max / unit.size) + ")";
}

Summary rateOf(const Summary& time) {
    return {1e9 / time.median, 1e9 / time.max, 1e9 / time.min};
}

std::string measured(const Summary& time, const Line& line) {
    static constexpr std::array<Unit, 4> times{
        {{" ns", 1}, {" µs", 1e3}, {" ms", 1e6}, {" s", 1e9}}};
    static constexpr std::array<Unit, 3> rates{{{"/s", 1}, {"k/s", 1e3}, {"M/s", 1e6}}};
    static constexpr std::array<Unit, 3> sizes{{{" B", 1}, {" KiB", 1024}, {" MiB", 1024 * 1024}}};
    if (line.isBytes)
        return withSpread(time, unitFor(time.median, sizes));
    if (!line.asRate)
        return withSpread(time, unitFor(time.median, times));
    const auto rate = rateOf(time);
    return withSpread(rate, unitFor(rate.median, rates));
}

std::string requirementText(const Requirement& required) {
    char text[32];
    switch (required.kind) {
        case Requirement::Kind::none:
            return "";
        case Requirement::Kind::atMostTimes:
            std::snprintf(text, sizeof text, "<= %g", required.bound);
            break;
        case Requirement::Kind::timesFaster:
            std::snprintf(text, sizeof text, ">= %g", required.bound);
            break;
    }
    return text;
}

using Cells = std::array<std::string, 5>;

Cells cellsOf(const Line& line) {
    Cells cells;
    cells[0] = line.row;
    cells[1] =
        line.unit.empty() ? measured(line.ours, line) : number(line.ours.median) + " " + line.unit;
    if (!line.note.empty())
        cells[1] += ", " + line.note;
    if (line.peer) {
        cells[2] = line.peerName + " " + measured(*line.peer, line);
    } else if (line.limit) {
        cells[2] = "limit " + (line.unit.empty() ? number(*line.limit / 1e6) + " ms"
                                                 : number(*line.limit) + " " + line.unit);
    }
    if (line.ratio)
        cells[3] = withSpread(*line.ratio, {"", 1});
    if (line.isRequired()) {
        cells[4] = requirementText(line.required) + (line.isMet() ? "  met" : "  MISSED");
    }
    return cells;
}

/// Characters, not bytes: the table has some that take several.
std::size_t widthOf(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

nlohmann::ordered_json jsonOf(const Summary& summary) {
    return {{"median", summary.median}, {"min", summary.min}, {"max", summary.max}};
}

}  // namespace

std::string tableOf(const std::vector<Line>& lines) {
    std::vector<Cells> rows{{"row", "ours", "peer or limit", "ratio", "required"}};
    for (const auto& line : lines)
        rows.push_back(cellsOf(line));
    std::array<std::size_t, std::tuple_size_v<Cells>> widths{};
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], widthOf(row[i]));
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            line.append(widths[i] - widthOf(row[i]) + 2, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

std::string jsonOf(const std::vector<Line>& lines) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& line : lines) {
        const std::string unit = line.isBytes ? "Bytes" : line.unit.empty() ? "Ns" : "";
        nlohmann::ordered_json object{{"row", line.row}, {"ours" + unit, jsonOf(line.ours)}};
        if (!line.unit.empty())
            object["unit"] = line.unit;
        if (line.peer) {
            object["peer"] = line.peerName;
            object["peer" + unit] = jsonOf(*line.peer);
        }
        if (line.limit)
            object["limit" + unit] = *line.limit;
        if (line.ratio)
            object["ratio"] = jsonOf(*line.ratio);
        if (line.isRequired()) {
            object["required"] = requirementText(line.required);
            object["met"] = line.isMet();
        }
        if (!line.note.empty())
            object["note"] = line.note;
        array.push_back(std::move(object));
    }
    return array.dump(2) + "\n";
}

}  // namespace bench
