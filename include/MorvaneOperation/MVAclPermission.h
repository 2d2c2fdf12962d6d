// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSKeyValueObserving.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace morvane {

class NSTreeNode;

/// The values of a three-state check box.
inline constexpr std::int64_t MVStateOff = 0;
inline constexpr std::int64_t MVStateOn = 1;
/// A group whose children disagree.
inline constexpr std::int64_t MVStateMixed = -1;

/// What a group node has as its permission: a group of permissions, or "Applies To".
inline constexpr std::int32_t MVAclMarkerPermissions = 2;
inline constexpr std::int32_t MVAclMarkerAppliesTo = 0x2000;

/// One check box of an access-control entry: the text beside it, the bit it stands for, its state,
/// and whether the user may change it.
///
///     auto box = MVAclPermission::initWithName("Read Data", ACL_READ_DATA, MVStateOn);
///     box->setState(MVStateOff);   // notifies whoever observes the state
///     assert(box->name() == "Read Data" && !box->settable());
///
/// The group nodes of an entry's tree hold such objects too, with a marker value as their bit.
/// Main thread; setters store what they are given, unchecked, and notify their observers.
class MORVANE_EXPORT MVAclPermission : public NSObservable {
  public:
    static const NSKeyPath nameKeyPath;
    static const NSKeyPath permissionKeyPath;
    static const NSKeyPath stateKeyPath;
    static const NSKeyPath settableKeyPath;

    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }
    static bool supportsSecureCoding() { return true; }

    /// No name, permission 2, off, not settable.
    static std::shared_ptr<MVAclPermission> init();
    /// `name` is an English key, which is localised with the table "ACL", or none. Not settable
    /// until its owner says so.
    static std::shared_ptr<MVAclPermission> initWithName(std::optional<std::string_view> name,
                                                         std::int32_t permission,
                                                         std::int64_t state);

    /// False for one without a name, which is not one whose name is empty.
    bool hasName() const;
    /// Empty for none too.
    const std::string& name() const;
    /// Stored as given, not localised.
    void setName(std::optional<std::string> name);
    std::int32_t permission() const;
    void setPermission(std::int32_t permission);
    std::int64_t state() const;
    void setState(std::int64_t state);
    bool settable() const;
    void setSettable(bool settable);

    /// Same class and same name, or none in both; permission, state and settable play no part.
    bool isEqual(const NSObject* other) const override;

    /// Gives every direct child of `node` the state of `node`, mixed included. Null is ignored.
    static void propagateStateOfPermissionNode(const NSTreeNode* node);

    /// Turns a folder's permission into its file counterpart: the same bit under the other name,
    /// as the bare English key. A permission without a counterpart stays as it is.
    void convertToFilePermission();

    void encodeWithCoder(NSKeyedArchiver& coder) const override;
    static std::shared_ptr<NSObject> initWithCoder(NSKeyedUnarchiver& coder);

    /// Public for std::make_shared only; use initWithName().
    MVAclPermission(std::optional<std::string_view> name, std::int32_t permission,
                    std::int64_t state);

  private:
    std::string name_;
    std::int64_t state_;
    std::int32_t permission_;
    bool settable_ = false;
    bool hasName_;
};

}  // namespace morvane
