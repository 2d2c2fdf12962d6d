#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <array>
#include <utility>
#include <variant>

namespace morvane {

namespace {

constexpr std::uint32_t readBoxes = ACL_READ_DATA | ACL_READ_EXTATTRIBUTES;
constexpr std::uint32_t alwaysBoxes = ACL_READ_ATTRIBUTES | ACL_READ_SECURITY;
constexpr std::uint32_t ownersBoxes = ACL_WRITE_ATTRIBUTES | ACL_WRITE_SECURITY;

std::uint32_t writeBoxes(bool isDirectory) {
    return ACL_WRITE_DATA | ACL_APPEND_DATA | ACL_WRITE_EXTATTRIBUTES |
           (isDirectory ? ACL_DELETE_CHILD : 0);
}

/// One entry as the evaluation takes it.
struct Statement {
    std::size_t number = 0;
    CBPosixIdentity who;
    bool flat = false;
    bool deny = false;
    PosixRights rights = PosixNothing;
    bool item = true;
    bool children = false;
};

/// What is decided about one identity so far.
struct Decisions {
    PosixRights allowed = PosixNothing;
    PosixRights denied = PosixNothing;

    void decide(bool deny, PosixRights rights) {
        auto& target = deny ? denied : allowed;
        target = target | (rights - (allowed | denied));
    }
};

class Reduction {
  public:
    Reduction(const std::vector<std::shared_ptr<MVAclEntry>>& entries, const PosixAclTarget& target)
        : entries_(entries), target_(target) {}

    PosixAclReduction run() {
        for (std::size_t i = 0; i != entries_.size(); ++i)
            take(i);
        PosixAcl acl{target_.owner, target_.group, target_.isDirectory, accessList(), {}};
        if (std::any_of(statements_.begin(), statements_.end(),
                        [](const Statement& s) { return s.children; }))
            acl.defaults = defaultList(acl.access);
        return {std::move(acl), std::move(losses_)};
    }

  private:
    CBPosixIdentity owner() const { return CBPosixUser{target_.owner}; }
    CBPosixIdentity owningGroup() const { return CBPosixGroup{target_.group}; }

    /// `what` is lost of an entry.
    void lose(std::size_t number, const std::string& what) {
        addLoss(losses_, number, *entries_[number], what);
    }

    void take(std::size_t number) {
        const auto& entry = *entries_[number];
        if (entry.tag() != TagAllow && entry.tag() != TagDeny)
            return lose(number, "it neither allows nor denies");
        const auto who =
            entry.uuid() ? posixIdentityOfUUID(*entry.uuid()) : CBPosixIdentity{CBEveryone{}};
        if (!who)
            return lose(number, "it is for nobody whom this system knows");
        if (entry.inherited())
            lose(number, "the mark that it is inherited");
        Statement statement{number, *who, !entry.isAcl(), entry.tag() == TagDeny};
        if (statement.flat ? takeFlat(entry, statement) : takeTree(entry, statement))
            statements_.push_back(statement);
    }

    bool takeFlat(const MVAclEntry& entry, Statement& statement) {
        static constexpr std::array<PosixRights, 3> rightsInOrder{PosixRead, PosixWrite,
                                                                  PosixExecute};
        const auto& nodes = entry.permissions();
        if (nodes.size() != rightsInOrder.size() || statement.deny ||
            (statement.who != owner() && statement.who != owningGroup() &&
             statement.who != CBPosixIdentity{CBEveryone{}})) {
            lose(statement.number,
                 "an entry of three rights is the owner's, the owning group's or everyone's, "
                 "allows, and has \"Read\", \"Write\" and \"Execute\"");
            return false;
        }
        for (std::size_t i = 0; i != nodes.size(); ++i) {
            const auto state = MVTreeNode::stateOf(*nodes[i]);
            if (state == MVStateOn)
                statement.rights = statement.rights | rightsInOrder[i];
            else if (state != MVStateOff)
                lose(statement.number, "a right that is neither on nor off");
        }
        return true;
    }

    bool takeTree(const MVAclEntry& entry, Statement& statement) {
        const auto& groups = entry.permissions();
        if (groups.size() < permissionGroups ||
            (target_.isDirectory && groups.size() <= permissionGroups)) {
            lose(statement.number, "its boxes are not those of the item's kind");
            return false;
        }
        std::uint32_t on = 0;
        for (std::size_t i = 0; i != permissionGroups; ++i)
            on |= boxesOn(*groups[i], statement.number, entry, losses_);
        takeBoxes(on, statement);
        if (target_.isDirectory)
            takeApplicability(boxesOn(*groups[permissionGroups], statement.number, entry, losses_),
                              statement);
        return statement.item || statement.children;
    }

    static std::string quoted(std::string_view name) { return '"' + std::string(name) + '"'; }

    /// The names of the boxes of `bits`, as this kind of item has them.
    std::string names(std::uint32_t bits) const {
        std::string text;
        for (const acl_perm_group* group = acl_perms; group->name; ++group) {
            for (const acl_perm_entry* row = group->perms; row->name; ++row) {
                if ((row->perm & bits) != 0 &&
                    (row->kinds & (target_.isDirectory ? ACL_KIND_FOLDERS : ACL_KIND_FILES)) != 0)
                    text += (text.empty() ? "" : ", ") + quoted(row->name);
            }
        }
        return text;
    }

    void takeBoxes(std::uint32_t on, Statement& statement) {
        const auto number = statement.number;
        const auto bundle = [&](std::uint32_t boxes, PosixRights right) {
            const auto part = on & boxes;
            if (part == 0)
                return;
            if (part == boxes || statement.deny)
                statement.rights = statement.rights | right;
            if (part != boxes)
                lose(number, names(part) + " without " + names(boxes & ~part));
        };
        bundle(readBoxes, PosixRead);
        bundle(writeBoxes(target_.isDirectory), PosixWrite);
        bundle(ACL_SEARCH, PosixExecute);

        const bool isOwner = statement.who == owner();
        const std::uint32_t always = alwaysBoxes | (isOwner ? ownersBoxes : 0);
        if (statement.deny) {
            if ((on & always) != 0)
                lose(number, names(on & always) + ", which nobody can be denied");
        } else if ((on & always) != always) {
            lose(number, names(always & ~on) + " off, which " +
                             (isOwner ? "the owner always has" : "everybody always has"));
        }
        const auto others =
            on & ~(readBoxes | writeBoxes(target_.isDirectory) | ACL_SEARCH | always);
        if (others != 0)
            lose(number, names(others));
    }

    void takeApplicability(std::uint32_t on, Statement& statement) {
        constexpr std::uint32_t below =
            ACL_ENTRY_FILE_INHERIT | ACL_ENTRY_DIRECTORY_INHERIT | ACL_ENTRY_LIMIT_INHERIT;
        // "This item" has the bit of the opposite flag.
        statement.item = (on & ACL_ENTRY_ONLY_INHERIT) != 0;
        statement.children = (on & below) == below;
        if ((on & below) != 0 && !statement.children) {
            lose(statement.number,
                 "that it applies to a part only of the files, folders and descendants inside");
            statement.children = statement.deny;
        } else if (!statement.item && !statement.children) {
            lose(statement.number, "all of it, as it applies to nothing");
        }
    }

    PosixList accessList() {
        const auto applies = [](const Statement& s) { return s.item; };
        PosixList list;
        list.owner = decide(owner(), applies).allowed;
        list.owningGroup = decide(owningGroup(), applies).allowed;
        list.others = decide(CBEveryone{}, applies).allowed;
        // A flat entry decides for its class; what the others say otherwise is lost.
        for (const auto& flat : statements_) {
            if (!flat.flat)
                continue;
            auto& rights = flat.who == owner()         ? list.owner
                           : flat.who == owningGroup() ? list.owningGroup
                                                       : list.others;
            rights = flat.rights;
            for (const auto& s : statements_) {
                if (!s.flat && s.item && (s.who == flat.who || (s.deny && s.who == everyone)))
                    compare(s, rights);
            }
        }
        addNamed(list, applies);
        return list;
    }

    PosixList defaultList(const PosixList& access) {
        const auto applies = [](const Statement& s) { return s.children; };
        // A class that is not spoken of has what it has in the item's own list.
        const auto rightsOf = [&](const CBPosixIdentity& who, PosixRights otherwise) {
            const bool mentioned =
                std::any_of(statements_.begin(), statements_.end(),
                            [&](const Statement& s) { return s.children && s.who == who; });
            return mentioned ? decide(who, applies).allowed : otherwise;
        };
        PosixList list;
        list.owner = rightsOf(owner(), access.owner);
        list.owningGroup = rightsOf(owningGroup(), access.owningGroup);
        list.others = rightsOf(everyone, access.others);
        addNamed(list, applies);
        return list;
    }

    /// What the statements that apply decide for one identity, in their order.
    template <class Applies>
    Decisions decide(const CBPosixIdentity& who, Applies&& applies) const {
        Decisions decisions;
        const auto* user = std::get_if<CBPosixUser>(&who);
        for (const auto& s : statements_) {
            if (!applies(s))
                continue;
            const auto* group = std::get_if<CBPosixGroup>(&s.who);
            const bool bearsOnMember = user && group && s.deny && who != owner() &&
                                       target_.isMember(user->uid, group->gid);
            // The flat entries of the owner and of the group are theirs alone.
            if (s.who == who || bearsOnMember || s.who == everyone)
                decisions.decide(s.deny, s.rights);
        }
        return decisions;
    }

    /// Adds the named users and groups, and the mask that lets all of them through.
    template <class Applies>
    void addNamed(PosixList& list, Applies&& applies) {
        for (const auto& s : statements_) {
            if (!applies(s) || s.who == owner() || s.who == owningGroup() || s.who == everyone)
                continue;
            const auto* user = std::get_if<CBPosixUser>(&s.who);
            const auto id = user ? user->uid : std::get<CBPosixGroup>(s.who).gid;
            auto& named = user ? list.users : list.groups;
            if (std::none_of(named.begin(), named.end(), [&](auto& n) { return n.id == id; }))
                named.push_back({id, decide(s.who, applies).allowed});
        }
        std::sort(list.users.begin(), list.users.end());
        std::sort(list.groups.begin(), list.groups.end());
        denyGroups(list, applies);
        if (list.users.empty() && list.groups.empty())
            return;
        list.mask = list.owningGroup;
        for (const auto* named : {&list.users, &list.groups}) {
            for (const auto& entry : *named)
                list.mask = *list.mask | entry.rights;
        }
        // Under a mask of nothing the kernel does not look at the list, and who is denied there has
        // what others have.
        if (list.mask == PosixNothing)
            list.mask = list.others;
    }

    void compare(const Statement& s, PosixRights& flat) {
        const auto contradicted = s.deny ? flat & s.rights : s.rights - flat;
        if (contradicted == PosixNothing)
            return;
        lose(s.number,
             "what the entry of three rights says otherwise: " + rightsText(contradicted));
        if (s.deny)
            flat = flat - contradicted;
    }

    /// A member of several groups has what any of them has: a deny for one holds only against
    /// everyone.
    template <class Applies>
    void denyGroups(PosixList& list, Applies&& applies) {
        for (const auto& s : statements_) {
            const auto* group = std::get_if<CBPosixGroup>(&s.who);
            if (!group || !s.deny || !applies(s))
                continue;
            const auto leaks = s.rights - list.others;
            PosixRights leaked = PosixNothing;
            const auto take = [&](PosixRights& rights) {
                leaked = leaked | (rights & leaks);
                rights = rights - leaks;
            };
            if (group->gid != target_.group)
                take(list.owningGroup);
            for (auto& other : list.groups) {
                if (other.id != group->gid)
                    take(other.rights);
            }
            if (leaked != PosixNothing)
                lose(s.number, "the denial of " + rightsText(leaked) +
                                   " to members of other groups that are allowed it");
        }
    }

    static std::string rightsText(PosixRights rights) {
        std::string text;
        for (const auto& [right, name] :
             {std::pair{PosixRead, "read"}, {PosixWrite, "write"}, {PosixExecute, "execute"}}) {
            if ((rights & right) != PosixNothing)
                text += (text.empty() ? "" : ", ") + std::string(name);
        }
        return text;
    }

    const CBPosixIdentity everyone = CBEveryone{};
    const std::vector<std::shared_ptr<MVAclEntry>>& entries_;
    const PosixAclTarget& target_;
    std::vector<Statement> statements_;
    std::vector<std::string> losses_;
};

}  // namespace

bool userIsInGroup(std::uint32_t uid, std::uint32_t gid) {
    const auto groups =
        CBIdentityAuthority::defaultIdentityAuthority().database().groupsOfUser(uid);
    return std::find(groups.begin(), groups.end(), gid) != groups.end();
}

PosixAclReduction reduceToPosixAcl(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                                   const PosixAclTarget& target) {
    return Reduction(entries, target).run();
}

}  // namespace morvane
