#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>
#include <MorvaneOperation/acl_perms.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>

namespace morvane {
namespace {

constexpr PosixRights r = PosixRead;
constexpr PosixRights w = PosixWrite;
constexpr PosixRights x = PosixExecute;
constexpr PosixRights none = PosixNothing;
constexpr PosixRights rw = r | w;
constexpr PosixRights rx = r | x;
constexpr PosixRights rwx = r | w | x;

// Ids that the user database does not have, so that entries are named by their UUID alone.
constexpr std::uint32_t owner = 3000001;
constexpr std::uint32_t group = 3000002;
constexpr std::uint32_t alice = 3000003;
constexpr std::uint32_t bob = 3000004;
constexpr std::uint32_t staff = 3000005;
constexpr std::uint32_t guests = 3000006;

using Entries = std::vector<std::shared_ptr<MVAclEntry>>;

PosixAclTarget target(bool isDirectory = false) {
    return {owner, group, isDirectory,
            [](std::uint32_t uid, std::uint32_t gid) { return uid == alice && gid == staff; }};
}

std::shared_ptr<MVAclEntry> flat(const CBPosixIdentity& who, PosixRights rights) {
    const PosixAcl acl{.owner = owner,
                       .group = group,
                       .isDirectory = false,
                       .access = {rights, rights, rights, {}, {}, {}},
                       .defaults = {}};
    for (const auto& entry : entriesOfPosixAcl(acl)) {
        if (entry->uuid() == uuidOfPosixIdentity(who))
            return entry;
    }
    throw std::logic_error("no flat entry is for this identity");
}

/// An entry whose boxes are exactly `boxes`; for a folder with these flags on as well.
std::shared_ptr<MVAclEntry> tree(std::int32_t tag, const CBPosixIdentity& who, std::uint32_t boxes,
                                 bool isDirectory = false,
                                 std::set<std::uint32_t> applies = {ACL_ENTRY_ONLY_INHERIT}) {
    auto nodes = permissionTree(boxes, isDirectory);
    if (isDirectory) {
        auto flags = MVTreeNode::treeNodeWithRepresentedObject(
            MVAclPermission::initWithName("Applies To", 0x2000, MVStateOff));
        for (const acl_perm_entry* row = acl_flags; row->name; ++row) {
            flags->mutableChildNodes().append(
                MVTreeNode::treeNodeWithRepresentedObject(MVAclPermission::initWithName(
                    row->name, static_cast<std::int32_t>(row->perm),
                    applies.contains(row->perm) ? MVStateOn : MVStateOff)));
        }
        nodes.push_back(std::move(flags));
    }
    return MVAclEntry::initWithUuid(uuidOfPosixIdentity(who), tag, std::move(nodes), false);
}

const std::set<std::uint32_t> childrenOnly{ACL_ENTRY_FILE_INHERIT, ACL_ENTRY_DIRECTORY_INHERIT,
                                           ACL_ENTRY_LIMIT_INHERIT};
const std::set<std::uint32_t> everything{ACL_ENTRY_ONLY_INHERIT, ACL_ENTRY_FILE_INHERIT,
                                         ACL_ENTRY_DIRECTORY_INHERIT, ACL_ENTRY_LIMIT_INHERIT};

std::shared_ptr<MVAclEntry> allow(const CBPosixIdentity& who, PosixRights rights) {
    return tree(1, who, boxesOfRights(rights, false, false, false));
}
std::shared_ptr<MVAclEntry> deny(const CBPosixIdentity& who, PosixRights rights) {
    return tree(2, who, boxesOfRights(rights, true, false, false));
}

/// The base of a file that its owner writes and nobody else reads.
Entries base(PosixRights u = rw, PosixRights g = none, PosixRights o = none) {
    return {flat(CBPosixUser{owner}, u), flat(CBPosixGroup{group}, g), flat(CBEveryone{}, o)};
}

Entries operator+(Entries a, const Entries& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

PosixList reduced(const Entries& entries) {
    const auto result = reduceToPosixAcl(entries, target());
    EXPECT_EQ(result.losses, std::vector<std::string>{});
    return result.acl.access;
}

/// What is lost, without the entry's identity.
std::vector<std::string> losses(const Entries& entries, bool isDirectory = false) {
    std::vector<std::string> texts;
    for (const auto& loss : reduceToPosixAcl(entries, target(isDirectory)).losses)
        texts.push_back(loss.substr(0, loss.find(" (")) + loss.substr(loss.find("): ") + 1));
    return texts;
}

using Losses = std::vector<std::string>;

TEST(PosixAclReduction, TheFlatEntriesAreTheBase) {
    EXPECT_EQ(reduced(base(rw, r, x)), (PosixList{rw, r, x, {}, {}, {}}));
}

TEST(PosixAclReduction, AnEmptyListIsNoRightsAtAll) {
    EXPECT_EQ(reduced({}), (PosixList{none, none, none, {}, {}, {}}));
}

TEST(PosixAclReduction, NamedEntriesAreSortedByIdUnderAMaskThatLetsAllThrough) {
    EXPECT_EQ(reduced(Entries{allow(CBPosixUser{bob}, r), allow(CBPosixUser{alice}, rw),
                              allow(CBPosixGroup{guests}, x), allow(CBPosixGroup{staff}, r)} +
                      base()),
              (PosixList{rw, none, none, rwx, {{alice, rw}, {bob, r}}, {{staff, r}, {guests, x}}}));
}

TEST(PosixAclReduction, TheMaskCoversTheOwningGroup) {
    EXPECT_EQ(reduced(Entries{allow(CBPosixUser{alice}, r)} + base(rw, w)).mask, rw);
}

TEST(PosixAclReduction, AMaskOfNothingWouldLetTheDeniedHaveWhatOthersHave) {
    EXPECT_EQ(reduced(Entries{deny(CBPosixUser{bob}, r)} + base(rw, none, r)),
              (PosixList{rw, none, r, r, {{bob, none}}, {}}));
}

TEST(PosixAclReduction, TheFirstDecisionForAnIdentityCounts) {
    EXPECT_EQ(
        reduced(Entries{deny(CBPosixUser{bob}, w), allow(CBPosixUser{bob}, rw)} + base()).users[0],
        (PosixNamedRights{bob, r}));
    EXPECT_EQ(
        reduced(Entries{allow(CBPosixUser{bob}, rw), deny(CBPosixUser{bob}, w)} + base()).users[0],
        (PosixNamedRights{bob, rw}));
}

TEST(PosixAclReduction, AnIdentityHasBesidesWhatEveryoneHas) {
    EXPECT_EQ(reduced(Entries{allow(CBPosixUser{bob}, w)} + base(rw, none, r)).users[0],
              (PosixNamedRights{bob, rw}));
    EXPECT_EQ(reduced(base(rw, none, r) + Entries{allow(CBPosixUser{bob}, w)}).users[0],
              (PosixNamedRights{bob, rw}));
}

TEST(PosixAclReduction, ADenialTakesFromAUserWhatEveryoneHas) {
    EXPECT_EQ(reduced(Entries{deny(CBPosixUser{bob}, r)} + base(rw, none, r)).users[0],
              (PosixNamedRights{bob, none}));
}

TEST(PosixAclReduction, ADenialForEveryoneComesBeforeALaterAllowance) {
    EXPECT_EQ(
        reduced(Entries{deny(CBEveryone{}, w), allow(CBPosixUser{bob}, rw)} + base(r)).users[0],
        (PosixNamedRights{bob, r}));
}

TEST(PosixAclReduction, ADenialForAGroupBearsOnTheNamedUsersInIt) {
    const auto list = reduced(Entries{deny(CBPosixGroup{staff}, w), allow(CBPosixUser{alice}, rw),
                                      allow(CBPosixUser{bob}, rw)} +
                              base());
    EXPECT_EQ(list.users, (std::vector<PosixNamedRights>{{alice, r}, {bob, rw}}));
}

TEST(PosixAclReduction, AnEntryForTheOwnerAGroupOrEveryoneIsThatOfTheBase) {
    EXPECT_EQ(reduced({tree(1, CBPosixUser{owner}, boxesOfRights(rw, false, true, false)),
                       allow(CBPosixGroup{group}, r)}),
              (PosixList{rw, r, none, {}, {}, {}}));
    EXPECT_EQ(reduced({allow(CBEveryone{}, r)}), (PosixList{r, r, r, {}, {}, {}}));
}

TEST(PosixAclReduction, NoUuidIsEveryone) {
    auto entry = allow(CBEveryone{}, x);
    entry->setUuid(std::nullopt);
    EXPECT_EQ(reduced({entry}).others, x);
}

TEST(PosixAclReduction, HalfABundleIsLostAndTheNearestListDoesNotGrantIt) {
    const Entries entries = Entries{tree(1, CBPosixUser{bob},
                                         ACL_READ_ATTRIBUTES | ACL_READ_SECURITY | ACL_READ_DATA |
                                             ACL_WRITE_DATA | ACL_APPEND_DATA)} +
                            base();
    EXPECT_EQ(losses(entries),
              (Losses{"entry 1: \"Read Data\" without \"Read Extended Attributes\"",
                      "entry 1: \"Write Data\", \"Append Data\" without \"Write Extended "
                      "Attributes\""}));
    EXPECT_EQ(reduceToPosixAcl(entries, target()).acl.access.users[0],
              (PosixNamedRights{bob, none}));
}

TEST(PosixAclReduction, HalfABundleDeniedIsDeniedWholeByTheNearestList) {
    const Entries entries = {tree(2, CBPosixUser{bob}, ACL_WRITE_DATA),
                             allow(CBPosixUser{bob}, rw)};
    EXPECT_EQ(losses(entries), (Losses{"entry 1: \"Write Data\" without \"Append Data\", \"Write "
                                       "Extended Attributes\""}));
    EXPECT_EQ(reduceToPosixAcl(entries, target()).acl.access.users[0], (PosixNamedRights{bob, r}));
}

struct LostBoxes {
    const char* name;
    std::int32_t tag;
    CBPosixIdentity who;
    std::uint32_t boxes;
    const char* loss;
};

class PosixAclReductionOfBoxes : public testing::TestWithParam<LostBoxes> {};

TEST_P(PosixAclReductionOfBoxes, NamesWhatLinuxCannotHold) {
    const auto& p = GetParam();
    EXPECT_EQ(losses({tree(p.tag, p.who, p.boxes)}), (Losses{p.loss}));
}

constexpr std::uint32_t always = ACL_READ_ATTRIBUTES | ACL_READ_SECURITY;
INSTANTIATE_TEST_SUITE_P(
    Rows, PosixAclReductionOfBoxes,
    testing::Values(
        LostBoxes{"DeleteAllowed", 1, CBPosixUser{bob}, always | ACL_DELETE, "entry 1: \"Delete\""},
        LostBoxes{"DeleteDenied", 2, CBPosixUser{bob}, ACL_DELETE, "entry 1: \"Delete\""},
        LostBoxes{"ChangeOwner", 1, CBPosixGroup{staff}, always | ACL_CHANGE_OWNER,
                  "entry 1: \"Change Owner\""},
        LostBoxes{"AttributesOfOthers", 1, CBPosixUser{bob},
                  always | ACL_WRITE_ATTRIBUTES | ACL_WRITE_SECURITY,
                  "entry 1: \"Write Attributes\", \"Change Permissions\""},
        LostBoxes{"AlwaysOff", 1, CBPosixUser{bob}, ACL_READ_SECURITY,
                  "entry 1: \"Read Attributes\" off, which everybody always has"},
        LostBoxes{"AlwaysDenied", 2, CBPosixUser{bob}, ACL_READ_ATTRIBUTES,
                  "entry 1: \"Read Attributes\", which nobody can be denied"},
        LostBoxes{"OwnersOff", 1, CBPosixUser{owner}, always | ACL_WRITE_ATTRIBUTES,
                  "entry 1: \"Change Permissions\" off, which the owner always has"},
        LostBoxes{"OwnersDenied", 2, CBPosixUser{owner}, ACL_WRITE_SECURITY,
                  "entry 1: \"Change Permissions\", which nobody can be denied"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(PosixAclReduction, ADenialForAGroupThatItsMembersEscapeThroughAnotherIsLost) {
    const Entries entries =
        Entries{deny(CBPosixGroup{guests}, w), allow(CBPosixGroup{staff}, rw)} + base();
    EXPECT_EQ(losses(entries), (Losses{"entry 1: the denial of write to members of other groups "
                                       "that are allowed it"}));
    EXPECT_EQ(reduceToPosixAcl(entries, target()).acl.access.groups,
              (std::vector<PosixNamedRights>{{staff, r}, {guests, none}}));
}

TEST(PosixAclReduction, ADenialForAGroupOfWhatEveryoneHasIsHeld) {
    EXPECT_EQ(reduced(Entries{deny(CBPosixGroup{guests}, w), allow(CBPosixGroup{guests}, r),
                              allow(CBPosixGroup{staff}, rw)} +
                      base(rw, none, rw))
                  .groups,
              (std::vector<PosixNamedRights>{{staff, rw}, {guests, r}}));
}

TEST(PosixAclReduction, WhatSaysOtherwiseThanAFlatEntryIsLost) {
    EXPECT_EQ(losses(Entries{allow(CBEveryone{}, rw)} + base(rw, none, r)),
              (Losses{"entry 1: what the entry of three rights says otherwise: write"}));
    const Entries denied = Entries{deny(CBEveryone{}, w)} + base(rw, none, r);
    EXPECT_EQ(losses(denied),
              (Losses{"entry 1: what the entry of three rights says otherwise: write"}));
    EXPECT_EQ(reduceToPosixAcl(denied, target()).acl.access.owner, r);
}

TEST(PosixAclReduction, AFlatEntryOfAnotherUserOrThatDeniesIsLost) {
    auto other = flat(CBPosixUser{owner}, rw);
    other->setUuid(uuidOfPosixIdentity(CBPosixUser{bob}));
    auto denial = flat(CBEveryone{}, r);
    denial->setTag(2);
    const char* const text =
        ": an entry of three rights is the owner's, the owning group's or everyone's, allows, and "
        "has \"Read\", \"Write\" and \"Execute\"";
    EXPECT_EQ(losses({other, denial}),
              (Losses{std::string("entry 1") + text, std::string("entry 2") + text}));
}

TEST(PosixAclReduction, AMarkOfInheritanceAnUnknownTagAndAnUnknownIdentityAreLost) {
    auto inherited = allow(CBPosixUser{bob}, r);
    inherited->setInherited(true);
    auto tagged = allow(CBPosixUser{bob}, r);
    tagged->setTag(3);
    auto nobody = allow(CBPosixUser{bob}, r);
    nobody->setUuid(NSUUID::initWithUUIDString("11111111-2222-3333-4444-555555555555"));
    EXPECT_EQ(
        losses({inherited, tagged, nobody}),
        (Losses{"entry 1: the mark that it is inherited", "entry 2: it neither allows nor denies",
                "entry 3: it is for nobody whom this system knows"}));
}

TEST(PosixAclReduction, ATreeOfAnotherShapeIsLost) {
    auto entry = allow(CBPosixUser{bob}, r);
    entry->setPermissions({entry->permissions()[0]});
    EXPECT_EQ(losses({entry}), (Losses{"entry 1: its boxes are not those of the item's kind"}));
    EXPECT_EQ(losses({allow(CBPosixUser{bob}, r)}, true),
              (Losses{"entry 1: its boxes are not those of the item's kind"}));
}

std::shared_ptr<MVAclEntry> folderAllow(const CBPosixIdentity& who, PosixRights rights,
                                        const std::set<std::uint32_t>& applies) {
    return tree(1, who,
                boxesOfRights(rights, false, who == CBPosixIdentity{CBPosixUser{owner}}, true),
                true, applies);
}

TEST(PosixAclReduction, WhatAppliesToAllChildrenIsTheDefaultList) {
    const auto result =
        reduceToPosixAcl(Entries{folderAllow(CBPosixUser{bob}, rx, everything),
                                 folderAllow(CBPosixUser{owner}, rwx, childrenOnly),
                                 folderAllow(CBPosixGroup{group}, none, childrenOnly),
                                 folderAllow(CBEveryone{}, r, childrenOnly)} +
                             base(rwx, r, none),
                         target(true));
    EXPECT_EQ(result.losses, Losses{});
    EXPECT_EQ(result.acl.access, (PosixList{rwx, r, none, rx, {{bob, rx}}, {}}));
    EXPECT_EQ(result.acl.defaults, (PosixList{rwx, r, r, rx, {{bob, rx}}, {}}));
}

TEST(PosixAclReduction, ADefaultListTakesWhatItLacksFromTheItemsOwn) {
    const auto result = reduceToPosixAcl(
        Entries{folderAllow(CBPosixUser{bob}, rx, childrenOnly)} + base(rwx, r, x), target(true));
    EXPECT_EQ(result.acl.defaults, (PosixList{rwx, r, x, rx, {{bob, rx}}, {}}));
    EXPECT_EQ(result.acl.access, (PosixList{rwx, r, x, {}, {}, {}}));
}

TEST(PosixAclReduction, WithoutAnEntryForChildrenThereIsNoDefaultList) {
    EXPECT_EQ(reduceToPosixAcl(base(), target(true)).acl.defaults, std::nullopt);
}

TEST(PosixAclReduction, InheritanceInPartIsLostAndTheNearestListHasNone) {
    for (const auto& part :
         {std::set<std::uint32_t>{ACL_ENTRY_FILE_INHERIT},
          std::set<std::uint32_t>{ACL_ENTRY_DIRECTORY_INHERIT},
          std::set<std::uint32_t>{ACL_ENTRY_FILE_INHERIT, ACL_ENTRY_DIRECTORY_INHERIT}}) {
        auto applies = part;
        applies.insert(ACL_ENTRY_ONLY_INHERIT);
        const auto result =
            reduceToPosixAcl({folderAllow(CBPosixUser{bob}, r, applies)}, target(true));
        ASSERT_EQ(result.losses.size(), 1U);
        EXPECT_NE(
            result.losses[0].find(
                "that it applies to a part only of the files, folders and descendants inside"),
            std::string::npos);
        EXPECT_EQ(result.acl.defaults, std::nullopt);
    }
}

TEST(PosixAclReduction, AnEntryThatAppliesToNothingIsLost) {
    EXPECT_EQ(losses({folderAllow(CBPosixUser{bob}, r, {})}, true),
              (Losses{"entry 1: all of it, as it applies to nothing"}));
}

}  // namespace
}  // namespace morvane
