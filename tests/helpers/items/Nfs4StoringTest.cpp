// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <sstream>

#include "Nfs4Names.h"
#include "Nfs4Storing.h"

namespace morvane {
namespace {

using Texts = std::vector<std::string>;

constexpr std::uint32_t read = 0x1;
constexpr std::uint32_t write = 0x6;
const Nfs4Target file{4710, 4710, false};
const Nfs4Target folder{4710, 4710, true};
const Nfs4Names nobodyByName{
    [](const std::string&, bool) { return std::optional<CBPosixIdentity>(); },
    [](const CBPosixIdentity& who) {
        return who == CBPosixIdentity{CBPosixUser{4711}} ? std::optional<std::string>("alice")
                                                         : std::nullopt;
    }};

Texts told(const Nfs4Acl& wanted, const Nfs4Acl& stored, const Nfs4Target& target) {
    Texts texts;
    for (const auto& text : textsOfStoring(lostInStoring(wanted, stored, target, nobodyByName)))
        texts.push_back(text.english());
    return texts;
}

Nfs4Acl placed(std::vector<Nfs4Entry> entries, const Nfs4Acl& old = {}) {
    return withOthersAllowedFirst({0, std::move(entries)}, old, file, nobodyByName);
}

TEST(Nfs4Storing, ANewDenialStandsBehindWhatOthersAreAllowed) {
    const Nfs4Entry denied{Nfs4Deny, 0, write, "4711"};
    const Nfs4Entry owner{Nfs4Allow, 0, read | write, nfs4Owner};
    const Nfs4Entry bob{Nfs4Allow, 0, write, "4712"};
    const Nfs4Entry alice{Nfs4Allow, 0, read | write, "4711"};
    const Nfs4Entry group{Nfs4Allow, 0, write, nfs4OwningGroup};
    const Nfs4Entry all{Nfs4Allow, 0, write, nfs4Everyone};
    const Nfs4Entry nobody{Nfs4Deny, 0, write, nfs4Everyone};
    EXPECT_EQ(placed({denied, owner, bob, alice, group, all}).entries,
              (std::vector{owner, bob, denied, alice, group, all}));
    EXPECT_EQ(placed({denied, group, owner}).entries, (std::vector{owner, denied, group}));
    // Who is denied with everyone stays so, and an entry that was there keeps its place.
    EXPECT_EQ(placed({denied, nobody, owner}).entries, (std::vector{denied, nobody, owner}));
    EXPECT_EQ(placed({denied, owner}, {0, {denied}}).entries, (std::vector{denied, owner}));
}

TEST(Nfs4Storing, WhatTheServerTakesOrAddsIsTold) {
    const Nfs4Acl wanted{0,
                         {{Nfs4Deny, 0, write, "4712"},
                          {Nfs4Allow, 0, read | 0x10000, "4711"},
                          {Nfs4Allow, Nfs4FileInherit | Nfs4FolderInherit, read, nfs4Everyone}}};
    EXPECT_EQ(told(wanted, wanted, folder), Texts());
    const Nfs4Acl stored{
        0, {{Nfs4Allow, 0, read, "4711"}, {Nfs4Allow, 0, read | write | 0x20080, nfs4Everyone}}};
    EXPECT_EQ(
        told(wanted, stored, folder),
        (Texts{
            "allow everyone: \"Create Files\", \"Create Folder\": granted, which was not asked for",
            "allow uid 4711: \"Delete\": not stored",
            "allow everyone: \"List Folder Contents\": not stored in child files",
            "allow everyone: \"List Folder Contents\": not stored in child folders",
            "allow everyone: \"List Folder Contents\": not stored in all descendants"}));
}

TEST(Nfs4Storing, WhatTheServerTakesOrAddsIsToldAsValues) {
    const Nfs4Acl wanted{0,
                         {{2, 0, read, nfs4Everyone},  // for an audit, and not shown
                          {Nfs4Allow, 0, read, nfs4Owner},
                          {Nfs4Allow, 0, read | 0x10000, "4711"}}};
    const Nfs4Acl stored{0,
                         {{Nfs4Allow, 0, read, nfs4Owner},
                          {Nfs4Allow, 0, read, "4711"},
                          {Nfs4Allow, 0, 0x2, "4712"}}};
    EXPECT_EQ(lostInStoring(wanted, stored, file, nobodyByName),
              (std::vector<EntryLoss>{
                  {1, EntryLossReason::stored, "Delete", "allow uid 4711", "not stored"},
                  {2, EntryLossReason::stored, "Write Data", "allow uid 4712",
                   "granted, which was not asked for"}}));
}

TEST(Nfs4Storing, ADenialThatIsNotStoredIsToldOfWhomItWasFor) {
    const Nfs4Entry owner{Nfs4Allow, 0, read | write, nfs4Owner};
    const Nfs4Entry all{Nfs4Allow, 0, read | write, nfs4Everyone};
    EXPECT_EQ(told({0, {owner, {Nfs4Deny, 0, write, "4712"}, all}}, {0, {owner, all}}, file),
              (Texts{"deny uid 4712: \"Write Data\", \"Append Data\": not stored"}));
}

TEST(Nfs4Storing, WhatNoModeHoldsApartIsNotMissedOfAGroupThatIsOnAsAWhole) {
    // "Read" as a whole, and a part of it.
    const Nfs4Acl whole{0, {{Nfs4Allow, 0, 0x200A9, "4711"}}};
    EXPECT_EQ(told(whole, {0, {{Nfs4Allow, 0, 0x200A1, "4711"}}}, file), Texts());
    const Nfs4Acl part{0, {{Nfs4Allow, 0, 0x9, "4711"}}};
    EXPECT_EQ(told(part, {0, {{Nfs4Allow, 0, 0x1, "4711"}}}, file),
              (Texts{"allow uid 4711: \"Read Extended Attributes\": not stored"}));
}

TEST(Nfs4Storing, TheOtherNamesAreForWhomTheListDoesNotNameYet) {
    const Nfs4Entry old{Nfs4Allow, 0, read, "4711"};
    const Nfs4Entry owner{Nfs4Allow, 0, read, nfs4Owner};
    const auto other = [&](const Nfs4Acl& acl, const Nfs4Acl& before, const std::string& domain) {
        return withOtherNames(acl, before, file, nobodyByName, domain);
    };
    EXPECT_EQ(other({0, {owner, old}}, {0, {owner}}, "example.org")->entries,
              (std::vector{owner, Nfs4Entry{Nfs4Allow, 0, read, "alice@example.org"}}));
    EXPECT_FALSE(other({0, {owner, old}}, {0, {old}}, "example.org"));
    EXPECT_FALSE(other({0, {owner, old}}, {}, ""));
    EXPECT_FALSE(other({0, {{Nfs4Allow, 0, read, "4712"}}}, {}, "example.org"));
}

TEST(Nfs4Names, TheDomainIsThatOfTheSettingsThenThatOfTheHost) {
    const auto domainOf = [](const std::string& settings, const std::string& host) {
        std::istringstream stream(settings);
        return nfs4DomainOf(stream, host);
    };
    EXPECT_EQ(domainOf("[General]\n# Domain = no\n Domain = Example.ORG ; here\n", "a.b.c"),
              "example.org");
    EXPECT_EQ(domainOf("[Static]\nDomain = no\n", "a.b.C"), "b.c");
    EXPECT_EQ(domainOf("", "a"), "localdomain");
}

}  // namespace
}  // namespace morvane
