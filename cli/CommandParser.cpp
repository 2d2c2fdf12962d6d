// SPDX-License-Identifier: MIT
#include "CommandParser.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <optional>
#include <sstream>

#include "CommandTable.h"
#include "DidYouMean.h"
#include "PlainWords.h"
#include "Text.h"

namespace morvane {

namespace {

std::string exitStatuses(bool endsLikeDiff) {
    constexpr std::size_t columns = 92;
    std::string text;
    const auto statuses =
        endsLikeDiff
            ? say("Exit status: 0 nothing to tell, 1 something differs or was found, 2 something "
                  "could not be looked at or the command line was not understood, 3 the service "
                  "could not be started or went away, 130 interrupted by Ctrl-C.")
            : say("Exit status: 0 done, 1 the operation failed, 2 the command line was not "
                  "understood, 3 the service could not be started or went away, 4 the server of a "
                  "network mount has stored something else, 130 interrupted by Ctrl-C.");
    for (const auto& line : wrapped(statuses, columns))
        text += (text.empty() ? "" : "\n") + line;
    return text;
}

/// Translates the parser's texts, which are English, for the user.
std::string reasonOfParser(const std::string& english) {
    return sayLike(english,
                   {translatable("A subcommand is required"), translatable("%1 is required"),
                    translatable("%1 requires %2"), translatable("%1 excludes %2"),
                    translatable("The following argument was not expected: %1"),
                    translatable("The following arguments were not expected: %1"),
                    translatable("%1: %2 required %3 missing")});
}

bool isAmong(const std::vector<std::string_view>& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::vector<std::string_view> commandNames() {
    std::vector<std::string_view> names;
    for (const auto& command : commandTable())
        names.push_back(command.name);
    return names;
}

std::vector<std::string_view> optionNames(std::string_view command) {
    std::vector<std::string_view> names{"--help", "--version"};
    const auto addAll = [&](const std::vector<OptionRow>& options) {
        for (const auto& option : options) {
            if (!option.standsAlone())
                names.push_back(option.name);
        }
    };
    for (const auto& row : commandTable()) {
        if (row.name == command)
            addAll(row.options);
    }
    if (command.empty())
        addAll(commonOptions());
    return names;
}

void addOption(CLI::App& command, const OptionRow& row) {
    const std::string name =
        (row.letter != 0 ? std::string{'-', row.letter, ','} : "") + std::string(row.name);
    const auto says = say(row.says);
    if (row.kind == WordKind::none) {
        command.add_flag(name, says)->disable_flag_override();
        return;
    }
    auto* const option = command.add_option(name, says);
    option->type_name(std::string(row.word));
    if (row.times == OptionRow::Times::any)
        option->expected(0, CLI::detail::expected_max_vector_size)->allow_extra_args();
    else if (row.wordMayBeMissing())
        option->expected(0, 1);
    option->required(row.times == OptionRow::Times::once);
}

void relate(CLI::App& command, const OptionRow& row) {
    auto* const option = command.get_option(std::string(row.name));
    for (const auto& other : row.excludes)
        option->excludes(command.get_option(std::string(other)));
    if (!row.needs.empty())
        option->needs(command.get_option(std::string(row.needs)));
}

/// Whether a word stands behind `option` that is no command.
bool isWordOfCommonOption(std::string_view option) {
    const auto& rows = commonOptions();
    return std::any_of(rows.begin(), rows.end(), [&](const OptionRow& row) {
        return row.kind != WordKind::none && row.name == option;
    });
}

/// Why a word cannot stand behind its option; empty if it can.
std::string reasonAgainstWord(const OptionRow& row, const std::string& word) {
    if (row.kind == WordKind::number) {
        std::size_t number = 0;
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
        if (error != std::errc() || end != word.data() + word.size() || number == 0)
            return say("%1 is followed by a number from 1 on, not by '%2'", row.name,
                       escaped(word));
    }
    if (row.kind == WordKind::choice && !isAmong(row.choices, word)) {
        std::vector<Phrase> choices(row.choices.begin(), row.choices.end());
        return say("%1 is followed by one of %2, not by '%3'", row.name,
                   Phrase::list(translatable(", "), choices), escaped(word));
    }
    return {};
}

/// The parser for the whole table.
class Parser {
  public:
    /// `words` are in reverse order. A command that is none of them has no options, which take
    /// their time.
    Parser(const std::string& version, std::vector<std::string> words)
        : words_(std::move(words)),
          app_(say("Shows who may do what with files and folders, and how large they are."),
               "morvane") {
        describe(app_, commonOptions(), false, "morvane " + version);
        app_.require_subcommand(1);
        for (const auto& row : commandTable()) {
            const std::string name(row.name);
            auto* const command = app_.add_subcommand(name, say(row.says));
            command->group(say("Subcommands"));
            if (std::find(words_.begin(), words_.end(), name) != words_.end())
                describe(*command, row.options, row.endsLikeDiff, "morvane " + version);
        }
    }

    /// What is to be printed at once, or nothing if the words were understood.
    std::optional<Outcome> parse(int argc, const char* const* argv) {
        try {
            app_.parse(words_);
            return std::nullopt;
        } catch (const CLI::ParseError& stop) {
            std::ostringstream output;
            std::ostringstream message;
            if (app_.exit(stop, output, message) == 0)
                return Outcome{ExitSuccess, output.str(), {}};
            return whyNot(stop, argc, argv);
        }
    }

    /// The words that were understood, or what is wrong with one of them.
    std::variant<Outcome, ParsedWords> words() const {
        ParsedWords parsed;
        parsed.command = chosen();
        std::optional<Outcome> problem;
        const auto take = [&](const CLI::App& app, const std::vector<OptionRow>& options,
                              OptionValues& values) {
            for (const auto& row : options) {
                const std::string name(row.name);
                if (app.count(name) == 0)
                    continue;
                auto words = app.get_option(name)->results();
                for (auto& word : words) {
                    word = unmarked(std::move(word));
                    const auto reason = reasonAgainstWord(row, word);
                    if (!problem && !reason.empty())
                        problem = misunderstood(reason, &app == &app_ ? "" : parsed.command);
                }
                values.put(row.name, std::move(words));
            }
        };
        take(app_, commonOptions(), parsed.common);
        for (const auto& row : commandTable()) {
            if (row.name == parsed.command)
                take(*app_.get_subcommand(parsed.command), row.options, parsed.values);
        }
        if (problem)
            return *problem;
        return parsed;
    }

    std::string help(const std::string& command) const {
        const CLI::App* const app = command.empty() ? &app_ : app_.get_subcommand(command);
        return app->get_formatter()->make_help(
            app, command.empty() ? "morvane" : "morvane " + command, CLI::AppFormatMode::Normal);
    }

  private:
    /// The command that the words name; empty if they name none.
    std::string chosen() const {
        const auto commands = app_.get_subcommands();
        return commands.empty() ? std::string() : commands.front()->get_name();
    }

    static void describe(CLI::App& app, const std::vector<OptionRow>& options, bool endsLikeDiff,
                         const std::string& version) {
        for (const char* label :
             {translatable("Usage"), translatable("OPTIONS"), translatable("SUBCOMMAND"),
              translatable("Positionals"), translatable("REQUIRED"), translatable("Needs"),
              translatable("Excludes")})
            app.get_formatter()->label(label, say(label));
        app.option_defaults()->group(say("Options"));
        app.set_help_flag("-h,--help", say("Print this help and exit"))->disable_flag_override();
        app.set_version_flag("--version", version, say("Print the version and exit"))
            ->disable_flag_override();
        app.footer(exitStatuses(endsLikeDiff));
        for (const auto& row : options)
            addOption(app, row);
        for (const auto& row : options)
            relate(app, row);
    }

    /// The first unknown word decides what is told: the other mistakes may follow from it.
    Outcome whyNot(const CLI::ParseError& stop, int argc, const char* const* argv) const {
        const auto command = chosen();
        const bool isExtra = stop.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError);
        bool isBehindCommand = false;
        bool isBehindDashes = false;
        for (int i = 1; i < argc; ++i) {
            const std::string_view word = argv[i];
            const bool isOption = !isBehindDashes && word.starts_with('-');
            isBehindDashes |= word == "--";
            if (word.empty() || word == "--" || isWordOfCommonOption(argv[i - 1]))
                continue;
            if (!isOption && command.empty() && !isAmong(commandNames(), word))
                return noSuchCommand(word);
            if (isOption && word.starts_with("--") && isExtra) {
                const auto where = isBehindCommand ? command : std::string();
                if (const auto reason = reasonAgainst(word, where))
                    return misunderstood(*reason, where);
            }
            isBehindCommand |= word == command;
        }
        return misunderstood(escaped(reasonOfParser(withoutMarks(stop.what()))), command);
    }

    /// Why an option cannot stand where it does.
    static std::optional<std::string> reasonAgainst(std::string_view word,
                                                    std::string_view command) {
        const auto option = word.substr(0, word.find('='));
        const auto names = optionNames(command);
        if (isAmong(names, option))
            return std::nullopt;
        if (isAmong(optionNames({}), option))
            return say("'%1' stands before the command", option);
        return withQuestion(say("there is no option '%1'", escaped(option)), option, names);
    }

    std::vector<std::string> words_;
    CLI::App app_;
};

}  // namespace

std::vector<std::string> OptionValues::all(std::string_view name) const {
    const auto found = words_.find(name);
    return found == words_.end() ? std::vector<std::string>() : found->second;
}

std::string OptionValues::one(std::string_view name) const {
    const auto words = all(name);
    return words.empty() ? std::string() : words.front();
}

std::size_t OptionValues::number(std::string_view name) const {
    const auto word = one(name);
    std::size_t number = 0;
    std::from_chars(word.data(), word.data() + word.size(), number);
    return number;
}

std::variant<Outcome, ParsedWords> parseWords(int argc, const char* const* argv,
                                              const std::string& version) {
    Parser parser(version, wordsForParser(argc, argv));
    if (auto outcome = parser.parse(argc, argv))
        return *outcome;
    return parser.words();
}

std::string helpOfCommand(const std::string& command) {
    return Parser({}, {command}).help(command);
}

Outcome pointedToHelp(Outcome outcome, std::string_view command) {
    if (outcome.exitCode == ExitUsage)
        outcome.message +=
            "  " +
            say("'%1' tells how the command is used.",
                "morvane " + std::string(command) + (command.empty() ? "" : " ") + "--help") +
            '\n';
    return outcome;
}

Outcome misunderstood(const std::string& reason, const std::string& command) {
    return pointedToHelp({ExitUsage, {}, message({reason})}, command);
}

Outcome noSuchCommand(std::string_view word, const std::vector<std::string_view>& topics) {
    auto names = commandNames();
    names.insert(names.end(), topics.begin(), topics.end());
    return misunderstood(withQuestion(say("there is no command '%1'", escaped(word)), word, names),
                         {});
}

}  // namespace morvane
