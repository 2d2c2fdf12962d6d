// SPDX-License-Identifier: MIT
#include <MorvaneOperation/IdentityText.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "AclCommand.h"
#include "CheckCommand.h"
#include "JsonDocument.h"
#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

std::shared_ptr<MVTreeNode> node(const char* name, std::int64_t state) {
    return MVTreeNode::treeNodeWithRepresentedObject(MVAclPermission::initWithName(name, 2, state));
}

std::shared_ptr<MVAclEntry> flatEntry(const CBPosixIdentity& who, std::int64_t read,
                                      std::int64_t write, std::int64_t execute) {
    return MVAclEntry::initWithUuid(
        uuidOfPosixIdentity(who), 1,
        {node("Read", read), node("Write", write), node("Execute", execute)}, false);
}

/// One box below "Read"; the tag as given.
std::shared_ptr<MVAclEntry> treeEntry(std::int32_t tag, bool inherited) {
    auto read = node("Read", MVStateOn);
    read->mutableChildNodes().append(node("Read Data", MVStateOn));
    return MVAclEntry::initWithUuid(uuidOfPosixIdentity(CBEveryone{}), tag,
                                    {read, node("Write", 0), node("Administration", 0)}, inherited);
}

// An id that the user database does not have.
constexpr std::uint32_t nobodysId = 3999999999;

Outcome run(AclOptions options, EntryList entries) {
    return runAcl(
        options, [&](const NSURL&) { return entries; }, Style(false));
}

Outcome runFailing(NSErrorRef error) {
    return runAcl(
        {.path = "/some/where"}, [&](const NSURL&) { return Failure{error}; }, Style(false));
}

TEST(AclCommand, PrintsATableInWhichTheColumnsAreAligned) {
    const auto outcome =
        run({.path = "/x"}, {flatEntry(CBPosixUser{0}, 1, 1, 0), flatEntry(CBEveryone{}, 1, 0, 1)});
    EXPECT_EQ(outcome.exitCode, ExitSuccess);
    EXPECT_EQ(outcome.message, "");
    EXPECT_EQ(outcome.output,
              "Who                Rule   Letters  Permissions             Applies to  Inherited\n"
              "user root (owner)  Allow  rw-      Read and Write          This item   no\n"
              "everyone           Allow  r-x      Custom (Read, Execute)  This item   no\n");
}

TEST(AclCommand, ShowsTheBoxesBelowEachEntryWithTree) {
    const auto outcome = run({.path = "/x", .tree = true}, {treeEntry(2, true)});
    EXPECT_EQ(outcome.output,
              "Who       Rule  Letters  Permissions  Applies to  Inherited\n"
              "everyone  Deny  r        Read         This item   yes\n"
              "    [x] Read\n"
              "        [x] Read Data\n"
              "    [ ] Write\n"
              "    [ ] Administration\n");
}

TEST(AclCommand, PutsExplicitBeforeInheritedAndDenyBeforeAllowAndKeepsEquals) {
    const auto allow = treeEntry(1, false);
    const auto allowToo = treeEntry(1, false);
    const auto deny = treeEntry(2, false);
    const auto inheritedAllow = treeEntry(1, true);
    const auto inheritedDeny = treeEntry(2, true);
    EntryList entries{inheritedAllow, allow, inheritedDeny, allowToo, deny};
    sortCanonically(entries);
    EXPECT_EQ(entries, (EntryList{deny, allow, allowToo, inheritedDeny, inheritedAllow}));
}

TEST(AclCommand, NamesADeletedUserAndGroupByTheirIds) {
    EXPECT_EQ(identityName(*flatEntry(CBPosixUser{nobodysId}, 1, 0, 0)), "uid 3999999999");
    EXPECT_EQ(identityName(*flatEntry(CBPosixGroup{nobodysId}, 1, 0, 0)), "gid 3999999999");
    EXPECT_TRUE(identityIsGroup(*flatEntry(CBPosixGroup{nobodysId}, 1, 0, 0)));
}

TEST(AclCommand, PrintsAJsonArrayOfObjectsWithAllKeys) {
    const auto json =
        Json::parse(run({.path = "/x", .json = true}, {treeEntry(1, false)}).output)["entries"];
    const Json box = {{"name", "Read Data"},
                      {"permission", 2},
                      {"state", 1},
                      {"settable", true},
                      {"children", Json::array()}};
    const auto group = [](const char* name, int state, Json children) {
        return Json{{"name", name},
                    {"permission", 2},
                    {"state", state},
                    {"settable", true},
                    {"children", std::move(children)}};
    };
    EXPECT_EQ(json, Json::array({Json{
                        {"identity", "everyone"},
                        {"uuid", uuidOfPosixIdentity(CBEveryone{}).UUIDString()},
                        {"isGroup", true},
                        {"subject", "everyone"},
                        {"tag", 1},
                        {"letters", nullptr},
                        {"inherited", false},
                        {"isAcl", true},
                        {"permissionGroup", 3},
                        {"applicableTo", "This item"},
                        {"canonicalScore", 0},
                        {"permissions", Json::array({group("Read", 1, Json::array({box})),
                                                     group("Write", 0, Json::array()),
                                                     group("Administration", 0, Json::array())})},
                    }}));
}

TEST(AclCommand, PrintsAnEmptyArrayForNoEntriesAndKnowsNothingOfTheItem) {
    const auto json = Json::parse(run({.path = "/x", .json = true}, {}).output);
    EXPECT_EQ(json["entries"], Json::array());
    EXPECT_EQ(json["item"]["path"], "/x");
    for (const auto* const key : {"kind", "storage", "mask", "defaultMask", "owner", "group"})
        EXPECT_TRUE(json["item"].at(key).is_null()) << key;
}

TEST(AclCommand, ReplacesWhatIsNotUtf8InJson) {
    auto entry = treeEntry(1, false);
    entry->setApplicableTo("a\xff");
    EXPECT_EQ(Json::parse(
                  run({.path = "/x", .json = true}, {entry}).output)["entries"][0]["applicableTo"],
              "a\xef\xbf\xbd");
}

TEST(AclCommand, AsksForTheAbsolutePath) {
    std::string asked;
    runAcl(
        {.path = "relative"},
        [&](const NSURL& url) {
            asked = url.path();
            return EntryList();
        },
        Style(false));
    EXPECT_EQ(asked.substr(0, 1), "/");
    EXPECT_TRUE(asked.ends_with("/relative"));
}

TEST(AclCommand, SaysWhatFailedAndWhatHelpsAndEndsWithOne) {
    const auto outcome = runFailing(NSError::errorWithDomain(NSPOSIXErrorDomain, ENOENT));
    EXPECT_EQ(outcome.exitCode, ExitFailure);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.message,
              "morvane: cannot read the access-control list of '/some/where': "
              "No such file or directory\n"
              "  Check the spelling of the path; a symbolic link may point to nothing.\n");
}

TEST(AclCommand, PrefersTheAdviceThatCameWithTheError) {
    const auto outcome = runFailing(NSError::errorWithDomain(
        NSPOSIXErrorDomain, EACCES, {{NSLocalizedRecoverySuggestionErrorKey, "Ask the owner."}}));
    EXPECT_TRUE(outcome.message.ends_with("\n  Ask the owner.\n")) << outcome.message;
}

TEST(AclCommand, EndsWithThreeWhenTheServiceIsTheTrouble) {
    for (const auto code : {NSXPCConnectionInterrupted, NSXPCConnectionInvalid})
        EXPECT_EQ(runFailing(NSError::errorWithDomain(NSCocoaErrorDomain, code)).exitCode,
                  ExitService);
}

TEST(AclCommand, RefusesAnEmptyPathAsUsage) {
    EXPECT_EQ(run({.path = ""}, {}).exitCode, ExitUsage);
}

TEST(ACheck, AsksForFewerListsAtOnceWhereTheyAreLarge) {
    const acltest::World world;
    const EntryList one{MVAclEntry::newEntryForDirectory(false)};
    constexpr std::size_t many = 4096;
    const EntryList large(many, one.front());
    std::vector<std::size_t> asked;
    const TreeParts parts{
        .lists =
            [&](const std::vector<NSURL>& urls) {
                asked.push_back(urls.size());
                const auto isTop = urls.front().path() == "/tree";
                return std::vector<Result<EntryList>>(urls.size(), isTop ? one : large);
            },
        .contents = [](const NSURL& url) -> Result<std::vector<NSURL>> {
            std::vector<NSURL> inside;
            for (int i = 0; i != 70; ++i)
                inside.push_back(url.URLByAppendingPathComponent(std::to_string(i)));
            return inside;
        },
        .facts = [](const std::string& path) -> std::optional<FileFacts> {
            if (path != "/tree")
                return std::nullopt;
            FileFacts folder;
            folder.mode = 0040755;
            return folder;
        },
        .groupsInUse = [] { return std::nullopt; },
        .progress = [](std::size_t) { return true; },
        .print = [](const std::string&) {},
        .complain = [](const std::string&) {}};
    runCheck({.path = "/tree"}, parts);
    // The tree's own list twice, then what is in it.
    EXPECT_EQ(asked, (std::vector<std::size_t>{1, 1, 64, 4, 2}));
}

}  // namespace
}  // namespace morvane
