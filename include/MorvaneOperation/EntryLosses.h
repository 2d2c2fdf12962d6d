#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace morvane {

/// Why. The values are the codes of the errors of MVEntryLossDomain.
enum class EntryLossReason : std::int64_t {
    /// It neither allows nor denies.
    tag = 1,
    /// It is for nobody whom this system knows.
    nobody = 2,
    /// The mark that it is inherited.
    inherited = 3,
    /// Its boxes are not those of the item's kind, or one is neither on nor off.
    shape = 4,
    /// The list has no place for the box, for this identity.
    box = 5,
    /// The list has no place for the box without others, which are off.
    half = 6,
    /// Nobody can be denied the box.
    always = 7,
    /// It is inherited to a part only of what is inside.
    inheritance = 8,
    /// It applies to nothing.
    nothing = 9,
    /// Members of a group that is denied something have it through another group, or as whoever
    /// makes an item.
    members = 10,
    /// It was written, and the server of a network mount has made something else of it.
    stored = 11,
};

/// What of entries a list cannot hold.
struct EntryLoss {
    /// Where the entry stands among those that were to be written, from 0; as many as these are if
    /// it is about somebody of whom none of them speaks.
    std::size_t entry = 0;
    EntryLossReason reason = EntryLossReason::box;
    /// The name of the box or of the group of boxes; empty where all of the entry is meant.
    std::string box;
    /// "allow user bob"
    std::string who;
    /// For people: "only root has it".
    std::string why;

    /// What is lost, for people: "\"Change Owner\": only root has it".
    MORVANE_EXPORT std::string text() const;
    bool operator==(const EntryLoss&) const = default;
};

/// Takes those for one that say the same, whichever entries they are about.
struct EntryLossByText {
    bool operator()(const EntryLoss& a, const EntryLoss& b) const {
        return std::tie(a.who, a.why, a.box) < std::tie(b.who, b.why, b.box);
    }
};
using EntryLossSet = std::set<EntryLoss, EntryLossByText>;

MORVANE_EXPORT EntryLoss makeLoss(std::size_t number, const MVAclEntry& entry,
                                  EntryLossReason reason, std::string box, std::string why);

/// "entry 3 (allow user bob): "Delete": ..." for each. `numbers` tells for each entry which one it
/// is where people see it, from 1; without it, or with 0, "allow user bob: ...".
MORVANE_EXPORT std::vector<std::string> textsOfLosses(const std::vector<EntryLoss>& losses,
                                                      const std::vector<std::size_t>& numbers = {});
/// "It would lose: ...; ....", with all of `texts`.
MORVANE_EXPORT std::string textOfLosses(const std::vector<std::string>& texts);

/// The numbers of entries in canonical order, as a host shows them.
MORVANE_EXPORT std::vector<std::size_t> canonicalNumbers(
    const std::vector<std::shared_ptr<MVAclEntry>>& entries);

/// The POSIX error EOPNOTSUPP of a request to write `entries` to the item at `url`, whose list
/// cannot hold them: its text names all of `losses`, and they stand under
/// NSMultipleUnderlyingErrorsKey as errors of MVEntryLossDomain.
MORVANE_EXPORT NSErrorRef errorOfLosses(const std::vector<EntryLoss>& losses,
                                        const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                                        const NSURL& url);

/// The losses as values, as they stand in an error under NSMultipleUnderlyingErrorsKey.
MORVANE_EXPORT std::vector<NSErrorRef> errorsOfLosses(const std::vector<EntryLoss>& losses);
/// As many losses go with an error as values; its text names more.
inline constexpr std::size_t maxLossesCarried = 1024;
/// The losses that `error` carries, be it that a list cannot hold them or that a server has stored
/// something else (EREMOTEIO); empty if it is another error.
MORVANE_EXPORT std::vector<EntryLoss> lossesOfError(const NSError& error);

/// One loss as an error: its code is the EntryLossReason, its description what is lost.
inline constexpr const char* MVEntryLossDomain = "MVEntryLossDomain";
/// Of the user info of such an error: the members of EntryLoss of these names.
inline constexpr const char* MVEntryLossEntryKey = "MVEntryLossEntry";
inline constexpr const char* MVEntryLossBoxKey = "MVEntryLossBox";
inline constexpr const char* MVEntryLossWhoKey = "MVEntryLossWho";
inline constexpr const char* MVEntryLossWhyKey = "MVEntryLossWhy";

/// The bits of the boxes of `group` that are on; one that is neither on nor off is a loss.
MORVANE_EXPORT std::uint32_t boxesOn(const NSTreeNode& group, std::size_t number,
                                     const MVAclEntry& entry, std::vector<EntryLoss>& losses);

}  // namespace morvane
