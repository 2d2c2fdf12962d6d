// SPDX-License-Identifier: MIT
#include "ComparedSide.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string_view>
#include <utility>

#include "SavedListText.h"

namespace morvane {

std::string placeIn(const std::string& folder, const std::string& name) {
    return folder.empty() ? name : pathIn(folder, name);
}

std::string ItemsOfTree::pathOf(const std::string& place) const {
    return place.empty() ? path_ : pathIn(path_, place);
}

Result<std::vector<std::string>> ItemsOfTree::names(const std::string& place) {
    return namesWithLists(pathOf(place), parts_);
}

std::vector<ComparedSide::List> ItemsOfTree::lists(
    const std::vector<std::string>& places, const std::vector<const ComparedList*>& /*others*/) {
    std::vector<NSURL> urls;
    for (const auto& place : places)
        urls.push_back(NSURL::fileURLWithPath(pathOf(place)));
    auto answers = parts_.lists(urls);
    std::vector<List> lists;
    for (std::size_t i = 0; i != places.size(); ++i) {
        if (!answers[i]) {
            lists.emplace_back(Failure{answers[i].error()});
            continue;
        }
        ComparedList list{pathOf(places[i]), *std::move(answers[i])};
        list.facts = parts_.facts(list.path);
        // The service follows a link that was named; looking at the item here would not.
        if (list.facts && list.facts->kind() == std::string_view("link"))
            list.facts.reset();
        lists.emplace_back(std::optional(std::move(list)));
    }
    return lists;
}

std::string SavedLists::pathOf(const std::string& place) const {
    const auto found = lists_.find(place);
    return found == lists_.end() ? place : found->second.path;
}

Result<std::vector<std::string>> SavedLists::names(const std::string& place) {
    const auto folder = place.empty() ? place : place + '/';
    std::vector<std::string> names;
    for (auto at = lists_.lower_bound(folder);
         at != lists_.end() && at->first.starts_with(folder);) {
        auto name = at->first.substr(folder.size());
        name.resize(std::min(name.find('/'), name.size()));
        // This skips all that is below the item: '0' is the character that follows '/'.
        at = at->first == folder + name ? std::next(at) : lists_.lower_bound(folder + name + '0');
        if (!name.empty() && (names.empty() || names.back() != name))
            names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

std::vector<ComparedSide::List> SavedLists::lists(const std::vector<std::string>& places,
                                                  const std::vector<const ComparedList*>& others) {
    std::vector<List> lists;
    for (std::size_t i = 0; i != places.size(); ++i) {
        const auto found = lists_.find(places[i]);
        if (found == lists_.end() || !others[i]) {
            lists.emplace_back(std::nullopt);
            continue;
        }
        const auto& [path, entries, facts] = *others[i];
        const auto now = ItemList::asRead(entries);
        Problem problem;
        auto saved = entriesOfSavedList(
            found->second,
            now ? now->item()
                : MVAclOrigin::Values{.url = NSURL::fileURLWithPath(path), .digest = {}},
            problem);
        if (problem)
            lists.emplace_back(Failure{
                NSError::errorWithDescription(NSPOSIXErrorDomain, EINVAL, Phrase(*problem), {})});
        else
            lists.emplace_back(std::optional(ComparedList{found->second.path, std::move(saved)}));
    }
    return lists;
}

}  // namespace morvane
