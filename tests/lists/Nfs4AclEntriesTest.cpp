// SPDX-License-Identifier: MIT
#include <MorvaneOperation/Nfs4AclEntries.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/acl_perms.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace morvane {
namespace {

constexpr std::uint32_t owner = 3000001;
constexpr std::uint32_t group = 3000002;
constexpr std::uint32_t alice = 3000003;
constexpr std::uint32_t staff = 3000005;
constexpr std::uint32_t synchronize = 0x100000;

const Nfs4Target file{owner, group, false};
const Nfs4Target folder{owner, group, true};

/// A system that knows alice and the group staff of example.org, and nobody else.
const Nfs4Names names{[](const std::string& who, bool isGroup) -> std::optional<CBPosixIdentity> {
                          if (!isGroup && who == "alice@example.org")
                              return CBPosixUser{alice};
                          if (isGroup && who == "staff@example.org")
                              return CBPosixGroup{staff};
                          return std::nullopt;
                      },
                      [](const CBPosixIdentity& identity) -> std::optional<std::string> {
                          if (identity == CBPosixIdentity{CBPosixUser{alice}})
                              return "alice";
                          if (identity == CBPosixIdentity{CBPosixGroup{staff}})
                              return "staff";
                          return std::nullopt;
                      }};

using Entries = std::vector<std::shared_ptr<MVAclEntry>>;

Nfs4Acl list(std::vector<Nfs4Entry> entries, std::uint32_t flags = 0) {
    return {flags, std::move(entries)};
}

MVAclPermission& box(const MVAclEntry& entry, const std::string& name) {
    for (const auto& node : entry.permissions()) {
        for (const auto& child : node->childNodes()) {
            auto* permission = MVTreeNode::permissionOf(*child);
            if (permission->name() == name)
                return *permission;
        }
    }
    throw std::logic_error("there is no box " + name);
}

std::uint32_t boxesOf(const MVAclEntry& entry) {
    std::uint32_t boxes = 0;
    for (std::size_t i = 0; i != 3; ++i) {
        for (const auto& child : entry.permissions()[i]->childNodes()) {
            const auto* permission = MVTreeNode::permissionOf(*child);
            if (permission->state() == MVStateOn)
                boxes |= static_cast<std::uint32_t>(permission->permission());
        }
    }
    return boxes;
}

std::shared_ptr<MVAclEntry> entryFor(const CBPosixIdentity& who, std::uint32_t boxes,
                                     std::int32_t tag = MVAclTagAllow) {
    return MVAclEntry::initWithUuid(uuidOfPosixIdentity(who), tag, permissionTree(boxes, false),
                                    false);
}

TEST(Nfs4AclEntries, EachBitOfTheMaskIsOneBox) {
    const std::pair<std::uint32_t, std::uint32_t> rows[] = {
        {0x1, ACL_READ_DATA},
        {0x2, ACL_WRITE_DATA},
        {0x4, ACL_APPEND_DATA},
        {0x8, ACL_READ_EXTATTRIBUTES},
        {0x10, ACL_WRITE_EXTATTRIBUTES},
        {0x20, ACL_SEARCH},
        {0x40, ACL_DELETE_CHILD},
        {0x80, ACL_READ_ATTRIBUTES},
        {0x100, ACL_WRITE_ATTRIBUTES},
        {0x10000, ACL_DELETE},
        {0x20000, ACL_READ_SECURITY},
        {0x40000, ACL_WRITE_SECURITY},
        {0x80000, ACL_CHANGE_OWNER},
    };
    for (const auto& [bit, permission] : rows) {
        EXPECT_EQ(boxesOfNfs4Mask(bit), permission);
        EXPECT_EQ(nfs4MaskOfBoxes(permission), bit);
        const auto shown = entriesOfNfs4Acl(list({{Nfs4Allow, 0, bit, nfs4Owner}}), folder, names);
        ASSERT_EQ(shown.size(), 1U);
        EXPECT_EQ(boxesOf(*shown[0]), permission);
    }
    EXPECT_EQ(boxesOfNfs4Mask(synchronize), 0U);
}

TEST(Nfs4AclEntries, EntriesComeInTheOrderOfTheList) {
    const auto shown = entriesOfNfs4Acl(list({{Nfs4Allow, 0, 0x1, "alice@example.org"},
                                              {Nfs4Deny, Nfs4IsGroup, 0x2, "staff@example.org"},
                                              {Nfs4Allow, 0, 0x1, nfs4Everyone},
                                              {Nfs4Allow, Nfs4IsGroup, 0x1, nfs4OwningGroup},
                                              {Nfs4Allow, 0, 0x1, nfs4OwningGroup},
                                              {Nfs4Allow, 0, 0x1, "4711"},
                                              {Nfs4Allow, Nfs4IsGroup, 0x1, "4711"}}),
                                        file, names);
    const std::pair<std::int32_t, CBPosixIdentity> expected[] = {
        {MVAclTagAllow, CBPosixUser{alice}},  {MVAclTagDeny, CBPosixGroup{staff}},
        {MVAclTagAllow, CBEveryone{}},        {MVAclTagAllow, CBPosixGroup{group}},
        {MVAclTagAllow, CBPosixGroup{group}}, {MVAclTagAllow, CBPosixUser{4711}},
        {MVAclTagAllow, CBPosixGroup{4711}}};
    ASSERT_EQ(shown.size(), std::size(expected));
    for (std::size_t i = 0; i != shown.size(); ++i) {
        EXPECT_EQ(shown[i]->tag(), expected[i].first) << i;
        EXPECT_EQ(shown[i]->uuid(), uuidOfPosixIdentity(expected[i].second)) << i;
    }
}

struct Flags {
    std::uint32_t flags;
    std::uint32_t applies;
};
class InheritanceFlags : public testing::TestWithParam<Flags> {};

TEST_P(InheritanceFlags, AreTheBoxesOfAppliesTo) {
    const auto old = list({{Nfs4Allow, GetParam().flags, 0x1, nfs4Everyone}});
    const auto shown = entriesOfNfs4Acl(old, folder, names);
    std::uint32_t applies = 0;
    for (const auto& child : shown.at(0)->permissions().at(3)->childNodes()) {
        const auto* permission = MVTreeNode::permissionOf(*child);
        if (permission->state() == MVStateOn)
            applies |= static_cast<std::uint32_t>(permission->permission());
    }
    EXPECT_EQ(applies, GetParam().applies);
    const auto back = nfs4AclOfEntries(shown, old, folder, names);
    EXPECT_EQ(back.acl, old);
    EXPECT_TRUE(back.losses.empty());
}

constexpr std::uint32_t thisItem = ACL_ENTRY_ONLY_INHERIT;
constexpr std::uint32_t files = ACL_ENTRY_FILE_INHERIT;
constexpr std::uint32_t folders = ACL_ENTRY_DIRECTORY_INHERIT;
constexpr std::uint32_t all = ACL_ENTRY_LIMIT_INHERIT;

INSTANTIATE_TEST_SUITE_P(
    Nfs4AclEntries, InheritanceFlags,
    testing::Values(Flags{0, thisItem},
                    Flags{Nfs4FileInherit | Nfs4FolderInherit, thisItem | files | folders | all},
                    Flags{Nfs4FileInherit | Nfs4FolderInherit | Nfs4NoPropagate,
                          thisItem | files | folders},
                    Flags{Nfs4FolderInherit | Nfs4InheritOnly, folders | all},
                    Flags{Nfs4FolderInherit | Nfs4NoPropagate | Nfs4InheritOnly, folders},
                    Flags{Nfs4FileInherit, thisItem | files},
                    Flags{Nfs4FileInherit | Nfs4NoPropagate, thisItem | files},
                    Flags{Nfs4FileInherit | Nfs4InheritOnly, files}));

TEST(Nfs4AclEntries, WhatIsWrittenBackUnchangedIsTheSameList) {
    const auto old =
        list({{Nfs4Audit, 0x10, 0x7, "audited@example.org"},
              {Nfs4Deny, 0, 0x2 | synchronize, "alice@example.org"},
              {Nfs4Allow, Nfs4Inherited | Nfs4IsGroup, 0x1 | synchronize, "staff@example.org"},
              {Nfs4Allow, 0, 0x1 | 0x40, "stranger@elsewhere"},
              {Nfs4Alarm, 0x20, 0x1, nfs4Everyone},
              {Nfs4Allow, 0, 0x120081, nfs4Everyone}},
             Nfs4Trivial);
    const auto back = nfs4AclOfEntries(entriesOfNfs4Acl(old, file, names), old, file, names);
    EXPECT_EQ(back.acl, old);
    EXPECT_TRUE(back.losses.empty());
}

TEST(Nfs4AclEntries, AChangedBoxKeepsWhatHasNoBox) {
    const auto old = list({{Nfs4Audit, 0x10, 0x7, "audited@example.org"},
                           {Nfs4Allow, 0, 0x1 | synchronize, "alice@example.org"}},
                          Nfs4Trivial);
    const auto shown = entriesOfNfs4Acl(old, file, names);
    box(*shown.at(0), "Write Data").setState(MVStateOn);
    const auto back = nfs4AclOfEntries(shown, old, file, names);
    EXPECT_EQ(back.acl, list({{Nfs4Audit, 0x10, 0x7, "audited@example.org"},
                              {Nfs4Allow, 0, 0x3 | synchronize, "alice@example.org"}}))
        << "a changed list is no longer what the mode alone says";
}

TEST(Nfs4AclEntries, ARemovedEntryTakesNothingElseAlong) {
    const auto old = list({{Nfs4Allow, 0, 0x1, "alice@example.org"},
                           {Nfs4Alarm, 0x20, 0x1, nfs4Everyone},
                           {Nfs4Allow, 0, 0x2, nfs4Everyone}});
    auto shown = entriesOfNfs4Acl(old, file, names);
    shown.erase(shown.begin());
    EXPECT_EQ(nfs4AclOfEntries(shown, old, file, names).acl,
              list({{Nfs4Allow, 0, 0x2, nfs4Everyone}, {Nfs4Alarm, 0x20, 0x1, nfs4Everyone}}));
}

TEST(Nfs4AclEntries, SomebodyNewIsNamedAsTheListNamesOthers) {
    const Entries added{entryFor(CBPosixUser{alice}, ACL_READ_DATA),
                        entryFor(CBPosixGroup{staff}, ACL_READ_DATA, MVAclTagDeny),
                        entryFor(CBPosixUser{owner}, ACL_READ_DATA),
                        entryFor(CBPosixGroup{group}, ACL_READ_DATA),
                        entryFor(CBEveryone{}, ACL_READ_DATA),
                        entryFor(CBPosixUser{4711}, ACL_READ_DATA)};
    const auto numbered = nfs4AclOfEntries(added, list({}), file, names).acl;
    EXPECT_EQ(numbered, list({{Nfs4Allow, 0, 0x1, std::to_string(alice)},
                              {Nfs4Deny, Nfs4IsGroup, 0x1, std::to_string(staff)},
                              {Nfs4Allow, 0, 0x1, nfs4Owner},
                              {Nfs4Allow, Nfs4IsGroup, 0x1, nfs4OwningGroup},
                              {Nfs4Allow, 0, 0x1, nfs4Everyone},
                              {Nfs4Allow, 0, 0x1, "4711"}}));
    const auto old = list({{Nfs4Allow, Nfs4IsGroup, 0x1, "staff@example.org"}});
    const auto named = nfs4AclOfEntries({added[0]}, old, file, names).acl;
    EXPECT_EQ(named, list({{Nfs4Allow, 0, 0x1, "alice@example.org"}}));
}

TEST(Nfs4AclEntries, AnUnknownNameHasAUuidOfItsOwn) {
    const auto shown = entriesOfNfs4Acl(list({{Nfs4Allow, 0, 0x1, "a@b"},
                                              {Nfs4Allow, 0, 0x1, "c@d"},
                                              {Nfs4Allow, Nfs4IsGroup, 0x1, "a@b"},
                                              {Nfs4Allow, 0, 0x2, "a@b"}}),
                                        file, names);
    EXPECT_NE(shown[0]->uuid(), shown[1]->uuid());
    EXPECT_NE(shown[0]->uuid(), shown[2]->uuid());
    EXPECT_EQ(shown[0]->uuid(), shown[3]->uuid());
    EXPECT_EQ(posixIdentityOfUUID(*shown[0]->uuid()), std::nullopt);
}

TEST(Nfs4AclEntries, WhatTheListCannotHoldIsNamed) {
    const auto stranger = MVAclEntry::initWithUuid(
        *NSUUID::initWithUUIDString("01234567-89AB-8DEF-8123-456789ABCDEF"), MVAclTagAllow,
        permissionTree(ACL_READ_DATA, false), false);
    const auto neither = entryFor(CBPosixUser{alice}, ACL_READ_DATA, 0);
    const auto mixed = entryFor(CBPosixUser{alice}, ACL_READ_DATA);
    mixed->setUpdatingPermissions(true);
    box(*mixed, "Execute File").setState(MVStateMixed);
    const auto result = nfs4AclOfEntries({stranger, neither, mixed}, list({}), file, names);
    ASSERT_EQ(result.losses.size(), 3U);
    EXPECT_EQ(result.losses[0].text(), "it neither allows nor denies");
    EXPECT_EQ(result.losses[1].text(), "\"Execute File\": neither on nor off");
    EXPECT_EQ(result.losses[2].text(), "it is for nobody whom this system knows");
    EXPECT_EQ(result.acl, list({{Nfs4Allow, 0, 0x1, std::to_string(alice)}}));
}

}  // namespace
}  // namespace morvane
