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
    return NSError::errorWithDescription(
        MVEntryLossDomain, static_cast<std::int64_t>(loss.reason), loss.text(), {},
        {{MVEntryLossEntryKey, static_cast<std::int64_t>(loss.entry)},
         {MVEntryLossBoxKey, loss.box.english()},
         {MVEntryLossWhoKey, loss.who.english()},
         {MVEntryLossWhoPhraseKey, loss.who.code()},
         {MVEntryLossWhyKey, loss.why.english()},
         {MVEntryLossWhyPhraseKey, loss.why.code()}});
}

template <class Value>
Value valueFor(const NSError& error, const char* key) {
    const auto found = error.userInfo().find(key);
    const auto* value =
        found == error.userInfo().end() ? nullptr : std::get_if<Value>(&found->second);
    return value ? *value : Value();
}

}  // namespace

Phrase EntryLoss::text() const {
    return box.empty() ? why : phrase("\"%1\": %2", box, why);
}

EntryLoss makeLoss(std::size_t number, const MVAclEntry& entry, EntryLossReason reason,
                   const Phrase& box, const Phrase& why) {
    const auto whom = identityText(entry);
    return {number, reason, box,
            entry.tag() == MVAclTagDeny ? phrase("deny %1", whom) : phrase("allow %1", whom), why};
}

std::vector<Phrase> textsOfLosses(const std::vector<EntryLoss>& losses,
                                  const std::vector<std::size_t>& numbers) {
    std::vector<Phrase> texts;
    for (const auto& loss : losses) {
        const auto number = loss.entry < numbers.size() ? numbers[loss.entry] : 0;
        // TRANSLATORS: %2 is "allow user bob" or "deny ...", %3 what is lost of the entry.
        texts.push_back(number != 0 ? phrase("entry %1 (%2): %3", number, loss.who, loss.text())
                                    : phrase("%1: %2", loss.who, loss.text()));
    }
    return texts;
}

Phrase textOfLosses(const std::vector<Phrase>& texts) {
    const auto told = std::min(texts.size(), maxLossesTold);
    const auto list = Phrase::list(translatable("; "), {texts.begin(), texts.begin() + told});
    if (told == texts.size())
        return phrase("It would lose: %1.", list);
    return countedPhrase("It would lose: %2; and %1 more.", "It would lose: %2; and %1 more.",
                         texts.size() - told, list);
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
    return NSError::errorWithDescription(
        NSPOSIXErrorDomain, EOPNOTSUPP,
        phrase("The file system cannot hold the whole list. %1",
               textOfLosses(textsOfLosses(losses, canonicalNumbers(entries)))),
        phrase("Nothing was changed. Change these entries, or accept the nearest list that grants "
               "no more."),
        {{NSURLErrorKey, url}, {NSMultipleUnderlyingErrorsKey, errorsOfLosses(losses)}});
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
             Phrase::inTable("ACL", valueFor<std::string>(*value, MVEntryLossBoxKey)),
             Phrase::decoded(valueFor<std::string>(*value, MVEntryLossWhoPhraseKey),
                             valueFor<std::string>(*value, MVEntryLossWhoKey)),
             Phrase::decoded(valueFor<std::string>(*value, MVEntryLossWhyPhraseKey),
                             valueFor<std::string>(*value, MVEntryLossWhyKey))});
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
                                      Phrase::inTable("ACL", permission->name()),
                                      phrase("neither on nor off")));
    }
    return on;
}

}  // namespace morvane
