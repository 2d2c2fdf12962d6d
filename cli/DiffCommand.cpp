// SPDX-License-Identifier: MIT
#include "DiffCommand.h"

#include <algorithm>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "ComparedSide.h"
#include "EntryJson.h"
#include "Failure.h"
#include "ListDifference.h"
#include "ListText.h"
#include "SavedListText.h"

namespace morvane {

namespace {

class Comparison {
  public:
    Comparison(const DiffOptions& options, const TreeParts& parts, const Style& style)
        : options_(options), parts_(parts), style_(style) {}

    Outcome run(ComparedSide& before, ComparedSide& after);

  private:
    struct Pair {
        std::string place;
        bool isBefore = true;
        bool isAfter = true;
    };
    bool compare(ComparedSide& before, ComparedSide& after, const std::vector<Pair>& pairs,
                 std::vector<std::string>& folders);
    bool compareInside(ComparedSide& before, ComparedSide& after, const std::string& folder,
                       std::vector<std::string>& folders);
    void tell(const std::string& place, const ComparedList& before, const ComparedList& after);
    /// An item that is on one side alone.
    void tellSingle(const Pair& pair, const std::string& path);
    void fail(const std::string& path, const NSErrorRef& error);
    bool goesOn() const { return !parts_.progress || parts_.progress(done_); }

    const DiffOptions& options_;
    const TreeParts& parts_;
    const Style& style_;
    std::size_t done_ = 0;
    std::size_t differing_ = 0;
    std::size_t failed_ = 0;
    NSErrorRef error_;
    Json differences_ = Json::array();
};

void Comparison::fail(const std::string& path, const NSErrorRef& error) {
    ++failed_;
    error_ = error;
    parts_.complain(
        failureMessage(say("cannot read the access-control list of '%1'", escaped(path)), *error));
}

void Comparison::tellSingle(const Pair& pair, const std::string& path) {
    ++differing_;
    if (options_.json) {
        const auto item = jsonOfListedItem(path, {});
        auto object = Json{{"place", pair.place},
                           {"before", pair.isBefore ? item : Json(nullptr)},
                           {"after", pair.isAfter ? item : Json(nullptr)}};
        object.update(jsonOfDifference({}));
        differences_.push_back(std::move(object));
        return;
    }
    parts_.print(
        (pair.isBefore ? style_.bad("- " + escaped(path)) : style_.good("+ " + escaped(path))) +
        '\n');
}

void Comparison::tell(const std::string& place, const ComparedList& before,
                      const ComparedList& after) {
    const auto difference = differenceOf(before, after);
    if (difference.isEmpty())
        return;
    ++differing_;
    if (options_.json) {
        auto object = Json{{"place", place},
                           {"before", jsonOfListedItem(before.path, before.entries)},
                           {"after", jsonOfListedItem(after.path, after.entries)}};
        object.update(jsonOfDifference(difference));
        differences_.push_back(std::move(object));
        return;
    }
    std::string text;
    if (options_.recursive)
        text = style_.heading("~ " + escaped(after.path)) + '\n';
    parts_.print(text + differenceAsLines(difference, options_.recursive ? "    " : "", style_));
}

/// Compares the lists of some items; adds those that are folders on both sides to `folders`. False
/// if the user has stopped it.
bool Comparison::compare(ComparedSide& before, ComparedSide& after, const std::vector<Pair>& pairs,
                         std::vector<std::string>& folders) {
    std::vector<std::string> places;
    for (const auto& pair : pairs) {
        if (pair.isBefore && pair.isAfter) {
            places.push_back(pair.place);
            continue;
        }
        tellSingle(pair, (pair.isBefore ? before : after).pathOf(pair.place));
    }
    const auto now = after.lists(places, {});
    std::vector<const ComparedList*> others;
    for (const auto& list : now)
        others.push_back(list && *list ? &**list : nullptr);
    const auto old = before.lists(places, others);
    done_ += pairs.size();
    if (!goesOn())
        return false;
    for (std::size_t i = 0; i != places.size(); ++i) {
        if (!old[i])
            fail(before.pathOf(places[i]), old[i].error());
        if (!now[i])
            fail(after.pathOf(places[i]), now[i].error());
        if (!old[i] || !now[i])
            continue;
        if (*old[i] && *now[i])
            tell(places[i], **old[i], **now[i]);
        // An item that is not among the saved lists is not compared; items below it may be.
        if (*now[i] && isOfFolder((*now[i])->entries) &&
            (!*old[i] || isOfFolder((*old[i])->entries)))
            folders.push_back(places[i]);
    }
    return true;
}

bool Comparison::compareInside(ComparedSide& before, ComparedSide& after, const std::string& folder,
                               std::vector<std::string>& folders) {
    auto old = before.names(folder);
    auto now = after.names(folder);
    if (!old)
        fail(before.pathOf(folder), old.error());
    if (!now)
        fail(after.pathOf(folder), now.error());
    if (!old || !now)
        return true;
    std::vector<Pair> pairs;
    std::vector<std::string> below;
    for (auto a = old->begin(), b = now->begin(); a != old->end() || b != now->end();) {
        const bool isBefore = a != old->end() && (b == now->end() || *a <= *b);
        const bool isAfter = b != now->end() && (a == old->end() || *b <= *a);
        pairs.push_back({placeIn(folder, isBefore ? *a : *b), isBefore, isAfter});
        a += isBefore ? 1 : 0;
        b += isAfter ? 1 : 0;
        if (pairs.size() == listsAtOnce) {
            if (!compare(before, after, pairs, below))
                return false;
            pairs.clear();
        }
    }
    if (!compare(before, after, pairs, below))
        return false;
    folders.insert(folders.end(), below.rbegin(), below.rend());
    return true;
}

Outcome Comparison::run(ComparedSide& before, ComparedSide& after) {
    std::vector<std::string> folders;
    bool goesOn = compare(before, after, {{}}, folders);
    if (!options_.recursive)
        folders.clear();
    while (goesOn && !folders.empty()) {
        const auto folder = std::move(folders.back());
        folders.pop_back();
        goesOn = compareInside(before, after, folder, folders);
    }
    Outcome outcome{differing_ == 0 ? ExitSuccess : ExitDifferent, {}, {}};
    if (failed_ != 0) {
        outcome.exitCode = exitCodeOf(*error_) == ExitService ? ExitService : ExitTrouble;
        outcome.error = error_;
        outcome.message = message({countedPhrase("%1 item could not be compared.",
                                                 "%1 items could not be compared.", failed_)
                                       .localized()});
    }
    if (!goesOn) {
        outcome.exitCode = ExitInterrupted;
        outcome.message = stoppedLooking();
    }
    if (options_.json)
        outcome.output = jsonDocument(
            "diff", {{"compared", done_}, {"differences", std::move(differences_)}}, outcome);
    return outcome;
}

Outcome inTrouble(const std::string& problem) {
    return {ExitTrouble, {}, message({say("%1.", problem)})};
}

/// The lists of the file that are for `path` and, if asked for, for what is below, by their places.
std::map<std::string, ListText> savedListsFor(const DiffOptions& options, Problem& problem) {
    const auto text = contentOfFile(options.saved, problem);
    auto lists =
        problem ? std::vector<ListText>() : parsedLists(text, UnknownNames::haveNumbers, problem);
    std::map<std::string, ListText> places;
    // A file with a single list may be meant for an item at another path.
    if (lists.size() == 1 && !options.recursive) {
        places.emplace("", std::move(lists.front()));
        return places;
    }
    for (auto& list : lists) {
        auto place = placeBelow(options.after, list.path);
        if (place && (place->empty() || options.recursive))
            places.emplace(*std::move(place), std::move(list));
    }
    if (places.empty() && !problem)
        problem = lists.empty() ? say("the text holds no list")
                                : say("'%1' holds no list of '%2'", escaped(options.saved),
                                      escaped(options.after));
    return places;
}

}  // namespace

Outcome runDiff(const DiffOptions& options, const TreeParts& parts, const Style& style) {
    for (const auto* path : {&options.before, &options.after}) {
        if (path->empty() && (path == &options.after || options.saved.empty()))
            return {ExitTrouble, {}, message({say("the path is empty; name a file or a folder.")})};
    }
    ItemsOfTree after(options.after, parts);
    Comparison comparison(options, parts, style);
    if (options.saved.empty()) {
        ItemsOfTree before(options.before, parts);
        return comparison.run(before, after);
    }
    Problem problem;
    SavedLists before(savedListsFor(options, problem));
    return problem ? inTrouble(*problem) : comparison.run(before, after);
}

}  // namespace morvane
