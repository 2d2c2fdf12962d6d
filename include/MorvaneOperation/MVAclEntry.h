// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclOrigin.h>
#include <MorvaneOperation/MVTreeNode.h>
#include <MorvaneOperation/platform/foundation/NSKeyValueObserving.h>
#include <MorvaneOperation/platform/foundation/NSNotificationCenter.h>
#include <MorvaneOperation/platform/foundation/NSUUID.h>
#include <MorvaneOperation/platform/host/MVIdentities.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace morvane {

/// What the `tag` of an entry says: its boxes are allowed, or denied.
enum MVAclTag : std::int32_t { MVAclTagAllow = 1, MVAclTagDeny = 2 };

/// Codes of `permissionGroup`, which follow from the states of the first three groups.
enum MVAclPermissionGroup : std::int64_t {
    MVAclGroupAll = 1,
    MVAclGroupReadWrite = 2,
    MVAclGroupRead = 3,
    MVAclGroupWrite = 4,
    /// All off; flat entries only.
    MVAclGroupNone = 5,
    /// Anything else. Shown, never chosen.
    MVAclGroupCustom = 6,
};

/// One entry of a file's access-control list, made to be edited: whom it applies to, whether it
/// allows or denies, and a tree of check boxes saying what.
///
///     auto entry = MVAclEntry::newEntryForDirectory(true);
///     entry->addObserver(&view);                   // observes what observableKeyPaths() names
///     entry->setPermissionGroup(MVAclGroupRead);   // a choice from the menu
///     MVTreeNode::setStateOf(*entry->permissions()[0]->childNodeAtIndex(1), MVStateOff);
///     assert(entry->permissionGroup() == MVAclGroupCustom);
///
/// The tree has the groups "Read", "Write", "Administration" and, for a folder only, "Applies To",
/// in this order, each with its boxes as children; groups and boxes are found by position. The
/// entry observes the states of both levels: a changed box decides its group's state and the
/// group code, a changed group decides its boxes. An entry whose groups have no boxes is a flat
/// entry.
///
/// An entry without a uuid applies to everyone. An entry that was made for a user who cannot be
/// found has none either: check `uuid()` before writing such an entry.
///
/// An archive may reach an entry, a node or a box from one place only. If it reaches one of them a
/// second time, from the same entry or from another, it is refused.
///
/// Ownership: an entry owns its tree and identity; observers are not owned. An observer must not
/// replace the tree (or convert the entry) while it is being notified of a change of a box.
/// Threads: the main thread; no locks. Failure: a tree of another shape is not verified; an
/// operation that reaches past its end throws NSRangeException and keeps the changes made so far.
class MORVANE_EXPORT MVAclEntry : public NSObservable,
                                  public NSKeyValueObserver,
                                  public std::enable_shared_from_this<MVAclEntry> {
    struct Private {
        explicit Private() = default;
    };

  public:
    using Permissions = std::vector<std::shared_ptr<MVTreeNode>>;

    static const NSKeyPath inheritedKeyPath;
    static const NSKeyPath applicableToInitializedKeyPath;
    static const NSKeyPath updatingPermissionsKeyPath;
    static const NSKeyPath tagKeyPath;
    static const NSKeyPath permissionGroupKeyPath;
    static const NSKeyPath uuidKeyPath;
    static const NSKeyPath permissionsKeyPath;
    static const NSKeyPath identityKeyPath;
    static const NSKeyPath applicableToKeyPath;
    /// Changes when the lists that identities() reads have changed.
    static const NSKeyPath identitiesKeyPath;

    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }
    static bool supportsSecureCoding() { return true; }

    /// Makes an entry with tag 0 and without a tree, for everyone, not inherited.
    static std::shared_ptr<MVAclEntry> init();
    /// Takes the tree as it is and makes its boxes settable unless `inherited`. The identity is
    /// that of `uuid`; without a uuid it is everyone. `tag` is one of MVAclTag.
    static std::shared_ptr<MVAclEntry> initWithUuid(const std::optional<NSUUID>& uuid,
                                                    std::int32_t tag, Permissions permissions,
                                                    bool inherited);
    /// Makes an entry that allows the logged-in user to read and write; on a folder it applies to
    /// the folder itself only.
    static std::shared_ptr<MVAclEntry> newEntryForDirectory(bool directory);
    ~MVAclEntry() override;

    bool inherited() const;
    /// Makes every box settable or not, and resolves the applicability.
    void setInherited(bool inherited);
    bool applicableToInitialized() const;
    void setApplicableToInitialized(bool initialized);
    /// True while the entry changes its own tree and does not listen to it.
    bool updatingPermissions() const;
    void setUpdatingPermissions(bool updating);
    std::int32_t tag() const;
    void setTag(std::int32_t tag);
    std::int64_t permissionGroup() const;
    /// Sets the first three groups and their boxes as `code` says (an unknown code is taken for
    /// MVAclGroupAll). MVAclGroupCustom is shown until the next turn of the main loop, which puts
    /// the former code back; edits of the boxes before then are not followed. Throws
    /// NSRangeException if there are fewer than three groups.
    void setPermissionGroup(std::int64_t code);
    const std::optional<NSUUID>& uuid() const;
    void setUuid(const std::optional<NSUUID>& uuid);
    const Permissions& permissions() const;
    /// Replaces the tree and observes the new one instead. Nothing is resolved. Throws
    /// NSInvalidArgumentException for a null group.
    void setPermissions(Permissions permissions);
    /// Null if unknown, or not known yet (MVOperationOptions::namesLater). It is looked up when it
    /// is first asked for, as directories can be slow, and a service needs no names; the entries
    /// that MVFileClient reads have been asked already.
    const CBIdentityRef& identity() const;
    /// Sets `uuid` too.
    void setIdentity(CBIdentityRef identity);
    /// Takes what somebody else has found for `uuid`; null, if nothing yet, so that it is not
    /// looked up when it is asked for. Ignored if it is that of another uuid, as the entry may have
    /// been edited meanwhile. Observers of "identity" are told if another answer was known.
    void setFoundIdentity(CBIdentityRef identity);
    /// What the entry applies to, for people: "This item, Child files".
    const std::string& applicableTo() const;
    void setApplicableTo(std::string text);

    /// The list that the entry was read from; null for one that was not read. Not observed.
    const std::shared_ptr<const MVAclOrigin>& origin() const;
    void setOrigin(std::shared_ptr<const MVAclOrigin> origin);

    /// Whether the first group has boxes; a flat entry's has none.
    bool isAcl() const;
    /// Entries sorted by descending score are in canonical order: explicit before inherited, deny
    /// before allow.
    std::int64_t canonicalScore() const;
    /// Whether "Read", "Write" and "Administration" are all off.
    bool isShallow() const;
    /// Always 1: the depth of the inheritance is not tracked.
    std::int64_t inheritanceLevel() const { return 1; }

    /// The identities to choose from: all for an entry with boxes; for a flat entry the groups if
    /// its identity is a group, else the users.
    MVIdentities::List identities() const;
    /// 1 and 2.
    const std::vector<std::int32_t>& tags() const;
    /// The codes to choose from; MVAclGroupNone for flat entries only.
    const std::vector<std::int64_t>& permissionGroups() const;
    /// Passes a change of the identity lists on to the observers of "identities".
    void identitiesUpdated(const NSNotification& notification);

    /// "identity", "tag", "permissionGroup", "inherited".
    static const std::vector<const NSKeyPath*>& observableKeyPaths();
    using NSObservable::addObserver;
    using NSObservable::removeObserver;
    /// Registers (unregisters) `observer` for all of observableKeyPaths, in their order.
    void addObserver(NSKeyValueObserver* observer);
    void removeObserver(NSKeyValueObserver* observer);

    /// Computes the group code from the tree and sets it.
    void resolvePermissionGroup();
    /// Gives `node` the state that its direct children share, mixed if they share none, off if
    /// there are none. Null is ignored.
    static void resolveStateForPermissionNode(const NSTreeNode* node);
    /// Keeps the boxes of "Applies To" consistent and makes the text of `applicableTo`.
    void resolveApplicableTo();
    /// The state of `object`, a node of the tree, was set.
    void observeValueForKeyPath(const NSKeyPath& keyPath, NSObject& object) override;

    /// Turns a folder's entry, in place, into the one that a file (a sub-folder) inside it
    /// inherits. False, with nothing changed, if the entry does not reach files (sub-folders).
    bool convertInheritedToFileEntry();
    bool convertInheritedToDirectoryEntry();

    /// Compares class, tag, inheritance, kind, identity and boxes. The comparison is one-sided:
    /// nodes that only `other` has are ignored. An entry without an identity equals nothing, not
    /// even itself.
    bool isEqual(const NSObject* other) const override;

    void encodeWithCoder(NSKeyedArchiver& coder) const override;
    static std::shared_ptr<NSObject> initWithCoder(NSKeyedUnarchiver& coder);

    /// Public for std::make_shared only; use initWithUuid().
    explicit MVAclEntry(Private) {}

  private:
    /// The one way in which every entry begins.
    void setUp(const std::optional<NSUUID>& uuid, std::int32_t tag, Permissions permissions,
               bool inherited);
    void applyPermissionGroup(std::int64_t code);
    MORVANE_INTERNAL void followNode(const NSTreeNode& node);
    void refuseCustomGroup(std::int64_t previous);
    std::string resolveApplicabilityBoxes(bool& othersOn);
    void observeNode(const std::shared_ptr<NSTreeNode>& node);
    void stopObservingNodes();

    bool inherited_ = false;
    bool applicableToInitialized_ = false;
    bool updatingPermissions_ = false;
    mutable bool isIdentityKnown_ = false;
    std::int32_t tag_ = 0;
    std::int64_t permissionGroup_ = 0;
    std::optional<NSUUID> uuid_;
    Permissions permissions_;
    mutable CBIdentityRef identity_;
    std::string applicableTo_;
    std::shared_ptr<const MVAclOrigin> origin_;
    // What is observed, though a host may have taken nodes out of the tree meanwhile.
    NSTreeNode::Children observedNodes_;
    NSNotificationCenter::Observation identitiesObservation_;
};

}  // namespace morvane
