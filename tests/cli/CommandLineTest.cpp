// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <vector>

#include "CommandLine.h"

namespace morvane {
namespace {

CommandLine parse(std::vector<const char*> words) {
    words.insert(words.begin(), "morvane");
    return parseCommandLine(static_cast<int>(words.size()), words.data(), "9.8.7");
}

Outcome stopped(std::vector<const char*> words) {
    const auto parsed = parse(std::move(words));
    const auto* outcome = std::get_if<Outcome>(&parsed);
    EXPECT_TRUE(outcome);
    return outcome ? *outcome : Outcome{};
}

TEST(CommandLine, TakesThePathAndTheKindOfOutput) {
    const auto parsed = parse({"acl", "--tree", "/x"});
    const auto* acl = std::get_if<AclOptions>(&parsed);
    ASSERT_TRUE(acl);
    EXPECT_EQ(acl->path, "/x");
    EXPECT_TRUE(acl->tree);
    EXPECT_FALSE(acl->json);
}

TEST(CommandLine, TakesAPathThatIsNotUtf8OrBeginsWithADash) {
    const auto parsed = parse({"acl", "--", "-\xff"});
    ASSERT_TRUE(std::holds_alternative<AclOptions>(parsed));
    EXPECT_EQ(std::get<AclOptions>(parsed).path, "-\xff");
}

TEST(CommandLine, PrintsHelpWithTheExitStatusEverywhere) {
    for (const auto& words : std::vector<std::vector<const char*>>{{"--help"}, {"acl", "--help"}}) {
        const auto outcome = stopped(words);
        EXPECT_EQ(outcome.exitCode, ExitSuccess);
        EXPECT_NE(outcome.output.find("Exit status: 0 done"), std::string::npos);
    }
}

TEST(CommandLine, PrintsTheVersionEverywhere) {
    EXPECT_EQ(stopped({"--version"}).output, "morvane 9.8.7\n");
    EXPECT_EQ(stopped({"acl", "--version"}).output, "morvane 9.8.7\n");
}

TEST(CommandLine, EndsWithTwoWhenItDoesNotUnderstand) {
    for (const auto& words : std::vector<std::vector<const char*>>{
             {}, {"acl"}, {"acl", "--what", "/x"}, {"acl", "--tree", "--json", "/x"}, {"no"}}) {
        const auto outcome = stopped(words);
        EXPECT_EQ(outcome.exitCode, ExitUsage);
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(outcome.message.rfind("morvane: ", 0), 0U) << outcome.message;
    }
}

TEST(CommandLine, NamesACommandThatIsNotThere) {
    EXPECT_EQ(stopped({"nope"}).message,
              "morvane: there is no command 'nope'\n"
              "  'morvane --help' tells how the command is used.\n");
}

TEST(CommandLine, AsksWhetherACommandOrOptionThatIsLikeItWasMeant) {
    EXPECT_EQ(stopped({"renmae"}).message,
              "morvane: there is no command 'renmae'; did you mean 'rename'?\n"
              "  'morvane --help' tells how the command is used.\n");
    EXPECT_EQ(stopped({"alc"}).message,
              "morvane: there is no command 'alc'; did you mean 'acl'?\n"
              "  'morvane --help' tells how the command is used.\n");
    EXPECT_EQ(stopped({"acl", "/x", "--dryrun"}).message,
              "morvane: there is no option '--dryrun'; did you mean '--dry-run'?\n"
              "  'morvane acl --help' tells how the command is used.\n");
    EXPECT_EQ(stopped({"acl", "/x", "--colour=always"}).message,
              "morvane: there is no option '--colour'\n"
              "  'morvane acl --help' tells how the command is used.\n");
    EXPECT_EQ(stopped({"size", "/x", "--nope"}).message,
              "morvane: there is no option '--nope'\n"
              "  'morvane size --help' tells how the command is used.\n");
    EXPECT_EQ(stopped({"help", "edti"}).message,
              "morvane: there is no command 'edti'; did you mean 'edit'?\n"
              "  'morvane --help' tells how the command is used.\n");
}

TEST(CommandLine, SaysWhereAnOptionStandsThatIsForAllCommands) {
    EXPECT_EQ(stopped({"ls", "/x", "--privileged"}).message,
              "morvane: '--privileged' stands before the command\n"
              "  'morvane ls --help' tells how the command is used.\n");
    EXPECT_EQ(stopped({"--privileged", "ls", "/x", "--tree"}).message,
              "morvane: there is no option '--tree'\n"
              "  'morvane ls --help' tells how the command is used.\n");
}

TEST(CommandLine, SaysWhatIsWrongBeforeTheCommand) {
    EXPECT_EQ(stopped({"--jsn", "acl", "/x"}).message,
              "morvane: there is no option '--jsn'\n"
              "  'morvane --help' tells how the command is used.\n");
    EXPECT_EQ(stopped({"--", "acl", "/x"}).exitCode, ExitUsage);
}

TEST(CommandLine, SendsToTheHelpOfTheCommandThatWasNotUnderstood) {
    for (const auto& words : std::vector<std::vector<const char*>>{
             {"acl"}, {"acl", "/x", "--tree", "--json"}, {"acl", "/x", "--lossy"}}) {
        const auto message = stopped(words).message;
        EXPECT_NE(message.find("\n  'morvane acl --help' tells"), std::string::npos) << message;
    }
}

TEST(CommandLine, HelpsWithACommandWithAllAndWithAnEdit) {
    EXPECT_EQ(stopped({"help"}).output, stopped({"--help"}).output);
    EXPECT_EQ(stopped({"help", "size"}).output, stopped({"size", "--help"}).output);
    EXPECT_EQ(stopped({"help", "edit"}).exitCode, ExitSuccess);
    EXPECT_NE(stopped({"help", "edit"}).output.find("\n  permissions CHOICE  All boxes"),
              std::string::npos);
}

TEST(CommandLine, TakesAWordAsItIsWhateverItBeginsWith) {
    using Paths = std::vector<std::string>;
    const auto sized = [](std::vector<const char*> words) {
        return std::get<SizeOptions>(parse(std::move(words))).paths;
    };
    EXPECT_EQ(sized({"size", "[a]", "[b,c]"}), (Paths{"[a]", "[b,c]"}));
    EXPECT_EQ(sized({"size", "--", "-x", "--json", "[y]", "\x01z"}),
              (Paths{"-x", "--json", "[y]", "\x01z"}));
    EXPECT_EQ(sized({"size", "a", "--", "-x", "--"}), (Paths{"a", "-x", "--"}));
    EXPECT_EQ(sized({"size", "a", "++"}), (Paths{"a", "++"}));
    EXPECT_EQ(std::get<LsOptions>(parse({"ls", "[d]", "e"})).paths, (Paths{"[d]", "e"}));
    EXPECT_EQ(std::get<AclOptions>(parse({"acl", "[f]"})).path, "[f]");
    const auto renamed =
        std::get<RenameOptions>(parse({"rename", "a", "[b]", "--", "-c", "-d"})).words;
    EXPECT_EQ(renamed, (Paths{"a", "[b]", "-c", "-d"}));
    EXPECT_EQ(std::get<AccessOptions>(parse({"access", "x", "--user=[u]"})).user, "[u]");
    const auto edit = std::get<EditOptions>(parse({"acl", "--edit", "--", "-f"}));
    EXPECT_EQ(edit.path, "-f");
    EXPECT_EQ(edit.script, std::nullopt);
    EXPECT_EQ(std::get<EditOptions>(parse({"acl", "f", "--edit=[x]"})).script, "[x]");
}

TEST(CommandLine, TakesNoValueForAnOptionThatHasNone) {
    for (const auto* const word : {"--propagate=false", "--json=no", "--tree=0", "--json=x"})
        EXPECT_EQ(stopped({"acl", "/x", word}).exitCode, ExitUsage) << word;
    EXPECT_EQ(stopped({"--privileged=false", "ls", "/x"}).exitCode, ExitUsage);
    EXPECT_EQ(stopped({"size", "--base2=false"}).exitCode, ExitUsage);
}

TEST(CommandLine, TakesAnEmptyScriptForOne) {
    const auto script = [](std::vector<const char*> words) {
        return std::get<EditOptions>(parse(std::move(words))).script;
    };
    EXPECT_EQ(script({"acl", "/x", "--edit", ""}), "");
    EXPECT_EQ(script({"acl", "/x", "--edit"}), std::nullopt);
}

TEST(Colours, AreForTerminalsThatTakeThemAndForNobodyWhoDeclines) {
    EXPECT_TRUE(wantsColours("", true, nullptr, "xterm"));
    EXPECT_TRUE(wantsColours("auto", true, "", "xterm"));
    EXPECT_FALSE(wantsColours("auto", false, nullptr, "xterm"));
    EXPECT_FALSE(wantsColours("", true, "1", "xterm"));
    EXPECT_FALSE(wantsColours("", true, nullptr, "dumb"));
    EXPECT_FALSE(wantsColours("", true, nullptr, nullptr));
}

TEST(Colours, AreWhatTheCommandLineSaysWhateverTheOutputIs) {
    EXPECT_TRUE(wantsColours("always", false, "1", "dumb"));
    EXPECT_FALSE(wantsColours("never", true, nullptr, "xterm"));
}

TEST(CommandLine, TakesAWordOfTheCommonOptionsForNoCommand) {
    CommonOptions common;
    const std::vector<const char*> words{"morvane", "--color", "always", "ls", "/x"};
    const auto parsed =
        parseCommandLine(static_cast<int>(words.size()), words.data(), "1", &common);
    EXPECT_TRUE(std::holds_alternative<LsOptions>(parsed));
    EXPECT_EQ(common.colour, "always");
    EXPECT_EQ(common.command, "ls");
    EXPECT_EQ(stopped({"--color", "always", "lss", "/x"}).message,
              "morvane: there is no command 'lss'; did you mean 'ls'?\n"
              "  'morvane --help' tells how the command is used.\n");
}

TEST(CommandLine, NamesTheWordsThatAnOptionTakes) {
    EXPECT_EQ(stopped({"--color=red", "ls", "/x"}).message,
              "morvane: --color is followed by one of auto, always, never, not by 'red'\n"
              "  'morvane --help' tells how the command is used.\n");
    EXPECT_EQ(stopped({"size", "/x", "--sort", "date"}).message,
              "morvane: --sort is followed by one of size, name, none, not by 'date'\n"
              "  'morvane size --help' tells how the command is used.\n");
    for (const auto* const word : {"0", "-1", "two", "1x", ""})
        EXPECT_EQ(stopped({"size", "/x", "--depth", word}).exitCode, ExitUsage) << word;
    EXPECT_EQ(stopped({"size", "/x", "--top", "many"}).message,
              "morvane: --top is followed by a number from 1 on, not by 'many'\n"
              "  'morvane size --help' tells how the command is used.\n");
}

TEST(CommandLine, LooksOneLevelDownForTheLargest) {
    const auto size = [](std::vector<const char*> words) {
        return std::get<SizeOptions>(parse(std::move(words)));
    };
    EXPECT_EQ(size({"size", "/x"}).depth, 0U);
    EXPECT_EQ(size({"size", "/x", "--top", "3"}).depth, 1U);
    EXPECT_EQ(size({"size", "/x", "--top", "3", "--depth", "2"}).depth, 2U);
}

TEST(CommandLine, KeepsNoChoiceOfUnitsThatWasNotMade) {
    EXPECT_EQ(stopped({"size", "/x", "--save"}).message,
              "morvane: --save requires --base2 or --base10\n"
              "  'morvane size --help' tells how the command is used.\n");
    EXPECT_FALSE(std::get<SizeOptions>(parse({"size", "--base2"})).save);
    EXPECT_TRUE(std::get<SizeOptions>(parse({"size", "--base2", "--save"})).save);
}

TEST(CommandLine, MeansTheCurrentFolderWhereNoPathIsNamed) {
    using Paths = std::vector<std::string>;
    EXPECT_EQ(std::get<SizeOptions>(parse({"size", "--base2"})).paths, Paths{"."});
    EXPECT_EQ(std::get<SizeOptions>(parse({"size", "--base2", "--save"})).paths, Paths());
    EXPECT_EQ(std::get<LsOptions>(parse({"ls"})).paths, Paths{"."});
}

TEST(CommandLine, TellsWhetherJsonIsWantedThoughTheWordsAreWrong) {
    const auto form = [](std::vector<const char*> words) {
        words.insert(words.begin(), "morvane");
        CommonOptions common;
        parseCommandLine(static_cast<int>(words.size()), words.data(), "1", &common);
        return common.json;
    };
    EXPECT_EQ(form({"nonsense", "--json"}), JsonForm::object);
    EXPECT_EQ(form({"size", "--json-lines"}), JsonForm::lines);
    EXPECT_EQ(form({"ls", "--", "--json"}), JsonForm::none);
}

}  // namespace
}  // namespace morvane
