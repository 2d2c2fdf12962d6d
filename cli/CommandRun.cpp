// SPDX-License-Identifier: MIT
#include "CommandRun.h"

#include <MorvaneOperation/ResolvedUrl.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <set>

#include "AuthenticationAgent.h"
#include "EditScreen.h"
#include "EditedItem.h"
#include "Failure.h"
#include "FileServices.h"
#include "Journal.h"
#include "ListText.h"
#include "LiveLine.h"
#include "OwnTerminal.h"
#include "Terminal.h"
#include "TextEditor.h"

namespace morvane {

namespace {

/// How often programs are told how far a change is.
constexpr std::chrono::duration<double> lineInterval{0.25};

const char* const queueLabel = "io.github.morvaneoperation.morvane";

int firstErrorOfOutput = 0;

bool print(const std::string& text, std::FILE* to) {
    return std::fwrite(text.data(), 1, text.size(), to) == text.size() && std::fflush(to) == 0;
}

bool goesOn() {
    return !isInterrupted();
}

Style styleFor(const CommonOptions& common, bool isTerminal) {
    return Style(
        wantsColours(common.colour, isTerminal, std::getenv("NO_COLOR"), std::getenv("TERM")));
}

bool editOnTerminal(AclEditor& editor, const EditSession& session, const EditSources& sources,
                    const Style& style) {
    Terminal terminal;
    EditScreen screen(editor, session.title, style, sources);
    while (true) {
        const auto [rows, columns] = terminal.size();
        terminal.show(screen.draw(rows, columns));
        const auto result = screen.press(terminal.nextKey());
        if (result == EditScreen::Result::leave)
            return false;
        if (result == EditScreen::Result::suspend)
            terminal.suspend();
        if (result == EditScreen::Result::goesOn || result == EditScreen::Result::suspend)
            continue;
        const auto problem = session.save(result == EditScreen::Result::saveLossily);
        if (!problem)
            return true;
        screen.tell(*problem);
    }
}

/// The answer for TreeParts::groupsInUse.
std::optional<std::set<std::uint32_t>> groupsInUse() {
    const auto known = FileServices::identities(goesOn);
    if (!known || known->size() >= MVFileClient::mostIdentities)
        return std::nullopt;
    auto& database = CBIdentityAuthority::defaultIdentityAuthority().database();
    std::set<std::uint32_t> groups;
    for (const auto& identity : *known) {
        const auto who = posixIdentityOfUUID(identity->uniqueIdentifier());
        const auto* const user = who ? std::get_if<CBPosixUser>(&*who) : nullptr;
        if (!user || user->uid == 0)
            continue;
        const auto own = database.groupsOfUser(user->uid);
        groups.insert(own.begin(), own.end());
    }
    return groups;
}

/// Gives each command what it works with.
class CommandRun {
  public:
    explicit CommandRun(const CommonOptions& common)
        : common_(common), style_(styleFor(common, isatty(STDOUT_FILENO) != 0)) {
        if (!common.privileged)
            return;
        services_.usePrivilegedHelper();
        if (isatty(STDIN_FILENO) != 0)
            agent_.emplace();
    }

    Outcome operator()(const Outcome& outcome) { return outcome; }

    Outcome operator()(const SizeOptions& size) {
        const auto sizesOf = [&](const std::vector<NSURL>& urls, std::size_t asked) {
            return sizes(urls, asked, size.lines);
        };
        return runSize(size, {sizesOf, contentsSource(), glimpseOfFile}, style_);
    }

    Outcome operator()(const LsOptions& ls) {
        return runLs(ls, contentsSource(), factsOfFile, style_);
    }

    Outcome operator()(const RenameOptions& rename) {
        return runRename(rename, [&](const auto& urls, const auto& names) {
            return services_.rename(resolvedOnTheWay(urls), names);
        });
    }

    Outcome operator()(const WhoCanOptions& whoCan) {
        live_.emplace();
        const RightSources sources{
            aclSource(),
            [&](const NSURL& url, const std::vector<NSUUID>& whom) {
                return services_.accessOfAll(resolved(url), whom, goesOn);
            },
            [] { return FileServices::identities(goesOn); },
            [](std::uint32_t uid) {
                return CBIdentityAuthority::defaultIdentityAuthority().database().groupsOfUser(uid);
            },
            [](const NSURL& url) { return withoutLinks(url); },
            goesOn};
        return runWhoCan(whoCan, sources, style_);
    }

    Outcome operator()(const CheckOptions& check) { return runCheck(check, treeParts()); }

    Outcome operator()(const DiffOptions& diff) { return runDiff(diff, treeParts(), style_); }

    Outcome operator()(const ChangeOptions& change) {
        Journal journal(Journal::folder());
        auto parts = changeParts();
        if (change.lines) {
            live_.emplace();
            parts.progress = [this, next = lineInterval](std::size_t done) mutable {
                const auto elapsed = live_->elapsed();
                if (elapsed >= next) {
                    next = elapsed + lineInterval;
                    if (!printOut(changeAsJson(done, elapsed)))
                        return false;
                }
                return goesOn();
            };
        }
        return runChange(change, parts, journal, style_);
    }

    Outcome operator()(const PropagateOptions& propagate) {
        live_.emplace();
        Journal journal(Journal::folder());
        // What is below is looked at with the user's own rights: to list it would take another one,
        // for which the user would be asked as well, and each list would be a line of the log.
        FileServices own(queueLabel);
        auto parts = changeParts();
        auto below = parts.source;
        if (common_.privileged) {
            parts.contents = [&](const NSURL& url) { return own.contents(url); };
            below = [&](const NSURL& url) { return own.aclEntries(url); };
        }
        const auto propagated = [&](const EntryList& entries, const NSURL& url) {
            return propagateEntries(entries, resolved(url), propagate.lines);
        };
        return runPropagate(propagate, parts, {propagated, below, whetherToGoOn()}, journal);
    }

    Outcome operator()(const SaveOptions& save) { return runSave(save, changeParts()); }

    Outcome operator()(const AccessOptions& access) {
        return runAccess(access, accessSource(), style_);
    }

    Outcome operator()(const EditOptions& edit) {
        Journal journal(Journal::folder());
        const auto parts = changeParts();
        const auto onTerminal = [&](AclEditor& editor, const EditSession& session) {
            const auto url = NSURL::fileURLWithPath(edit.path);
            const auto accessOf = accessSource();
            return editOnTerminal(
                editor, session,
                {session.changes, [&](const NSUUID& who) { return accessOf(url, who); }},
                styleFor(common_, true));
        };
        // What is written is noted before, so that it can be taken back.
        const auto writeNoted = [&](const EntryList& entries, const NSURL& url) {
            if (const auto before = parts.source(url))
                journal.record(url.path(), listAsText(url.path(), *before),
                               EditedItem(url, *before, parts.access).digestAfterWriting(entries));
            auto error = parts.sink(entries, url);
            if (error && exitCodeOf(*error) != ExitStoredOtherwise)
                journal.discard();
            return error;
        };
        return runAclEdit(edit, parts.source, writeNoted, parts.access,
                          Terminal::isThere() ? AclInteraction(onTerminal) : nullptr, style_);
    }

    Outcome operator()(const AclOptions& acl) { return runAcl(acl, aclSource(), style_); }

  private:
    /// The helper refuses symbolic links, as they may point elsewhere when it looks.
    NSURL resolved(const NSURL& url) const { return common_.privileged ? withoutLinks(url) : url; }
    std::vector<NSURL> resolvedOnTheWay(std::vector<NSURL> urls) const {
        for (auto& url : urls)
            url = common_.privileged ? withoutLinksOnTheWay(url) : url;
        return urls;
    }

    ContentsSource contentsSource() {
        return [this](const NSURL& url) { return services_.contents(resolved(url)); };
    }
    AclSource aclSource() {
        return [this](const NSURL& url) { return services_.aclEntries(resolved(url)); };
    }
    AccessSource accessSource() {
        return [this](const NSURL& url, const NSUUID& who) {
            return services_.access(resolved(url), who);
        };
    }

    /// Null if nobody can be asked.
    static std::function<bool(const std::string&)> whetherToGoOn() {
        if (isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0)
            return askWhetherToGoOn;
        return nullptr;
    }

    /// What is found is printed while the work goes on.
    TreeParts treeParts() {
        return {[this](const std::vector<NSURL>& urls) {
                    // Until the first is asked for, Ctrl-C ends this program at once.
                    if (!live_)
                        live_.emplace();
                    auto all = urls;
                    for (auto& url : all)
                        url = resolved(url);
                    return services_.aclEntriesOfAll(all, goesOn);
                },
                contentsSource(),
                glimpseOfFile,
                groupsInUse,
                [](std::size_t done) {
                    LiveLine::show(lookedAtLine(done));
                    return goesOn();
                },
                [](const std::string& text) {
                    LiveLine::clear();
                    printOut(text);
                },
                [](const std::string& text) {
                    LiveLine::clear();
                    printError(text);
                }};
    }

    ChangeParts changeParts() {
        return {
            .source = aclSource(),
            .sink =
                [this](const EntryList& entries, const NSURL& url) {
                    return services_.setAclEntries(entries, resolved(url));
                },
            .contents = contentsSource(),
            .facts = factsOfFile,
            .access = common_.privileged ? accessSource() : nullptr,
            .progress =
                [this](std::size_t done) {
                    if (!live_)
                        live_.emplace();
                    LiveLine::show(changeLine(done));
                    return goesOn();
                },
            .goesOn = common_.privileged ? whetherToGoOn() : nullptr,
            .undo = common_.privileged ? "morvane --privileged acl --undo" : "morvane acl --undo",
            .edited = editedText};
    }

    /// `asked` as for SizeSource.
    MVFileSizes sizes(const std::vector<NSURL>& urls, std::size_t asked, bool asLines) {
        const LiveLine live;
        return services_.sizes(resolvedOnTheWay(urls), [&](SizeList sizes) {
            if (sizes.empty())
                return goesOn();
            sizes.resize(std::min(sizes.size(), asked));
            if (asLines)
                return printOut(progressAsJson(sizes, live.elapsed())) && goesOn();
            LiveLine::show(progressLine(sizes, live.elapsed()));
            return goesOn();
        });
    }

    Propagated propagateEntries(const EntryList& entries, const NSURL& url, bool asLines) {
        const LiveLine live;
        return services_.propagateAclEntries(entries, url, [&](const MVItemCounts& counts) {
            if (asLines)
                return printOut(propagationAsJson(counts, live.elapsed())) && goesOn();
            LiveLine::show(propagationLine(counts, live.elapsed()));
            return goesOn();
        });
    }

    const CommonOptions& common_;
    const Style style_;
    FileServices services_{queueLabel};
    std::optional<AuthenticationAgent> agent_;
    std::optional<LiveLine> live_;
};

}  // namespace

Outcome runCommand(const CommandLine& line, const CommonOptions& common) {
    // Help needs neither a service nor another terminal.
    if (const auto* const outcome = std::get_if<Outcome>(&line))
        return *outcome;
    if (common.privileged)
        moveToOwnTerminal();
    CommandRun run(common);
    return std::visit(run, line);
}

bool printOut(const std::string& text) {
    if (firstErrorOfOutput == 0 && !print(text, stdout))
        firstErrorOfOutput = errno != 0 ? errno : EIO;
    return firstErrorOfOutput == 0;
}

int whyNotPrinted() {
    return firstErrorOfOutput;
}

void printError(const std::string& text) {
    print(text, stderr);
}

}  // namespace morvane
