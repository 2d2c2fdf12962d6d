// SPDX-License-Identifier: MIT
#include "SizeCommand.h"

#include <MorvaneOperation/MVFileSizeInfo.h>
#include <MorvaneOperation/platform/foundation/NSUserDefaults.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "Failure.h"
#include "JsonDocument.h"
#include "SizeTree.h"

namespace morvane {
namespace {

constexpr std::string_view baseKey = "useBase2MathForSizes";

/// The choice of units for this run alone.
class UnitsOfThisRun final : public DefaultsStore {
  public:
    explicit UnitsOfThisRun(bool base2) : base2_(base2) {}
    Values load() override { return {{std::string(baseKey), base2_ ? "true" : "false"}}; }
    NSErrorRef save(std::string_view, std::string_view) override { return nullptr; }
    void watch(std::function<void()>) override {}

  private:
    const bool base2_;
};

/// Null if the choice was made.
NSErrorRef chooseUnits(const SizeOptions& options) {
    auto& defaults = NSUserDefaults::standardUserDefaults();
    if (options.save)
        return defaults.setBool(options.base2, baseKey);
    defaults.setStore(std::make_shared<UnitsOfThisRun>(options.base2));
    MVFileSizeInfo::sharedFileSizeInfo()->updateConstants();
    return nullptr;
}

std::int64_t sumOf(const SizeList& sizes) {
    std::vector<std::int64_t> all;
    for (const auto& item : sizes)
        all.push_back(item->size());
    return sumOfSizes(all);
}

std::size_t countOfDone(const SizeList& sizes) {
    return static_cast<std::size_t>(
        std::count_if(sizes.begin(), sizes.end(), [](auto& item) { return !item->busy(); }));
}

/// Without what is printed for the sizes that are known.
Outcome outcomeOf(const NSErrorRef& error, std::int64_t soFar) {
    if (!error)
        return {};
    if (error->domain() == NSPOSIXErrorDomain && error->code() == ECANCELED)
        return {ExitInterrupted,
                {},
                message({escaped(error->localizedDescription()),
                         say("%1 were added up so far.", sizeText(soFar))}),
                error};
    return {ExitFailure,
            {},
            message({escaped(error->localizedDescription())}) + helpLines(*error, Effect::reads),
            error};
}

}  // namespace

std::string progressLine(const SizeList& sizes, std::chrono::duration<double> elapsed) {
    // TRANSLATORS: How many items are done, how large they are, and the seconds so far.
    return say("%1 of %2 done, %3, %4 s", countOfDone(sizes), sizes.size(), sizeText(sumOf(sizes)),
               static_cast<std::int64_t>(elapsed.count()));
}

std::string progressAsJson(const SizeList& sizes, std::chrono::duration<double> elapsed) {
    return jsonLine("size", "progress",
                    {{"done", countOfDone(sizes)},
                     {"of", sizes.size()},
                     {"size", sumOf(sizes)},
                     {"seconds", static_cast<std::int64_t>(elapsed.count())}});
}

Outcome runSize(const SizeOptions& options, const SizeSources& sources, const Style& style) {
    if (options.base2 || options.base10) {
        if (const auto error = chooseUnits(options)) {
            return {
                ExitFailure,
                {},
                message({say("cannot keep the choice of units: %1",
                             escaped(error->localizedDescription())),
                         say("It is kept in $XDG_CONFIG_HOME (otherwise ~/.config), where you must "
                             "be able to write.")}),
                error};
        }
    }
    for (const auto& path : options.paths) {
        if (path.empty())
            return {ExitUsage, {}, message({say("a path is empty; name a file or a folder.")})};
    }
    if (options.paths.empty())
        return {};
    SizeTree tree(options, sources);
    const auto answer = tree.addUp(sources.sizes);
    if (answer.error && answer.items.empty())
        return failed(say("cannot add up '%1'", escaped(options.paths.front())), answer.error);
    auto outcome = outcomeOf(answer.error, tree.total());
    if (outcome.exitCode == ExitInterrupted)
        return outcome;
    const Json total = {{"total", tree.total()}};
    if (options.lines) {
        for (const auto& item : tree.items())
            outcome.output += jsonLine("size", "item", jsonOfSize(item));
        outcome.output += lastJsonLine("size", total, outcome);
    } else if (options.json) {
        auto members = total;
        members["items"] = tree.asJson();
        outcome.output = jsonDocument("size", std::move(members), outcome);
    } else {
        outcome.output = tree.asTable(style);
    }
    return outcome;
}

}  // namespace morvane
