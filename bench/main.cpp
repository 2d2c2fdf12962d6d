// SPDX-License-Identifier: MIT
#include <sched.h>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "Report.h"
#include "Rows.h"

namespace bench {
namespace {

struct Row {
    std::string_view name;
    Lines (*measure)(const Options& options);
};

/// Puts all threads of this process, and the processes that they start, on one core while it lasts.
class OneCore {
  public:
    OneCore() {
        sched_getaffinity(0, sizeof before_, &before_);
        cpu_set_t one;
        CPU_ZERO(&one);
        for (int core = 0; core != CPU_SETSIZE && CPU_COUNT(&one) == 0; ++core) {
            if (CPU_ISSET(core, &before_))
                CPU_SET(core, &one);
        }
        put(one);
    }
    ~OneCore() { put(before_); }
    OneCore(const OneCore&) = delete;
    OneCore& operator=(const OneCore&) = delete;

  private:
    static void put(const cpu_set_t& cores) {
        for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task"))
            sched_setaffinity(std::stoi(thread.path().filename()), sizeof cores, &cores);
    }
    cpu_set_t before_;
};

/// Both ends take turns there, which shows what the work costs rather than how soon the other core
/// is awake.
template <Lines (*measure)(const Options&)>
Lines onOneCore(const Options& options) {
    const OneCore core;
    auto lines = measure(options);
    for (auto& line : lines)
        line.row += "-one-core";
    return lines;
}

constexpr Row rows[] = {
    {"round-trip-64", roundTrip64},
    {"round-trip-64-one-core", onOneCore<roundTrip64>},
    {"callback-64", callback64},
    {"callback-64-one-core", onOneCore<callback64>},
    {"pipelined-64", pipelined64},
    {"pipelined-64-one-core", onOneCore<pipelined64>},
    {"connect-first-reply", connectFirstReply},
    {"connect-first-reply-one-core", onOneCore<connectFirstReply>},
    {"idle-clients-1000", idleClients1000},
    {"archive-encode-entry", archiveEncodeEntry},
    {"archive-decode-entry", archiveDecodeEntry},
    {"state-change", stateChange},
    {"observe-1000", observe1000},
    {"observe-100000", observe100000},
    {"new-folder-entry", newFolderEntry},
    {"decode-1000-entries", decode1000Entries},
    {"encode-1000-entries", encode1000Entries},
    {"convert-entry", convertEntry},
    {"size-text", sizeText},
    {"display-info", displayInfo},
    {"items-100k", items100k},
    {"reply-64m", reply64m},
    {"size-tree", sizeTree},
    {"propagate-100k", propagate100k},
    {"rename-10k", rename10k},
    {"short-behind-long", shortBehindLong},
    {"command-acl", commandLine},
    {"main-loop-blocked", mainLoopBlocked},
#ifdef MORVANE_PERMISSIONS
    {"window-opens", windowOpens},
#endif
    {"refused-request", refusedRequest},
    {"privileged-list", privilegedList},
    {"authorize-held", authorizeHeld},
};

constexpr int failure = 1;
constexpr int usageError = 2;

std::string rowNames() {
    std::string names;
    for (const auto& row : rows)
        names += "  " + std::string(row.name) + "\n";
    return names;
}

int refuse(const std::string& why) {
    std::fprintf(stderr, "bench/run: %s\n", why.c_str());
    return usageError;
}

int run(const std::vector<std::string>& arguments) {
    Options options;
    std::string jsonPath;
    std::vector<const Row*> chosen;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const auto& argument = arguments[i];
        if (argument == "--help" || argument == "-h") {
            std::printf(
                "bench/run [ROW...] [--json FILE] [--pairs N]\n\n"
                "Measures the rows (all without a name) beside their peers, in N alternating runs\n"
                "(9), and prints one table; --json writes the same to a file.\n\nRows:\n%s",
                rowNames().c_str());
            return 0;
        }
        if (argument == "--json" || argument == "--pairs") {
            if (++i == arguments.size())
                return refuse(argument + " wants a value after it.");
            const auto& value = arguments[i];
            if (argument == "--json") {
                jsonPath = value;
                continue;
            }
            const auto* end = value.data() + value.size();
            const auto read = std::from_chars(value.data(), end, options.pairs);
            if (read.ec != std::errc() || read.ptr != end || options.pairs == 0)
                return refuse("--pairs wants a number of runs, at least 1; not '" + value + "'.");
            continue;
        }
        const auto* row = std::find_if(std::begin(rows), std::end(rows),
                                       [&](const Row& each) { return each.name == argument; });
        if (row == std::end(rows))
            return refuse("there is no row '" + argument + "'. The rows are:\n" + rowNames());
        chosen.push_back(row);
    }
    if (chosen.empty()) {
        for (const auto& row : rows)
            chosen.push_back(&row);
    }

    std::ofstream json;
    if (!jsonPath.empty()) {
        json.open(jsonPath);
        if (!json)
            return refuse("'" + jsonPath + "' cannot be written.");
    }
    Lines lines;
    for (const auto* row : chosen) {
        std::fprintf(stderr, "measuring %.*s\n", static_cast<int>(row->name.size()),
                     row->name.data());
        auto measured = row->measure(options);
        std::move(measured.begin(), measured.end(), std::back_inserter(lines));
    }
    std::fputs(tableOf(lines).c_str(), stdout);
    if (json.is_open() && !(json << jsonOf(lines)).flush()) {
        std::fprintf(stderr, "bench/run: '%s' could not be written.\n", jsonPath.c_str());
        return failure;
    }
    return 0;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    try {
        return bench::run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench/run: %s\n", error.what());
        return bench::failure;
    }
}
