// SPDX-License-Identifier: MIT
#include "PosixStatements.h"

#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/acl_perms.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace morvane {

namespace {

constexpr std::uint32_t readBoxes = ACL_READ_DATA | ACL_READ_EXTATTRIBUTES;
constexpr std::uint32_t alwaysBoxes = ACL_READ_ATTRIBUTES | ACL_READ_SECURITY;
constexpr std::uint32_t ownersBoxes = ACL_WRITE_ATTRIBUTES | ACL_WRITE_SECURITY;
/// The places of the groups of boxes.
enum : std::size_t { ReadGroup = 0, WriteGroup = 1, AdministrationGroup = 2 };

std::uint32_t writeBoxes(bool isDirectory) {
    return ACL_WRITE_DATA | ACL_APPEND_DATA | ACL_WRITE_EXTATTRIBUTES |
           (isDirectory ? ACL_DELETE_CHILD : 0);
}

bool isOnAsAWhole(const NSTreeNode& group) {
    const auto& boxes = group.childNodes();
    return !boxes.empty() && std::all_of(boxes.begin(), boxes.end(), [](const auto& box) {
        return MVTreeNode::stateOf(*box) == MVStateOn;
    });
}

Phrase whyNotHeld(std::uint32_t box, bool deny) {
    if (box == ACL_DELETE)
        return phrase("who may delete an item is told by the folder that it is in");
    if (deny && (box & (ACL_CHANGE_OWNER | ownersBoxes)) != 0)
        return phrase("a POSIX list cannot deny it");
    if (box == ACL_CHANGE_OWNER)
        return phrase("only root has it");
    if ((box & ownersBoxes) != 0)
        return phrase("only the owner has it");
    return phrase("an item of this kind has no such box");
}

class Taking {
  public:
    Taking(const std::vector<std::shared_ptr<MVAclEntry>>& entries, std::uint32_t owner,
           std::uint32_t group, bool isDirectory)
        : entries_(entries),
          owner_(CBPosixUser{owner}),
          group_(CBPosixGroup{group}),
          isDirectory_(isDirectory) {}

    PosixStatements run() {
        for (std::size_t i = 0; i != entries_.size(); ++i)
            take(i);
        return std::move(result_);
    }

  private:
    void lose(std::size_t number, EntryLossReason reason, const Phrase& box, const Phrase& why) {
        result_.losses.push_back(makeLoss(number, *entries_[number], reason, box, why));
    }

    void take(std::size_t number) {
        const auto& entry = *entries_[number];
        if (entry.tag() != MVAclTagAllow && entry.tag() != MVAclTagDeny)
            return lose(number, EntryLossReason::tag, "", phrase("it neither allows nor denies"));
        const auto who =
            entry.uuid() ? posixIdentityOfUUID(*entry.uuid()) : CBPosixIdentity{CBEveryone{}};
        if (!who)
            return lose(number, EntryLossReason::nobody, "",
                        phrase("it is for nobody whom this system knows"));
        if (entry.inherited())
            lose(number, EntryLossReason::inherited, "", phrase("the mark that it is inherited"));
        PosixStatement statement{number, *who, !entry.isAcl(), entry.tag() == MVAclTagDeny};
        if (statement.flat ? takeFlat(entry, statement) : takeTree(entry, statement))
            result_.statements.push_back(statement);
    }

    bool takeFlat(const MVAclEntry& entry, PosixStatement& statement) {
        static constexpr std::array<PosixRights, 3> rightsInOrder{PosixRead, PosixWrite,
                                                                  PosixExecute};
        const auto& nodes = entry.permissions();
        if (nodes.size() != rightsInOrder.size() || statement.deny ||
            (statement.who != owner_ && statement.who != group_ &&
             statement.who != CBPosixIdentity{CBEveryone{}})) {
            lose(
                statement.number, EntryLossReason::shape, "",
                phrase("an entry of three rights is the owner's, the owning group's or everyone's, "
                       "allows, and has \"Read\", \"Write\" and \"Execute\""));
            return false;
        }
        for (std::size_t i = 0; i != nodes.size(); ++i) {
            const auto state = MVTreeNode::stateOf(*nodes[i]);
            if (state == MVStateOn)
                statement.rights = statement.rights | rightsInOrder[i];
            else if (state != MVStateOff)
                lose(statement.number, EntryLossReason::shape, "",
                     phrase("a right that is neither on nor off"));
        }
        return true;
    }

    bool takeTree(const MVAclEntry& entry, PosixStatement& statement) {
        const auto& groups = entry.permissions();
        if (groups.size() < permissionGroups ||
            (isDirectory_ && groups.size() <= permissionGroups)) {
            lose(statement.number, EntryLossReason::shape, "",
                 phrase("its boxes are not those of the item's kind"));
            return false;
        }
        if (isDirectory_)
            takeApplicability(
                boxesOn(*groups[permissionGroups], statement.number, entry, result_.losses),
                statement);
        std::uint32_t on = 0;
        for (std::size_t i = 0; i != permissionGroups; ++i) {
            auto boxes = boxesOn(*groups[i], statement.number, entry, result_.losses);
            if (!statement.deny && isOnAsAWhole(*groups[i]))
                takeBundle(i, boxes, statement);
            else
                on |= boxes;
        }
        takeBoxes(on, statement);
        return statement.item || statement.children;
    }

    /// Adds the rights of a group of boxes that is on as a whole.
    void takeBundle(std::size_t group, std::uint32_t boxes, PosixStatement& statement) {
        if (group == ReadGroup && (boxes & readBoxes) == readBoxes) {
            statement.rights = statement.rights | PosixRead | PosixExecute;
            statement.executesByBundle = true;
        } else if (group == WriteGroup &&
                   (boxes & writeBoxes(isDirectory_)) == writeBoxes(isDirectory_)) {
            statement.rights = statement.rights | PosixWrite;
        } else if (group != AdministrationGroup) {
            takeBoxes(boxes, statement);  // a tree of another make
        } else if (!isOwners(statement)) {
            lose(statement.number, EntryLossReason::box,
                 Phrase::inTable("ACL", acl_perms[group].name), phrase("only the owner has it"));
        }
    }

    /// Whether the entry is for the owner alone: the item's, or that of the items made in it.
    bool isOwners(const PosixStatement& statement) const {
        return statement.who == CBPosixIdentity{CBCreator{false}} ||
               (statement.who == owner_ && !statement.children);
    }

    /// Calls `work` for the name and the bit of each box of `bits` that this kind of item has.
    template <class Work>
    void eachBox(std::uint32_t bits, Work&& work) const {
        const std::uint32_t kind = isDirectory_ ? ACL_KIND_FOLDERS : ACL_KIND_FILES;
        for (const acl_perm_group* group = acl_perms; group->name; ++group) {
            for (const acl_perm_entry* row = group->perms; row->name; ++row) {
                if ((row->perm & bits) != 0 && (row->kinds & kind) != 0)
                    work(Phrase::inTable("ACL", row->name), row->perm);
            }
        }
    }

    Phrase names(std::uint32_t bits) const {
        std::vector<Phrase> names;
        eachBox(bits, [&](const Phrase& name, std::uint32_t) {
            names.push_back(phrase("\"%1\"", name));
        });
        return Phrase::list(translatable(", "), names);
    }

    /// Adds the rights of boxes that are on one by one.
    void takeBoxes(std::uint32_t on, PosixStatement& statement) {
        const auto number = statement.number;
        const auto bundle = [&](std::uint32_t boxes, PosixRights right) {
            const auto part = on & boxes;
            if (part == 0)
                return;
            if (part == boxes || statement.deny)
                statement.rights = statement.rights | right;
            if (part != boxes)
                eachBox(part, [&](const Phrase& name, std::uint32_t) {
                    lose(number, EntryLossReason::half, name,
                         phrase("not without %1", names(boxes & ~part)));
                });
        };
        bundle(readBoxes, PosixRead);
        bundle(writeBoxes(isDirectory_), PosixWrite);
        bundle(ACL_SEARCH, PosixExecute);

        std::uint32_t always = alwaysBoxes | (isOwners(statement) ? ownersBoxes : 0);
        if (isOwners(statement) && !statement.deny)
            always |= ACL_CHANGE_OWNER;  // as much as the owner can have of it
        if (statement.deny)
            eachBox(on & always, [&](const Phrase& name, std::uint32_t) {
                lose(number, EntryLossReason::always, name, phrase("nobody can be denied it"));
            });
        eachBox(on & ~(readBoxes | writeBoxes(isDirectory_) | ACL_SEARCH | always),
                [&](const Phrase& name, std::uint32_t box) {
                    lose(number, EntryLossReason::box, name, whyNotHeld(box, statement.deny));
                });
    }

    void takeApplicability(std::uint32_t on, PosixStatement& statement) {
        constexpr std::uint32_t below =
            ACL_ENTRY_FILE_INHERIT | ACL_ENTRY_DIRECTORY_INHERIT | ACL_ENTRY_LIMIT_INHERIT;
        // "This item" has the bit of the opposite flag.
        statement.item = (on & ACL_ENTRY_ONLY_INHERIT) != 0;
        statement.children = (on & below) == below;
        if ((on & below) != 0 && !statement.children) {
            lose(statement.number, EntryLossReason::inheritance, "",
                 phrase("that it applies to a part only of the files, folders and descendants "
                        "inside"));
            statement.children = statement.deny;
        } else if (!statement.item && !statement.children) {
            lose(statement.number, EntryLossReason::nothing, "",
                 phrase("all of it, as it applies to nothing"));
        }
    }

    const std::vector<std::shared_ptr<MVAclEntry>>& entries_;
    const CBPosixIdentity owner_;
    const CBPosixIdentity group_;
    const bool isDirectory_;
    PosixStatements result_;
};

}  // namespace

std::uint32_t posixBoxesWith(std::uint32_t box, bool isDirectory) {
    for (const auto boxes : {readBoxes, writeBoxes(isDirectory)}) {
        if ((box & boxes) != 0)
            return boxes;
    }
    return box;
}

PosixStatements posixStatementsOf(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                                  std::uint32_t owner, std::uint32_t group, bool isDirectory) {
    return Taking(entries, owner, group, isDirectory).run();
}

}  // namespace morvane
