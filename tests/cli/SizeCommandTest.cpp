// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileSizeInfo.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <map>
#include <sstream>
#include <string>

#include "PropagateCommand.h"
#include "SizeCommand.h"

namespace morvane {
namespace {

std::shared_ptr<MVFileSizeItem> item(std::int64_t size, bool busy) {
    auto result = MVFileSizeItem::initWithSize(size);
    result->setBusy(busy);
    return result;
}

/// In the units that the user has chosen.
std::string inUnits(std::int64_t bytes) {
    return MVFileSizeInfo::sharedFileSizeInfo()->stringWithFileSize(bytes, true);
}

TEST(ACancelledSum, TellsWhyItEndedAndHowFarItCame) {
    const auto cancelled = [](const std::vector<NSURL>&, std::size_t) {
        return MVFileSizes{
            {item(4000, true)},
            NSError::errorWithDomain(
                NSPOSIXErrorDomain, ECANCELED,
                {{NSLocalizedDescriptionKey, std::string("It was cancelled. 1 was skipped.")}})};
    };
    const auto outcome = runSize({.paths = {"/x"}}, {cancelled, {}, {}}, Style(false));
    EXPECT_EQ(outcome.exitCode, ExitInterrupted);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.message, "morvane: It was cancelled. 1 was skipped.\n  " + inUnits(4000) +
                                   " were added up so far.\n");
}

/// A tree of folders, in which a name that ends with a slash is a folder, and "other/" a mount.
class ASizeTree : public testing::Test {
  protected:
    Outcome run(SizeOptions options) {
        const auto sizes = [this](const std::vector<NSURL>& urls, std::size_t asked) {
            asked_ = asked;
            MVFileSizes answer;
            for (const auto& url : urls) {
                urls_.push_back(url.path());
                answer.items.push_back(item(sizes_.at(url.lastPathComponent()), false));
            }
            return answer;
        };
        const auto contents = [this](const NSURL& url) -> Result<std::vector<NSURL>> {
            std::vector<NSURL> inside;
            for (const auto& name : inside_[url.lastPathComponent()])
                inside.push_back(url.URLByAppendingPathComponent(name));
            return inside;
        };
        const auto facts = [this](const std::string& path) {
            const auto name = path.substr(path.rfind('/') + 1);
            FileFacts found;
            constexpr std::uint32_t folder = 0040755;
            found.mode = inside_.contains(name) || name == "mount" ? folder : 0100644;
            found.mount = name == "mount" ? 2 : 1;
            found.size = sizes_[name];
            return std::optional(found);
        };
        return runSize(options, {sizes, contents, facts}, Style(false));
    }

    std::map<std::string, std::vector<std::string>> inside_{
        {"top", {"small", "nest", "large", "mount"}}, {"nest", {"inner"}}};
    std::map<std::string, std::int64_t> sizes_{
        {"top", 1000}, {"small", 10}, {"nest", 290}, {"inner", 290}, {"large", 700}};
    std::vector<std::string> urls_;
    std::size_t asked_ = 0;
};

TEST_F(ASizeTree, ShowsTheLargestFirstWithTheirPartsOfTheWhole) {
    const auto outcome = run({.paths = {"/top"}, .depth = 2});
    const auto line = [](std::int64_t size, const std::string& rest) {
        const auto text = inUnits(size);
        return std::string(inUnits(290).size() - text.size(), ' ') + text + "  " + rest + '\n';
    };
    EXPECT_EQ(outcome.output,
              line(1000, "100%  ##########  /top") + line(700, " 70%  #######       large") +
                  line(290, " 29%  ###           nest") + line(290, " 29%  ###             inner") +
                  line(10, "  1%                small") + line(-1, "  0%                mount") +
                  "1 item is on another file system or a bind mount, which is not added up.\n");
    EXPECT_EQ(asked_, 1U);
    // Those that were asked for come first; a mount and what has been seen are not asked for.
    EXPECT_EQ(urls_, (std::vector<std::string>{"/top", "/top/nest"}));
}

TEST_F(ASizeTree, ShowsThoseOfTheSameSizeInTheOrderOfTheirNames) {
    inside_["top"] = {"d", "b", "large", "c", "a"};
    for (const auto* const name : {"a", "b", "c", "d"})
        sizes_[name] = 75;
    const auto outcome = run({.paths = {"/top"}, .depth = 1});
    EXPECT_LT(outcome.output.find(" a\n"), outcome.output.find(" b\n"));
    EXPECT_LT(outcome.output.find(" b\n"), outcome.output.find(" c\n"));
    EXPECT_LT(outcome.output.find(" c\n"), outcome.output.find(" d\n"));
    const auto largest = run({.paths = {"/top"}, .depth = 1, .top = 2});
    EXPECT_NE(largest.output.find(" a\n"), std::string::npos) << largest.output;
    EXPECT_NE(largest.output.find("3 others"), std::string::npos) << largest.output;
}

TEST_F(ASizeTree, AddsUpThoseThatAreNotAmongTheLargest) {
    const auto outcome = run({.paths = {"/top"}, .depth = 1, .top = 1});
    EXPECT_NE(outcome.output.find("large\n"), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find(inUnits(300) + "   30%  ###           3 others\n"),
              std::string::npos)
        << outcome.output;
}

TEST_F(ASizeTree, GoesByNameOrStaysAsItIsWhenThatIsWanted) {
    const auto order = [&](SizeOrder wanted) {
        std::string names;
        std::istringstream lines(run({.paths = {"/top"}, .depth = 1, .order = wanted}).output);
        for (std::string line; std::getline(lines, line) && line.find('%') != line.npos;)
            names += line.substr(line.rfind(' '));
        return names;
    };
    EXPECT_EQ(order(SizeOrder::byName), " /top large mount nest small");
    EXPECT_EQ(order(SizeOrder::asGiven), " /top small nest large mount");
}

TEST_F(ASizeTree, SaysWhyThePartsMayHaveMoreThanTheWhole) {
    sizes_["small"] = 700;  // another name of the large one
    const auto outcome = run({.paths = {"/top"}, .depth = 1});
    EXPECT_NE(outcome.output.find("A file with several names counts once in each folder"),
              std::string::npos)
        << outcome.output;
}

TEST_F(ASizeTree, HasATotalOfSeveralAndKeepsThemAsTheyAreWritten) {
    const auto outcome = run({.paths = {"top", "nest"}});
    const auto text = [](std::int64_t size) {
        const auto shown = inUnits(size);
        return std::string(inUnits(290).size() - shown.size(), ' ') + shown;
    };
    EXPECT_EQ(outcome.output,
              text(1000) + "  top\n" + text(290) + "  nest\n" + text(1290) + "  total\n");
}

TEST_F(ASizeTree, CountsWhatStandsInAnotherPathOrTwiceOnceInTheTotal) {
    const auto total = [&](std::vector<std::string> paths) {
        const auto output = run({.paths = std::move(paths), .json = true}).output;
        const std::string key = "\"total\": ";
        return std::stoll(output.substr(output.find(key) + key.size()));
    };
    EXPECT_EQ(total({"/top", "/top/nest"}), 1000);
    EXPECT_EQ(total({"/top/nest/inner", "/top/large", "/top/"}), 1000);
    EXPECT_EQ(total({"/top", "/top/", "/top/nest/../../top"}), 1000);
    EXPECT_EQ(total({"top", "top/nest/inner", "top/nest"}), 1000);
    EXPECT_EQ(total({"/top/large", "/top/small"}), 710);
    // Nobody counts it above.
    sizes_["mount"] = 5;
    EXPECT_EQ(total({"/top", "/top/mount"}), 1005);
    // The name of one is how that of the other begins.
    sizes_["topmost"] = 30;
    EXPECT_EQ(total({"/top", "/topmost"}), 1030);
}

TEST(TheLiveLine, TellsWhatIsDoneAndTheTimeAndNoRate) {
    EXPECT_EQ(progressLine({item(3000, false), item(1000, true)}, std::chrono::milliseconds(2500)),
              "1 of 2 done, " + inUnits(4000) + ", 2 s");
}

TEST(TheLiveLine, TellsHowLongAPropagationHasGoneOn) {
    EXPECT_EQ(propagationLine({5, 2}, std::chrono::milliseconds(2999)),
              "propagating, 7 items, 2 s");
}

TEST(TheLiveLine, CountsMoreThanThereCanBeAsTheMost) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(progressLine({item(most, false), item(most, false)}, std::chrono::seconds(0)),
              progressLine({item(most, false), item(0, false)}, std::chrono::seconds(0)));
}

}  // namespace
}  // namespace morvane
