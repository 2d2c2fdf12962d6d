#pragma once

#include <MorvaneOperation/platform/foundation/NSObject.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

/// Change observation: an object tells its observers that one of its properties was set.
///
///     entry->addObserver(this, MVAclEntry::tagKeyPath);
///     ...
///     void observeValueForKeyPath(const NSKeyPath& keyPath, NSObject& object) override;
///
/// A setter tells its observers once per call, after the whole setter has run, also when the value
/// is unchanged, synchronously, on the caller's thread. An observer is not owned: it removes itself
/// before it goes. It may add and remove observers while it is being told; one that was removed is
/// not told any more.
namespace morvane {

/// A property, or a property reached through others ("representedObject.state"). Each exists once
/// and is compared by address; the text is for people.
struct NSKeyPath {
    std::string_view name;
    /// The last property on the path, whose setter tells; null when the path is that property.
    const NSKeyPath* last = nullptr;

    const NSKeyPath& property() const { return last ? *last : *this; }
};

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

    /// Registers `observer` for one property of this object. The same observer may be registered
    /// more than once and is then told as often.
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
    NSObservable() = default;

    /// To be called last in every setter of `property`.
    void didChangeValueForKey(const NSKeyPath& property) {
        // One observer, nearly always: nothing is left to do once it was told, whatever it does.
        if (count_ == 1 && telling_ == 0) {
            if (&first_.keyPath->property() == &property)
                first_.observer->observeValueForKeyPath(*first_.keyPath, *first_.origin);
        } else if (count_ != 0) {
            notify(property);
        }
    }

  private:
    struct Registration {
        NSKeyValueObserver* observer = nullptr;  // null: removed while observers were being told
        const NSKeyPath* keyPath = nullptr;
        NSObject* origin = nullptr;
    };

    void notify(const NSKeyPath& property);
    Registration& at(std::size_t index) { return index == 0 ? first_ : (*rest_)[index - 1]; }
    void compact();

    // Nearly every observed object has one observer: the first stands in the object itself.
    Registration first_;
    std::unique_ptr<std::vector<Registration>> rest_;
    std::uint32_t count_ = 0;
    std::uint16_t telling_ = 0;
    bool removedWhileTelling_ = false;
};

}  // namespace morvane
