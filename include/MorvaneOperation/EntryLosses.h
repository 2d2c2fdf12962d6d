// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace morvane {

/// Why something of an entry cannot be stored. The values are the codes of the errors of
/// MVEntryLossDomain.
enum class EntryLossReason : std::int64_t {
    /// The entry neither allows nor denies.
    tag = 1,
    /// The entry is for somebody whom this system does not know.
    nobody = 2,
    /// The list cannot mark an entry as inherited.
    inherited = 3,
    /// The entry's boxes are not those of the item's kind, or one is neither on nor off.
    shape = 4,
    /// The list cannot store the box for this identity.
    box = 5,
    /// The list can store the box only together with others, which are off.
    half = 6,
    /// Nobody can be denied the box.
    always = 7,
    /// The entry is inherited by only a part of the items inside the folder.
    inheritance = 8,
    /// The entry applies to nothing.
    nothing = 9,
    /// Members of a group that is denied something are allowed it through another group, or as the
    /// creator of an item.
    members = 10,
    /// The entry was written, and the server of a network mount stored something else.
    stored = 11,
};

/// One thing that a list cannot hold: an entry, or a box of it.
struct EntryLoss {
    /// The index of the entry among those that were to be written. It equals their number if the
    /// loss is about somebody for whom there is no entry.
    std::size_t entry = 0;
    EntryLossReason reason = EntryLossReason::box;
    /// The name of the box or of the group of boxes; empty if the whole entry is lost.
    Phrase box;
    /// Describes the entry to people: "allow user bob".
    Phrase who;
    /// Gives the reason to people: "only root has it".
    Phrase why;

    /// Says to people what is lost: "\"Change Owner\": only root has it".
    MORVANE_EXPORT Phrase text() const;
    bool operator==(const EntryLoss&) const = default;
};

/// Orders losses by what they say to people: two with the same text are equal, whichever entries
/// they are about.
struct EntryLossByText {
    bool operator()(const EntryLoss& a, const EntryLoss& b) const {
        return std::tie(a.who, a.why, a.box) < std::tie(b.who, b.why, b.box);
    }
};
using EntryLossSet = std::set<EntryLoss, EntryLossByText>;

MORVANE_EXPORT EntryLoss makeLoss(std::size_t number, const MVAclEntry& entry,
                                  EntryLossReason reason, const Phrase& box, const Phrase& why);

/// Describes each loss: "entry 3 (allow user bob): "Delete": ...". `numbers` has for each entry the
/// number under which it is shown, counted from 1; where it is missing or 0 the text begins with
/// "allow user bob: ...".
MORVANE_EXPORT std::vector<Phrase> textsOfLosses(const std::vector<EntryLoss>& losses,
                                                 const std::vector<std::size_t>& numbers = {});
/// Makes one sentence of all `texts`: "It would lose: ...; ....".
MORVANE_EXPORT Phrase textOfLosses(const std::vector<Phrase>& texts);

/// Returns the number of each entry, counted from 1, when the entries are shown in canonical order.
MORVANE_EXPORT std::vector<std::size_t> canonicalNumbers(
    const std::vector<std::shared_ptr<MVAclEntry>>& entries);

/// Makes the POSIX error EOPNOTSUPP that answers a request to write `entries` to the item at `url`,
/// whose list cannot hold them. Its text names all of `losses`; under NSMultipleUnderlyingErrorsKey
/// it carries them as errors of MVEntryLossDomain.
MORVANE_EXPORT NSErrorRef errorOfLosses(const std::vector<EntryLoss>& losses,
                                        const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                                        const NSURL& url);

/// Makes an error of MVEntryLossDomain of each loss, for NSMultipleUnderlyingErrorsKey.
MORVANE_EXPORT std::vector<NSErrorRef> errorsOfLosses(const std::vector<EntryLoss>& losses);
/// An error carries at most this many losses as values; its text may name more.
inline constexpr std::size_t maxLossesCarried = 1024;
/// Returns the losses that `error` carries, whether the list cannot hold them or a server has
/// stored something else (EREMOTEIO). Returns none for any other error.
MORVANE_EXPORT std::vector<EntryLoss> lossesOfError(const NSError& error);

/// The domain of the errors that each stand for one loss: the code is the EntryLossReason, the
/// description says what is lost.
inline constexpr const char* MVEntryLossDomain = "MVEntryLossDomain";
/// Keys of the user info of such an error: it has the members of EntryLoss under these names, the
/// texts in English, and what is needed to say two of them in another language (Phrase::code()).
inline constexpr const char* MVEntryLossEntryKey = "MVEntryLossEntry";
inline constexpr const char* MVEntryLossBoxKey = "MVEntryLossBox";
inline constexpr const char* MVEntryLossWhoKey = "MVEntryLossWho";
inline constexpr const char* MVEntryLossWhyKey = "MVEntryLossWhy";
inline constexpr const char* MVEntryLossWhoPhraseKey = "MVEntryLossWhoPhrase";
inline constexpr const char* MVEntryLossWhyPhraseKey = "MVEntryLossWhyPhrase";

/// Returns the bits of those boxes of `group` that are on. A box that is neither on nor off is
/// added to `losses`.
MORVANE_EXPORT std::uint32_t boxesOn(const NSTreeNode& group, std::size_t number,
                                     const MVAclEntry& entry, std::vector<EntryLoss>& losses);

}  // namespace morvane
