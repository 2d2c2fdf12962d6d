// SPDX-License-Identifier: MIT
#include "EditCommand.h"

#include <MorvaneOperation/EntryLosses.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "EditScript.h"
#include "EditedItem.h"
#include "EntryJson.h"
#include "Failure.h"
#include "ListEdit.h"

namespace morvane {

namespace {

std::string cannotChange(const EditOptions& options) {
    return say("cannot change the access-control list of '%1'", escaped(options.path));
}

/// `error`, with the entries of its losses counted as `seen` shows them. `asked` are the entries
/// that were refused.
NSErrorRef countedAsSeen(const NSErrorRef& error, const EntryList& asked, const EntryList& seen) {
    const auto losses = lossesOfError(*error);
    if (losses.empty() || losses.size() == maxLossesCarried)
        return error;
    std::vector<std::size_t> numbers;
    for (const auto& entry : asked) {
        const auto found = std::find(seen.begin(), seen.end(), entry);
        numbers.push_back(found == seen.end() ? 0
                                              : static_cast<std::size_t>(found - seen.begin()) + 1);
    }
    return NSError::errorWithDescription(error->domain(), error->code(),
                                         phrase("The file system cannot hold the whole list. %1",
                                                textOfLosses(textsOfLosses(losses, numbers))),
                                         {}, error->userInfo());
}

Outcome refusal(const NSErrorRef& error, const EditOptions& options) {
    auto outcome = failed(cannotChange(options), error, Effect::changes);
    if (!options.lossy && !lossesOfError(*error).empty())
        outcome.message += "  " + say("--lossy accepts the nearest list.") + '\n';
    return outcome;
}

std::string enumerated(const std::vector<std::string>& parts) {
    std::string text;
    for (const auto& part : parts)
        text += (text.empty() ? "" : say(", ")) + part;
    return text;
}

/// One run of `morvane acl PATH --edit`, from the list that was read to the one that is written.
class AclEditing {
  public:
    AclEditing(const EditOptions& options, NSURL url, const EntryList& entries,
               const AclSource& source, const AclSink& sink, const AccessSource& access,
               const Style& style)
        : options_(options),
          url_(std::move(url)),
          source_(source),
          sink_(sink),
          access_(access),
          style_(style),
          edit_(entries),
          item_(url_, edit_.shown(), access_),
          leftCreatorWithout_(item_.leavesCreatorWithout(edit_.shown())),
          before_(shown(edit_.shown())),
          jsonBefore_(options.json ? jsonOfEntries(edit_.shown()) : Json()),
          jsonOfItem_(jsonOfListedItem(options.path, entries)),
          editor_(edit_.read(), [this](Problem& problem) {
              const auto folder = item_.isFolder();
              if (folder)
                  return *folder;
              kindError_ = folder.error();
              problem = say("whether the item is a folder cannot be told");
              return false;
          }) {}

    Outcome byScript(const std::string& script) {
        const auto problem = runEditScript(script, editor_);
        if (kindError_) {
            auto outcome =
                failed(say("cannot tell whether there is a folder at '%1'", escaped(options_.path)),
                       kindError_);
            outcome.message += "  " + say("Nothing was changed.") + '\n';
            return outcome;
        }
        if (problem)
            return {ExitUsage,
                    {},
                    message({say("the edit script, %1.", *problem), say("Nothing was changed."),
                             say("'%1' tells the commands of an edit.", "morvane help edit")})};
        for (int attempt = 0; attempt != maxAttempts; ++attempt) {
            if (auto outcome = save(options_.lossy)) {
                if (attempt != 0 && outcome->exitCode == ExitSuccess)
                    outcome->message =
                        message({say("another program has changed the list meanwhile; the edit "
                                     "was made on what it is now.")}) +
                        outcome->message;
                return *outcome;
            }
            std::vector<std::string> notMade;
            if (auto failure = replay(notMade))
                return *failure;
            if (!notMade.empty())
                return refusedAsChanged(
                    say("another program has changed the list meanwhile, and "
                        "in it what the script changes: %1",
                        enumerated(notMade)));
        }
        return refusedAsChanged(say("other programs change it again and again"));
    }

    Outcome byHand(const AclInteraction& interaction) {
        Outcome outcome;
        const auto saveOrTell = [&](bool lossy) -> Problem {
            std::vector<std::string> notMade;
            if (const auto done = save(lossy || options_.lossy))
                outcome = *done;
            else if (const auto failure = replay(notMade))
                outcome = *failure;
            else
                return notMade.empty()
                           ? say("Another program has changed the list. Your changes are made on "
                                 "what it is now: look at it, and save again.")
                           : say("Another program has changed the list. Your changes are made on "
                                 "what it is now, but not that of %1, which is no longer what it "
                                 "was: look at it, and save again.",
                                 enumerated(notMade));
            if (outcome.exitCode != ExitFailure)
                return std::nullopt;
            return outcome.message;
        };
        const bool saved = interaction(editor_, {escaped(options_.path), saveOrTell,
                                                 [this] { return edit_.changes(editor_); }});
        return saved ? outcome : Outcome{ExitSuccess, {}, message({say("nothing was changed.")})};
    }

  private:
    std::string shown(const EntryList& entries) const {
        return itemAsLines(entries, style_) + entriesAsTable(entries, options_.tree, style_);
    }

    Outcome refusedAsChanged(const std::string& why) const {
        return {ExitFailure,
                {},
                message({say("%1: %2.", cannotChange(options_), escaped(why)),
                         say("Nothing was changed. Look at the list, and edit it as it is "
                             "now.")})};
    }

    /// Empty if another program has changed the list since it was read.
    std::optional<Outcome> save(bool lossy) {
        if (const auto problem = editor_.unwritable())
            return Outcome{
                ExitFailure, {}, message({say("%1.", *problem), say("Nothing was changed.")})};

        auto asked = edit_.toWrite(editor_);
        auto entries = asked;
        for (auto& entry : entries) {
            if (editor_.model().isExecutionChosen(*entry))
                entry = item_.askingToExecute(entry);
        }
        if (options_.dryRun || lossy) {
            auto after = item_.afterWriting(entries, lossy);
            if (!after)
                return refusal(countedAsSeen(after.error(), asked, editor_.entries()), options_);
            entries = *std::move(after);
            asked = entries;
        }
        if (!lossy && !leftCreatorWithout_ && item_.leavesCreatorWithout(entries))
            return Outcome{ExitFailure,
                           {},
                           message({say("%1: %2.", cannotChange(options_),
                                        say("whoever makes an item in the folder would have no "
                                            "right to it, as all that is inherited is for "
                                            "others")),
                                    say("Nothing was changed. 'add creator' adds an entry for "
                                        "them; let it apply to the same items. --lossy accepts the "
                                        "list as it is.")})};
        if (options_.dryRun)
            return wouldBe(std::move(entries));
        // The service tells a list that has changed by what the entries were read from; where none
        // tells it, as in a list without entries, this program looks itself.
        if (std::none_of(entries.begin(), entries.end(),
                         [](const auto& entry) { return entry->origin() != nullptr; })) {
            const auto now = source_(url_);
            if (!now)
                return refusal(now.error(), options_);
            if (!edit_.isStill(*now))
                return std::nullopt;
        }
        Outcome outcome;
        if (const auto error = sink_(entries, url_)) {
            if (isChangedMeanwhile(*error))
                return std::nullopt;
            if (exitCodeOf(*error) != ExitStoredOtherwise)
                return refusal(countedAsSeen(error, asked, editor_.entries()), options_);
            outcome = {ExitStoredOtherwise,
                       {},
                       message({say("the list of '%1' was written. %2", escaped(options_.path),
                                    escaped(error->localizedDescription())),
                                escaped(advice(*error, Effect::changes))}),
                       error};
        }
        // The item has its entries now, but not always in the order in which they were written.
        auto written = source_(url_);
        if (!written) {
            outcome.message += message({say("the list was written; it cannot be read back: %1",
                                            escaped(written.error()->localizedDescription()))});
            return outcome;
        }
        sortCanonically(*written);
        outcome.output =
            options_.json
                ? jsonDocument("acl", {{"item", jsonOfItem_}, {"entries", jsonOfEntries(*written)}},
                               outcome)
                : shown(*written);
        return outcome;
    }

    Outcome wouldBe(EntryList entries) const {
        sortCanonically(entries);
        const auto after = shown(entries);
        if (options_.json)
            return {ExitSuccess,
                    jsonDocument("acl",
                                 {{"item", jsonOfItem_},
                                  {"before", jsonBefore_},
                                  {"after", jsonOfEntries(entries)}},
                                 {}),
                    {}};
        auto told = message({say("--dry-run, nothing was changed.")});
        if (item_.isAllowDeny())
            told +=
                "  " + say("On a network mount the server decides what it stores of it.") + '\n';
        return {ExitSuccess, say("Before:") + '\n' + before_ + '\n' + say("After:") + '\n' + after,
                told};
    }

    /// Reads the list again and makes the edit on what it is now, without what `notMade` then
    /// names. Returns the failure if the list cannot be read.
    std::optional<Outcome> replay(std::vector<std::string>& notMade) {
        auto now = source_(url_);
        if (!now)
            return refusal(now.error(), options_);
        item_ = EditedItem(url_, *now, access_);
        leftCreatorWithout_ = item_.leavesCreatorWithout(*now);
        notMade = edit_.replay(editor_, *now);
        return std::nullopt;
    }

    const EditOptions& options_;
    const NSURL url_;
    const AclSource& source_;
    const AclSink& sink_;
    const AccessSource& access_;
    const Style& style_;
    ListEdit edit_;
    EditedItem item_;
    /// Whether that was so of the list that was read.
    bool leftCreatorWithout_;
    NSErrorRef kindError_;
    const std::string before_;
    const Json jsonBefore_;
    const Json jsonOfItem_;
    AclEditor editor_;
};

}  // namespace

Outcome runAclEdit(const EditOptions& options, const AclSource& source, const AclSink& sink,
                   const AccessSource& access, const AclInteraction& interaction,
                   const Style& style) {
    if (options.path.empty())
        return {ExitUsage, {}, message({say("the path is empty; name a file or a folder.")})};
    if (!options.script && !interaction)
        return {ExitUsage,
                {},
                message({say("--edit without a script wants a terminal."),
                         say("Write the changes behind --edit, as in: %1",
                             "--edit 'add user:alice; permissions read'")})};
    const auto url = NSURL::fileURLWithPath(options.path);
    const auto entries = source(url);
    if (!entries)
        return failed(say("cannot read the access-control list of '%1'", escaped(options.path)),
                      entries.error());
    AclEditing editing(options, url, *entries, source, sink, access, style);
    return options.script ? editing.byScript(*options.script) : editing.byHand(interaction);
}

}  // namespace morvane
