// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/MVAclPermission.h>
#include <MorvaneOperation/MVTreeNode.h>
#include <MorvaneOperation/PosixAclEntries.h>

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <utility>

namespace morvane {

namespace {

/// More than a list of 1024 entries that came from boxes can lose: only entries that somebody has
/// made up are not reported in full.
constexpr std::size_t maxLossesTold = 8192;
NSErrorRef errorOf(const EntryLoss& loss) {
    return NSError::errorWithDomain(MVEntryLossDomain, static_cast<std::int64_t>(loss.reason),
                                    {{NSLocalizedDescriptionKey, loss.text()},
                                     {MVEntryLossEntryKey, static_cast<std::int64_t>(loss.entry)},
                                     {MVEntryLossBoxKey, loss.box},
                                     {MVEntryLossWhoKey, loss.who},
                                     {MVEntryLossWhyKey, loss.why}});
}

template <class Value>
Value valueFor(const NSError& error, const char* key) {
    const auto found = error.userInfo().find(key);
    const auto* value =
        found == error.userInfo().end() ? nullptr : std::get_if<Value>(&found->second);
    return value ? *value : Value();
}

}  // namespace

std::string EntryLoss::text() const {
    return box.empty() ? why : '"' + box + "\": " + why;
}

EntryLoss makeLoss(std::size_t number, const MVAclEntry& entry, EntryLossReason reason,
                   std::string box, std::string why) {
    return {number, reason, std::move(box),
            (entry.tag() == MVAclTagDeny ? "deny " : "allow ") +
                (entry.identity() ? identityText(*entry.identity()) : identityName(entry)),
            std::move(why)};
}

std::vector<std::string> textsOfLosses(const std::vector<EntryLoss>& losses,
                                       const std::vector<std::size_t>& numbers) {
    std::vector<std::string> texts;
    for (const auto& loss : losses) {
        const auto who =
            loss.entry < numbers.size() && numbers[loss.entry] != 0
                ? "entry " + std::to_string(numbers[loss.entry]) + " (" + loss.who + ")"
                : loss.who;
        texts.push_back(who + ": " + loss.text());
    }
    return texts;
}

std::string textOfLosses(const std::vector<std::string>& texts) {
    std::string text = "It would lose";
    for (std::size_t i = 0; i != std::min(texts.size(), maxLossesTold); ++i)
        text += (i == 0 ? ": " : "; ") + texts[i];
    if (texts.size() > maxLossesTold)
        text += "; and " + std::to_string(texts.size() - maxLossesTold) + " more";
    return text + ".";
}

std::vector<std::size_t> canonicalNumbers(const std::vector<std::shared_ptr<MVAclEntry>>& entries) {
    std::vector<std::size_t> order(entries.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return entries[a]->canonicalScore() > entries[b]->canonicalScore();
    });
    std::vector<std::size_t> numbers(entries.size());
    for (std::size_t place = 0; place != order.size(); ++place)
        numbers[order[place]] = place + 1;
    return numbers;
}

NSErrorRef errorOfLosses(const std::vector<EntryLoss>& losses,
                         const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                         const NSURL& url) {
    return NSError::errorWithDomain(
        NSPOSIXErrorDomain, EOPNOTSUPP,
        {{NSURLErrorKey, url},
         {NSLocalizedDescriptionKey,
          "The file system cannot hold the whole list. " +
              textOfLosses(textsOfLosses(losses, canonicalNumbers(entries)))},
         {NSLocalizedRecoverySuggestionErrorKey,
          std::string("Nothing was changed. Change these entries, or accept the nearest list that "
                      "grants no more.")},
         {NSMultipleUnderlyingErrorsKey, errorsOfLosses(losses)}});
}

std::vector<NSErrorRef> errorsOfLosses(const std::vector<EntryLoss>& losses) {
    std::vector<NSErrorRef> values;
    for (std::size_t i = 0; i != std::min(losses.size(), maxLossesCarried); ++i)
        values.push_back(errorOf(losses[i]));
    return values;
}

std::vector<EntryLoss> lossesOfError(const NSError& error) {
    std::vector<EntryLoss> losses;
    for (const auto& value :
         valueFor<std::vector<NSErrorRef>>(error, NSMultipleUnderlyingErrorsKey)) {
        if (!value || value->domain() != MVEntryLossDomain)
            continue;
        losses.push_back(
            {static_cast<std::size_t>(valueFor<std::int64_t>(*value, MVEntryLossEntryKey)),
             static_cast<EntryLossReason>(value->code()),
             valueFor<std::string>(*value, MVEntryLossBoxKey),
             valueFor<std::string>(*value, MVEntryLossWhoKey),
             valueFor<std::string>(*value, MVEntryLossWhyKey)});
    }
    return losses;
}

std::uint32_t boxesOn(const NSTreeNode& group, std::size_t number, const MVAclEntry& entry,
                      std::vector<EntryLoss>& losses) {
    std::uint32_t on = 0;
    for (const auto& box : group.childNodes()) {
        const auto* permission = MVTreeNode::permissionOf(*box);
        if (!permission)
            continue;
        if (permission->state() == MVStateOn)
            on |= static_cast<std::uint32_t>(permission->permission());
        else if (permission->state() != MVStateOff)
            losses.push_back(makeLoss(number, entry, EntryLossReason::shape,
                                      std::string(permission->name()), "neither on nor off"));
    }
    return on;
}

}  // namespace morvane
