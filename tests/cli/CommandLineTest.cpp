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

TEST(CommandLine, TakesAnEmptyScriptForOne) {
    const auto script = [](std::vector<const char*> words) {
        return std::get<EditOptions>(parse(std::move(words))).script;
    };
    EXPECT_EQ(script({"acl", "/x", "--edit", ""}), "");
    EXPECT_EQ(script({"acl", "/x", "--edit"}), std::nullopt);
}

TEST(Colours, AreForTerminalsThatTakeThemAndForNobodyWhoDeclines) {
    EXPECT_TRUE(wantsColours(true, nullptr, "xterm"));
    EXPECT_TRUE(wantsColours(true, "", "xterm"));
    EXPECT_FALSE(wantsColours(false, nullptr, "xterm"));
    EXPECT_FALSE(wantsColours(true, "1", "xterm"));
    EXPECT_FALSE(wantsColours(true, nullptr, "dumb"));
    EXPECT_FALSE(wantsColours(true, nullptr, nullptr));
}

}  // namespace
}  // namespace morvane
