// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSObject.h>

#include <cstdint>
#include <memory>
#include <string_view>

/// \file
/// Change observation: an object notifies its observers when one of its properties was set.
///
///     class View final : public NSKeyValueObserver {
///       public:
///         void observeValueForKeyPath(const NSKeyPath& keyPath, NSObject& object) override {
///             seen = keyPath.name;
///         }
///         std::string_view seen;
///     };
///     View view;
///     auto entry = MVAclEntry::init();
///     entry->addObserver(&view, MVAclEntry::tagKeyPath);
///     entry->setTag(MVAclTagDeny);
///     assert(view.seen == "tag");
///     entry->removeObserver(&view, MVAclEntry::tagKeyPath);
///
/// A setter notifies the observers once per call, even if the value is unchanged, synchronously on
/// the caller's thread, after everything else that it does. An observer is not owned: it must
/// remove itself before it is destroyed. It may add and remove observers while it is being
/// notified; an observer that was removed is not notified any more.

namespace morvane {

/// A property, or a property reached through others ("representedObject.state"). Each exists once
/// and is compared by address; the text is for people.
struct NSKeyPath {
    std::string_view name;
    /// The last property on the path, whose setter notifies; null if the path is a single property.
    const NSKeyPath* last = nullptr;

    const NSKeyPath& property() const { return last ? *last : *this; }
};

/// Is notified when properties of the objects that it was registered with are set.
class MORVANE_EXPORT NSKeyValueObserver {
  public:
    /// `object` is the object that the observer was registered with. The new value is read from it.
    virtual void observeValueForKeyPath(const NSKeyPath& keyPath, NSObject& object) = 0;

  protected:
    ~NSKeyValueObserver() = default;
};

/// An object whose properties can be observed.
class MORVANE_EXPORT NSObservable : public NSObject {
  public:
    ~NSObservable() override;

    /// Registers `observer` for one property of this object. An observer that is registered several
    /// times is notified as often. Adding and removing take the same time however many observers
    /// there are.
    void addObserver(NSKeyValueObserver* observer, const NSKeyPath& keyPath) {
        addObserver(observer, keyPath, *this);
    }
    /// Undoes the latest registration of `observer` for `keyPath`. Throws
    /// NSInvalidArgumentException if there is none.
    void removeObserver(NSKeyValueObserver* observer, const NSKeyPath& keyPath) {
        removeObserver(observer, keyPath, *this);
    }

    /// The same for a key path that leads to this object from `origin`, which the observer is then
    /// given as the changed object. `origin` must outlive the registration.
    void addObserver(NSKeyValueObserver* observer, const NSKeyPath& keyPath, NSObject& origin);
    void removeObserver(NSKeyValueObserver* observer, const NSKeyPath& keyPath, NSObject& origin);

  protected:
    NSObservable();

    /// To be called last in every setter of `property`.
    void didChangeValueForKey(const NSKeyPath& property) {
        // One observer, nearly always: nothing is left to do once it was notified, whatever it
        // does.
        if (only_.property == &property) [[likely]]
            only_.observer->observeValueForKeyPath(*only_.keyPath, *only_.origin);
        else if (many_)
            notify(property);
    }

  private:
    struct Registration {
        NSKeyValueObserver* observer = nullptr;
        const NSKeyPath* keyPath = nullptr;
        NSObject* origin = nullptr;
        /// That of the key path.
        const NSKeyPath* property = nullptr;

        bool operator==(const Registration&) const = default;
    };
    struct MORVANE_INTERNAL Many;

    void notify(const NSKeyPath& property);
    /// Puts many_ in order after a removal, unless observers are being notified.
    void settle() noexcept;

    // Nearly every observed object has one observer, which stands in the object itself. Several
    // stand in many_, all of them.
    Registration only_;
    std::unique_ptr<Many> many_;
};

}  // namespace morvane
