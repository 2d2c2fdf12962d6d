// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/ResolvedUrl.h>
#include <MorvaneOperation/platform/host/Log.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>
#include <MorvaneOperation/platform/linux/StandardStreams.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "AuthenticationAgent.h"
#include "CommandLine.h"
#include "CommandParser.h"
#include "CommandTable.h"
#include "EditScreen.h"
#include "EditedItem.h"
#include "Failure.h"
#include "FileServices.h"
#include "Journal.h"
#include "JsonDocument.h"
#include "ListText.h"
#include "OwnTerminal.h"
#include "Terminal.h"
#include "TextEditor.h"

namespace morvane {
namespace {

std::atomic<bool> interrupted = false;

/// Until the work has ended, Ctrl-C asks the service to stop; a second one ends this program.
class InterruptWatch {
  public:
    InterruptWatch() {
        struct sigaction action {};
        action.sa_handler = [](int) { interrupted = true; };
        action.sa_flags = SA_RESETHAND | SA_RESTART;
        sigaction(SIGINT, &action, &former_);
    }
    ~InterruptWatch() { sigaction(SIGINT, &former_, nullptr); }
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

  private:
    struct sigaction former_ {};
};

/// The columns of a line on standard error; empty where none can be drawn over and over.
std::optional<std::size_t> columnsOfLiveLine() {
    const char* const kind = std::getenv("TERM");
    if (isatty(STDERR_FILENO) == 0 || !kind || std::string_view(kind) == "dumb")
        return std::nullopt;
    constexpr std::size_t usual = 80;
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usual;
}

/// While a service works: a line on the terminal that tells how far it is, and Ctrl-C.
class LiveLine {
  public:
    ~LiveLine() { clear(); }

    static void clear() {
        if (columnsOfLiveLine())
            std::fputs("\r\033[K", stderr);
    }

    std::chrono::duration<double> elapsed() const {
        return std::chrono::steady_clock::now() - start_;
    }
    static void show(const std::string& line) {
        if (const auto columns = columnsOfLiveLine()) {
            // The last column would take the cursor to the next line.
            std::fprintf(stderr, "\r\033[K%s", cut(line, *columns - 1).c_str());
            std::fflush(stderr);
        }
    }

  private:
    const InterruptWatch watch_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

bool print(const std::string& text, std::FILE* to) {
    return std::fwrite(text.data(), 1, text.size(), to) == text.size() && std::fflush(to) == 0;
}

/// Why something could not be written to standard output, as an errno value; 0 until then.
int whyNotPrinted = 0;

bool printOut(const std::string& text) {
    if (whyNotPrinted == 0 && !print(text, stdout))
        whyNotPrinted = errno != 0 ? errno : EIO;
    return whyNotPrinted == 0;
}

/// `asked` as for SizeSource.
MVFileSizes sizesWithLiveLine(FileServices& services, const std::vector<NSURL>& urls,
                              std::size_t asked, bool asLines) {
    const LiveLine live;
    return services.sizes(urls, [&](SizeList sizes) {
        if (sizes.empty())
            return !interrupted;
        sizes.resize(std::min(sizes.size(), asked));
        if (asLines)
            return printOut(progressAsJson(sizes, live.elapsed())) && !interrupted;
        LiveLine::show(progressLine(sizes, live.elapsed()));
        return !interrupted;
    });
}

Propagated propagateWithLiveLine(FileServices& services, const EntryList& entries, const NSURL& url,
                                 bool asLines) {
    const LiveLine live;
    return services.propagateAclEntries(entries, url, [&](const MVItemCounts& counts) {
        if (asLines)
            return printOut(propagationAsJson(counts, live.elapsed())) && !interrupted;
        LiveLine::show(propagationLine(counts, live.elapsed()));
        return !interrupted;
    });
}

bool editOnTerminal(AclEditor& editor, const EditSession& session, const EditSources& sources,
                    const std::string& colour) {
    Terminal terminal;
    EditScreen screen(
        editor, session.title,
        Style(wantsColours(colour, true, std::getenv("NO_COLOR"), std::getenv("TERM"))), sources);
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

/// Asks on the terminal; yes is said in English or in the language of the user.
bool askWhetherToGoOn(const std::string& said) {
    LiveLine::clear();
    std::fputs((said + '\n' + say("Go on? (y/n)") + ' ').c_str(), stderr);
    std::fflush(stderr);
    std::string answer;
    for (int c = std::getchar(); c != EOF && c != '\n'; c = std::getchar())
        answer += static_cast<char>(c);
    return !interrupted && (answer == "y" || answer == "Y");
}

/// As TreeParts has them.
std::optional<std::set<std::uint32_t>> groupsInUse() {
    const auto known = FileServices::identities([] { return !interrupted; });
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

/// What the words on the command line ask for.
Outcome run(const CommandLine& line, const CommonOptions& common) {
    if (const auto* outcome = std::get_if<Outcome>(&line))
        return *outcome;
    if (common.privileged)
        moveToOwnTerminal();
    const Style style(wantsColours(common.colour, isatty(STDOUT_FILENO) != 0,
                                   std::getenv("NO_COLOR"), std::getenv("TERM")));
    FileServices services("io.github.morvaneoperation.morvane");
    std::optional<AuthenticationAgent> agent;
    if (common.privileged) {
        services.usePrivilegedHelper();
        if (isatty(STDIN_FILENO) != 0)
            agent.emplace();
    }
    // The helper refuses symbolic links, as they may point elsewhere when it looks.
    const auto resolved = [&](const NSURL& url) {
        return common.privileged ? withoutLinks(url) : url;
    };
    const auto resolvedOnTheWay = [&](std::vector<NSURL> urls) {
        for (auto& url : urls)
            url = common.privileged ? withoutLinksOnTheWay(url) : url;
        return urls;
    };
    const auto contentsOf = [&](const NSURL& url) { return services.contents(resolved(url)); };
    const auto entriesOf = [&](const NSURL& url) { return services.aclEntries(resolved(url)); };
    const auto accessOf = [&](const NSURL& url, const NSUUID& who) {
        return services.access(resolved(url), who);
    };
    if (const auto* size = std::get_if<SizeOptions>(&line)) {
        const auto sizesOf = [&](const std::vector<NSURL>& urls, std::size_t asked) {
            return sizesWithLiveLine(services, resolvedOnTheWay(urls), asked, size->lines);
        };
        return runSize(*size, {sizesOf, contentsOf, glimpseOfFile}, style);
    }
    if (const auto* ls = std::get_if<LsOptions>(&line))
        return runLs(*ls, contentsOf, factsOfFile, style);
    if (const auto* rename = std::get_if<RenameOptions>(&line)) {
        return runRename(*rename, [&](const auto& urls, const auto& names) {
            return services.rename(resolvedOnTheWay(urls), names);
        });
    }
    std::optional<LiveLine> live;
    // What is found is printed while the work goes on.
    const TreeParts tree{[&](const std::vector<NSURL>& urls) {
                             // Until the first is asked for, Ctrl-C ends this program at once.
                             if (!live)
                                 live.emplace();
                             auto all = urls;
                             for (auto& url : all)
                                 url = resolved(url);
                             return services.aclEntriesOfAll(all, [] { return !interrupted; });
                         },
                         contentsOf,
                         glimpseOfFile,
                         groupsInUse,
                         [](std::size_t done) {
                             LiveLine::show(lookedAtLine(done));
                             return !interrupted;
                         },
                         [](const std::string& text) {
                             LiveLine::clear();
                             printOut(text);
                         },
                         [](const std::string& text) {
                             LiveLine::clear();
                             print(text, stderr);
                         }};
    if (const auto* whoCan = std::get_if<WhoCanOptions>(&line)) {
        live.emplace();
        const auto goesOn = [] { return !interrupted; };
        const RightSources sources{
            entriesOf,
            [&](const NSURL& url, const std::vector<NSUUID>& whom) {
                return services.accessOfAll(resolved(url), whom, goesOn);
            },
            [&] { return FileServices::identities(goesOn); },
            [](std::uint32_t uid) {
                return CBIdentityAuthority::defaultIdentityAuthority().database().groupsOfUser(uid);
            },
            [](const NSURL& url) { return withoutLinks(url); },
            goesOn};
        return runWhoCan(*whoCan, sources, style);
    }
    if (const auto* check = std::get_if<CheckOptions>(&line))
        return runCheck(*check, tree);
    if (const auto* diff = std::get_if<DiffOptions>(&line))
        return runDiff(*diff, tree, style);
    Journal journal(Journal::folder());
    const auto write = [&](const EntryList& entries, const NSURL& url) {
        return services.setAclEntries(entries, resolved(url));
    };
    const auto accessIfPrivileged = common.privileged ? AccessSource(accessOf) : nullptr;
    const bool isThereSomebody = isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0;
    const auto whetherToGoOn =
        isThereSomebody ? askWhetherToGoOn : std::function<bool(const std::string&)>();
    const ChangeParts parts{
        .source = entriesOf,
        .sink = write,
        .contents = contentsOf,
        .facts = factsOfFile,
        .access = accessIfPrivileged,
        .progress =
            [&](std::size_t done) {
                if (!live)
                    live.emplace();
                LiveLine::show(changeLine(done));
                return !interrupted;
            },
        .goesOn = common.privileged ? whetherToGoOn : nullptr,
        .undo = common.privileged ? "morvane --privileged acl --undo" : "morvane acl --undo",
        .edited = editedText};
    if (const auto* change = std::get_if<ChangeOptions>(&line))
        return runChange(*change, parts, journal, style);
    if (const auto* propagate = std::get_if<PropagateOptions>(&line)) {
        const auto propagated = [&](const EntryList& entries, const NSURL& url) {
            return propagateWithLiveLine(services, entries, resolved(url), propagate->lines);
        };
        live.emplace();
        // What is below is looked at with the user's own rights: to list it would take another one,
        // for which the user would be asked as well, and each list would be a line of the log.
        FileServices own("io.github.morvaneoperation.morvane");
        auto looks = parts;
        if (common.privileged)
            looks.contents = [&](const NSURL& url) { return own.contents(url); };
        const auto look = [&](const NSURL& url) {
            return common.privileged ? own.aclEntries(url) : entriesOf(url);
        };
        return runPropagate(*propagate, looks, {propagated, look, whetherToGoOn}, journal);
    }
    if (const auto* save = std::get_if<SaveOptions>(&line))
        return runSave(*save, parts);
    if (const auto* access = std::get_if<AccessOptions>(&line))
        return runAccess(*access, accessOf, style);
    if (const auto* edit = std::get_if<EditOptions>(&line)) {
        const auto onTerminal = [&](AclEditor& editor, const EditSession& session) {
            const auto url = NSURL::fileURLWithPath(edit->path);
            const EditSources sources{session.changes,
                                      [&](const NSUUID& who) { return accessOf(url, who); }};
            return editOnTerminal(editor, session, sources, common.colour);
        };
        // What is written is noted before, so that it can be taken back.
        const auto writeNoted = [&](const EntryList& entries, const NSURL& url) {
            if (const auto before = entriesOf(url))
                journal.record(
                    url.path(), listAsText(url.path(), *before),
                    EditedItem(url, *before, accessIfPrivileged).digestAfterWriting(entries));
            auto error = write(entries, url);
            if (error && exitCodeOf(*error) != ExitStoredOtherwise)
                journal.discard();
            return error;
        };
        return runAclEdit(*edit, entriesOf, writeNoted, accessIfPrivileged,
                          Terminal::isThere() ? AclInteraction(onTerminal) : nullptr, style);
    }
    return runAcl(std::get<AclOptions>(line), entriesOf, style);
}

/// run(), with what its words do not suffice for told where their use is told.
Outcome runWithHelp(const CommandLine& line, const CommonOptions& common) {
    auto outcome = run(line, common);
    // What cannot be compared ends with the status of words that are wrong.
    const bool tellsItself = std::holds_alternative<Outcome>(line) ||
                             std::holds_alternative<EditOptions>(line) ||
                             endsLikeDiff(common.command);
    return tellsItself ? outcome : pointedToHelp(std::move(outcome), common.command);
}

/// What a run ends with that could not do its work.
ExitCode failureOf(const CommonOptions& common) {
    return endsLikeDiff(common.command) ? ExitTrouble : ExitFailure;
}

/// For programs, what a command has not printed itself: that it was done, or why not.
void completeJson(Outcome& outcome, const CommonOptions& common) {
    if (common.json == JsonForm::lines && outcome.output.empty())
        outcome.output = lastJsonLine(common.command, Json::object(), outcome);
    else if (common.json == JsonForm::object && outcome.output.empty())
        outcome.output = jsonDocument(common.command, Json::object(), outcome);
}

}  // namespace
}  // namespace morvane

int main(int argc, char** argv) {
    morvane::openMissingStandardStreams();
    // What texts are made of. Numbers are ICU's, and no time is shown.
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    // The request that a connection ends with tells it in its own words.
    morvane::setLogSink([](std::string_view) {});
    morvane::Outcome outcome;
    morvane::CommonOptions common;
    try {
        const auto line = morvane::parseCommandLine(argc, argv, MORVANE_VERSION, &common);
        outcome = morvane::runWithHelp(line, common);
    } catch (const std::filesystem::filesystem_error& failure) {
        // A path that is not whole begins at the current folder; nothing else throws this.
        outcome = {
            morvane::failureOf(common),
            {},
            morvane::message(
                {morvane::say("the current folder cannot be told: %1", failure.code().message()),
                 morvane::say("Go to a folder that exists, or write the whole path.")})};
    } catch (const std::exception& failure) {
        outcome = {morvane::failureOf(common), {}, morvane::message({failure.what()})};
    }
    morvane::completeJson(outcome, common);
    const bool printed = morvane::printOut(outcome.output);
    morvane::print(outcome.message, stderr);
    if (!printed) {
        const std::string why = std::strerror(morvane::whyNotPrinted);
        std::fputs(
            morvane::message({morvane::say("the output could not be written: %1", why)}).c_str(),
            stderr);
        return morvane::failureOf(common);
    }
    return outcome.exitCode;
}
