// SPDX-License-Identifier: MIT
#include "SizeCommand.h"

#include <MorvaneOperation/MVFileSizeInfo.h>
#include <MorvaneOperation/platform/foundation/NSUserDefaults.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <nlohmann/json.hpp>

#include "Failure.h"
#include "Text.h"

namespace morvane {
namespace {

using Json = nlohmann::ordered_json;

template <class T>
Json orNull(const std::optional<T>& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json jsonOfItem(const MVFileSizeItem& item) {
    return {{"path", orNull(item.path())},
            {"name", orNull(item.name())},
            {"size", item.size()},
            {"displaySize", item.displaySize()},
            {"displayInfo", item.displayInfo()},
            {"leaf", item.isLeaf()},
            {"icon", item.icon() ? Json(item.icon()->names) : Json(nullptr)}};
}

std::string asJson(const SizeList& sizes) {
    Json array = Json::array();
    for (const auto& item : sizes)
        array.push_back(jsonOfItem(*item));
    constexpr int indent = 2;
    return array.dump(indent, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::string asTable(const SizeList& sizes) {
    std::size_t width = 0;
    for (const auto& item : sizes)
        width = std::max(width, columnsOf(item->displaySize()));
    std::string text;
    for (const auto& item : sizes) {
        const auto size = item->displaySize();
        text += std::string(width - columnsOf(size), ' ') + size + "  " +
                escaped(item->path().value_or("")) + '\n';
    }
    return text;
}

std::int64_t sumOf(const SizeList& sizes) {
    std::int64_t sum = 0;
    for (const auto& item : sizes)
        if (__builtin_add_overflow(sum, std::max<std::int64_t>(item->size(), 0), &sum))
            return std::numeric_limits<std::int64_t>::max();  // sparse files can claim more than
                                                              // there is
    return sum;
}

std::string sizeText(std::int64_t bytes) {
    return MVFileSizeInfo::sharedFileSizeInfo()->stringWithFileSize(bytes, true);
}

}  // namespace

std::string progressLine(const SizeList& sizes, std::chrono::duration<double> elapsed) {
    const auto done = std::count_if(sizes.begin(), sizes.end(), [](auto& i) { return !i->busy(); });
    const auto bytes = sumOf(sizes);
    const auto rate = elapsed.count() > 0
                          ? static_cast<std::int64_t>(static_cast<double>(bytes) / elapsed.count())
                          : 0;
    // TRANSLATORS: How many items are done, how large they are, how much that is in a second, and
    // the seconds so far.
    return say("%1 of %2 done, %3, %4/s, %5 s", done, sizes.size(), sizeText(bytes), sizeText(rate),
               static_cast<std::int64_t>(elapsed.count()));
}

Outcome runSize(const SizeOptions& options, const SizeSource& source) {
    if (options.base2 || options.base10) {
        if (const auto error = NSUserDefaults::standardUserDefaults().setBool(
                options.base2, "useBase2MathForSizes"))
            return {
                ExitFailure,
                {},
                message({say("cannot keep the choice of units: %1",
                             escaped(error->localizedDescription())),
                         say("It is kept in $XDG_CONFIG_HOME (otherwise ~/.config), where you must "
                             "be able to write.")})};
    }
    std::vector<NSURL> urls;
    for (const auto& path : options.paths) {
        if (path.empty())
            return {ExitUsage, {}, message({say("a path is empty; name a file or a folder.")})};
        urls.push_back(NSURL::fileURLWithPath(path));
    }
    if (urls.empty())
        return {};
    const auto answer = source(urls);
    if (answer.error && answer.items.empty())
        return {exitCodeOf(*answer.error),
                {},
                failureMessage(say("cannot add up '%1'", escaped(options.paths.front())),
                               *answer.error)};
    for (std::size_t i = 0; i < std::min(urls.size(), answer.items.size()); ++i)
        answer.items[i]->setUrl(urls[i]);
    Outcome outcome{ExitSuccess, options.json ? asJson(answer.items) : asTable(answer.items), {}};
    if (!answer.error)
        return outcome;
    if (answer.error->domain() == NSPOSIXErrorDomain && answer.error->code() == ECANCELED)
        return {ExitInterrupted,
                {},
                message({escaped(answer.error->localizedDescription()),
                         say("%1 were added up so far.", sizeText(sumOf(answer.items)))})};
    outcome.exitCode = ExitFailure;
    outcome.message = message({escaped(answer.error->localizedDescription())});
    if (const auto help = advice(*answer.error, Effect::reads); !help.empty())
        outcome.message += "  " + escaped(help) + '\n';
    return outcome;
}

}  // namespace morvane
