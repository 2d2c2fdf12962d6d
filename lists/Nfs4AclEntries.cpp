// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/Nfs4AclEntries.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/acl_perms.h>

#include <algorithm>
#include <utility>
#include <variant>

namespace morvane {

namespace {

constexpr std::pair<std::uint32_t, std::uint32_t> boxesAndBits[] = {
    {ACL_READ_DATA, 0x1},          {ACL_WRITE_DATA, 0x2},           {ACL_APPEND_DATA, 0x4},
    {ACL_READ_EXTATTRIBUTES, 0x8}, {ACL_WRITE_EXTATTRIBUTES, 0x10}, {ACL_SEARCH, 0x20},
    {ACL_DELETE_CHILD, 0x40},      {ACL_READ_ATTRIBUTES, 0x80},     {ACL_WRITE_ATTRIBUTES, 0x100},
    {ACL_DELETE, 0x10000},         {ACL_READ_SECURITY, 0x20000},    {ACL_WRITE_SECURITY, 0x40000},
    {ACL_CHANGE_OWNER, 0x80000},
};

/// What is shown of an entry.
struct Shown {
    NSUUID who;
    bool deny = false;
    std::uint32_t boxes = 0;
    /// The boxes of "Applies To", for a folder.
    std::uint32_t applies = 0;
    bool inherited = false;
    bool operator==(const Shown&) const = default;
};

bool isShown(const Nfs4Entry& entry) {
    return entry.type == Nfs4Allow || entry.type == Nfs4Deny;
}

std::uint32_t when(bool condition, std::uint32_t bits) {
    return condition ? bits : 0;
}

/// All boxes that an item of this kind has.
std::uint32_t boxesOfKind(bool isDirectory) {
    std::uint32_t boxes = 0;
    for (const acl_perm_group* group = acl_perms; group->name; ++group) {
        for (const acl_perm_entry* row = group->perms; row->name; ++row)
            boxes |= when((row->kinds & (isDirectory ? ACL_KIND_FOLDERS : ACL_KIND_FILES)) != 0,
                          row->perm);
    }
    return boxes;
}

/// Makes a UUID from a name: always the same one for the same name, and never that of a user or
/// group, whose UUIDs have another version.
NSUUID uuidOfUnknownName(const std::string& who, bool isGroup) {
    NSUUID::Bytes bytes{};
    for (std::size_t half = 0; half != 2; ++half) {
        std::uint64_t hash = 0xcbf29ce484222325 ^ (half << 1U | static_cast<unsigned>(isGroup));
        for (const char c : who)
            hash = (hash ^ static_cast<std::uint8_t>(c)) * 0x100000001b3;
        for (std::size_t i = 0; i != 8; ++i)
            bytes[half * 8 + i] = static_cast<std::uint8_t>(hash >> (8 * i));
    }
    bytes[6] = static_cast<std::uint8_t>(0x80 | (bytes[6] & 0x0f));
    bytes[8] = static_cast<std::uint8_t>(0x80 | (bytes[8] & 0x3f));
    return NSUUID(bytes);
}

Shown shownOf(const Nfs4Entry& entry, const Nfs4Target& target, const Nfs4Names& names) {
    const bool isGroup = (entry.flags & Nfs4IsGroup) != 0;
    const auto who = identityOfNfs4Entry(entry, target, names);
    const auto has = [&](std::uint32_t flag) { return (entry.flags & flag) != 0; };
    std::uint32_t applies = 0;
    if (target.isDirectory)
        applies = when(!has(Nfs4InheritOnly), ACL_ENTRY_ONLY_INHERIT) |
                  when(has(Nfs4FileInherit), ACL_ENTRY_FILE_INHERIT) |
                  when(has(Nfs4FolderInherit), ACL_ENTRY_DIRECTORY_INHERIT) |
                  when(has(Nfs4FolderInherit) && !has(Nfs4NoPropagate), ACL_ENTRY_LIMIT_INHERIT);
    return {who ? uuidOfPosixIdentity(*who) : uuidOfUnknownName(entry.who, isGroup),
            entry.type == Nfs4Deny, boxesOfNfs4Mask(entry.mask) & boxesOfKind(target.isDirectory),
            applies, has(Nfs4Inherited)};
}

/// Replaces a list with entries.
class Replacement {
  public:
    Replacement(const Nfs4Acl& old, const Nfs4Target& target, const Nfs4Names& names)
        : old_(old), target_(target), names_(names), used_(old.entries.size()) {
        for (const auto& entry : old.entries)
            oldShown_.push_back(shownOf(entry, target, names));
    }

    Nfs4Replacement run(const std::vector<std::shared_ptr<MVAclEntry>>& entries) {
        std::vector<std::optional<Shown>> wanted;
        for (std::size_t i = 0; i != entries.size(); ++i)
            wanted.push_back(wantedOf(*entries[i], i));

        // Entries that are unchanged keep their stored entry; only then do changed ones take one of
        // the rest as their model.
        std::vector<const Nfs4Entry*> models(wanted.size());
        for (std::size_t i = 0; i != wanted.size(); ++i)
            models[i] = wanted[i] ? take([&](const Shown& s) { return s == *wanted[i]; }) : nullptr;
        for (std::size_t i = 0; i != wanted.size(); ++i) {
            if (wanted[i] && !models[i])
                models[i] = take([&](const Shown& s) {
                    return s.who == wanted[i]->who && s.deny == wanted[i]->deny;
                });
        }

        Nfs4Replacement result{{old_.flags, {}}, {}};
        for (std::size_t i = 0; i != wanted.size(); ++i) {
            if (!wanted[i])
                continue;
            if (auto entry = entryOf(*wanted[i], models[i]))
                result.acl.entries.push_back(std::move(*entry));
            else
                lose(i, *entries[i], EntryLossReason::nobody,
                     phrase("it is for nobody whom this system knows"));
        }
        // Stored entries that are never shown keep their positions.
        for (std::size_t i = 0; i != old_.entries.size(); ++i) {
            auto& list = result.acl.entries;
            if (!isShown(old_.entries[i]))
                list.insert(list.begin() + static_cast<std::ptrdiff_t>(std::min(i, list.size())),
                            old_.entries[i]);
        }
        if (result.acl.entries != old_.entries)
            result.acl.flags &= ~static_cast<std::uint32_t>(Nfs4Trivial);
        result.losses = std::move(losses_);
        return result;
    }

  private:
    void lose(std::size_t number, const MVAclEntry& entry, EntryLossReason reason,
              const Phrase& why) {
        losses_.push_back(makeLoss(number, entry, reason, "", why));
    }

    std::optional<Shown> wantedOf(const MVAclEntry& entry, std::size_t number) {
        const auto& groups = entry.permissions();
        if (entry.tag() != MVAclTagAllow && entry.tag() != MVAclTagDeny) {
            lose(number, entry, EntryLossReason::tag, phrase("it neither allows nor denies"));
            return std::nullopt;
        }
        if (!entry.isAcl() || groups.size() < permissionGroups + (target_.isDirectory ? 1 : 0)) {
            lose(number, entry, EntryLossReason::shape,
                 phrase("its boxes are not those of the item's kind"));
            return std::nullopt;
        }
        Shown shown{entry.uuid().value_or(uuidOfPosixIdentity(CBEveryone{})),
                    entry.tag() == MVAclTagDeny, 0, 0, entry.inherited()};
        for (std::size_t i = 0; i != permissionGroups; ++i)
            shown.boxes |= boxesOn(*groups[i], number, entry, losses_);
        if (const auto strange = shown.boxes & ~boxesOfKind(target_.isDirectory); strange != 0) {
            lose(number, entry, EntryLossReason::box,
                 phrase("boxes that this kind of item does not have"));
            shown.boxes &= ~strange;
        }
        if (target_.isDirectory) {
            shown.applies = boxesOn(*groups[permissionGroups], number, entry, losses_);
            if ((shown.applies & ACL_ENTRY_DIRECTORY_INHERIT) == 0)
                shown.applies &= ~static_cast<std::uint32_t>(ACL_ENTRY_LIMIT_INHERIT);
        }
        return shown;
    }

    template <class Matches>
    const Nfs4Entry* take(Matches&& matches) {
        for (std::size_t i = 0; i != used_.size(); ++i) {
            if (!used_[i] && isShown(old_.entries[i]) && matches(oldShown_[i])) {
                used_[i] = true;
                return &old_.entries[i];
            }
        }
        return nullptr;
    }

    /// Empty if this system cannot tell whom the entry is for. What has no box is taken from
    /// `model`.
    std::optional<Nfs4Entry> entryOf(const Shown& shown, const Nfs4Entry* model) const {
        Nfs4Entry entry;
        if (!nameWho(entry, shown.who, model))
            return std::nullopt;
        entry.type = shown.deny ? Nfs4Deny : Nfs4Allow;
        const std::uint32_t kept = model ? model->flags & ~(Nfs4IsGroup | Nfs4Inherited) : 0U;
        entry.flags |= when(shown.inherited, Nfs4Inherited) |
                       (target_.isDirectory ? inheritance(shown.applies, kept) : kept);
        entry.mask = nfs4MaskOfBoxes(shown.boxes);
        if (model)
            entry.mask |= model->mask & ~nfs4MaskOfBoxes(boxesOfKind(target_.isDirectory));
        return entry;
    }

    static std::uint32_t inheritance(std::uint32_t applies, std::uint32_t kept) {
        constexpr std::uint32_t shownFlags =
            Nfs4FileInherit | Nfs4FolderInherit | Nfs4NoPropagate | Nfs4InheritOnly;
        const auto on = [&](std::uint32_t box) { return (applies & box) != 0; };
        const bool files = on(ACL_ENTRY_FILE_INHERIT);
        const bool folders = on(ACL_ENTRY_DIRECTORY_INHERIT);
        const std::uint32_t flags = (kept & ~shownFlags) |
                                    when(!on(ACL_ENTRY_ONLY_INHERIT), Nfs4InheritOnly) |
                                    when(files, Nfs4FileInherit) | when(folders, Nfs4FolderInherit);
        if (folders)
            return flags | when(!on(ACL_ENTRY_LIMIT_INHERIT), Nfs4NoPropagate);
        // Without "Child folders" there is no box for how deep files inherit: an unchanged entry
        // keeps its depth, and a new one reaches no further than its boxes say.
        constexpr std::uint32_t reach = Nfs4FileInherit | Nfs4FolderInherit;
        if ((kept & reach) == (flags & reach))
            return flags | (kept & Nfs4NoPropagate);
        return flags | when(files, Nfs4NoPropagate);
    }

    bool nameWho(Nfs4Entry& entry, const NSUUID& who, const Nfs4Entry* model) const {
        for (std::size_t i = 0; !model && i != oldShown_.size(); ++i) {
            if (oldShown_[i].who == who)
                model = &old_.entries[i];
        }
        if (model) {
            entry.who = model->who;
            entry.flags = model->flags & Nfs4IsGroup;
            return true;
        }
        const auto identity = posixIdentityOfUUID(who);
        if (!identity)
            return false;
        const auto* user = std::get_if<CBPosixUser>(&*identity);
        const auto* group = std::get_if<CBPosixGroup>(&*identity);
        entry.flags = when(group, Nfs4IsGroup);
        // In an entry that is inherited the owner is whoever makes the item.
        if (const auto* creator = std::get_if<CBCreator>(&*identity))
            entry.who = creator->isGroup ? nfs4OwningGroup : nfs4Owner;
        else if (user && user->uid == target_.owner)
            entry.who = nfs4Owner;
        else if (group && group->gid == target_.group)
            entry.who = nfs4OwningGroup;
        else if (user || group)
            entry.who =
                nameInDomain(*identity).value_or(std::to_string(user ? user->uid : group->gid));
        else
            entry.who = nfs4Everyone;
        return true;
    }

    /// Names somebody as the list names others already: with its domain, if this system knows
    /// somebody in it.
    std::optional<std::string> nameInDomain(const CBPosixIdentity& identity) const {
        for (const auto& entry : old_.entries) {
            const auto at = entry.who.rfind('@');
            if (at == std::string::npos || at + 1 == entry.who.size() ||
                !identityOfNfs4Entry(entry, target_, names_))
                continue;
            if (auto name = names_.nameOf(identity))
                return *name + entry.who.substr(at);
        }
        return std::nullopt;
    }

    const Nfs4Acl& old_;
    const Nfs4Target& target_;
    const Nfs4Names& names_;
    std::vector<Shown> oldShown_;
    std::vector<bool> used_;
    std::vector<EntryLoss> losses_;
};

}  // namespace

std::uint32_t boxesOfNfs4Mask(std::uint32_t mask) {
    std::uint32_t boxes = 0;
    for (const auto& [box, bit] : boxesAndBits)
        boxes |= when((mask & bit) != 0, box);
    return boxes;
}

std::uint32_t nfs4MaskOfBoxes(std::uint32_t boxes) {
    std::uint32_t mask = 0;
    for (const auto& [box, bit] : boxesAndBits)
        mask |= when((boxes & box) != 0, bit);
    return mask;
}

std::optional<CBPosixIdentity> identityOfNfs4Entry(const Nfs4Entry& entry, const Nfs4Target& target,
                                                   const Nfs4Names& names) {
    if (entry.who == nfs4Owner)
        return CBPosixUser{target.owner};
    if (entry.who == nfs4OwningGroup)
        return CBPosixGroup{target.group};
    if (entry.who == nfs4Everyone)
        return CBEveryone{};
    const bool isGroup = (entry.flags & Nfs4IsGroup) != 0;
    if (const auto id = idOfNfs4Who(entry.who))
        return isGroup ? CBPosixIdentity{CBPosixGroup{*id}} : CBPosixIdentity{CBPosixUser{*id}};
    return names.identityOf(entry.who, isGroup);
}

std::vector<std::shared_ptr<MVAclEntry>> entriesOfNfs4Acl(const Nfs4Acl& acl,
                                                          const Nfs4Target& target,
                                                          const Nfs4Names& names) {
    std::vector<std::shared_ptr<MVAclEntry>> entries;
    for (const auto& entry : acl.entries) {
        if (!isShown(entry))
            continue;
        const auto shown = shownOf(entry, target, names);
        auto tree = permissionTree(shown.boxes, target.isDirectory);
        if (target.isDirectory)
            tree.push_back(appliesToNode(shown.applies));
        entries.push_back(MVAclEntry::initWithUuid(shown.who,
                                                   shown.deny ? MVAclTagDeny : MVAclTagAllow,
                                                   std::move(tree), shown.inherited));
    }
    return entries;
}

Nfs4Replacement nfs4AclOfEntries(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                                 const Nfs4Acl& old, const Nfs4Target& target,
                                 const Nfs4Names& names) {
    return Replacement(old, target, names).run(entries);
}

}  // namespace morvane
