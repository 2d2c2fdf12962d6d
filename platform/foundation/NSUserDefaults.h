// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSKeyValueObserving.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace morvane {

/// Where settings are kept. Supplied by the system, or by a test.
class MORVANE_EXPORT DefaultsStore {
  public:
    using Values = std::map<std::string, std::string, std::less<>>;

    virtual ~DefaultsStore();
    /// Everything that is stored now; what cannot be read counts as not stored.
    virtual Values load() = 0;
    /// Stores one value and leaves everything else as it is in the store. Null on success.
    virtual NSErrorRef save(std::string_view key, std::string_view value) = 0;
    /// From now on calls `changed`, on any thread, after the store may have been changed by
    /// anyone. Called once at most; the calls end before the store is destroyed.
    virtual void watch(std::function<void()> changed) = 0;
};

/// The user's settings: they outlive the process, and a person may edit them while it runs.
///
///     auto& defaults = NSUserDefaults::standardUserDefaults();
///     defaults.addObserver(&view, MVFileSizeInfo::useBase2MathForSizesKeyPath);
///     defaults.setBool(true, "useBase2MathForSizes");
///
/// An observer is notified once for each setBool() of its key, also when the value stays the same,
/// on the thread that set it; and once when someone else changed what is stored so that its key
/// reads differently, on a thread of the platform's own, which needs no loop of the host. Any
/// thread may use the defaults. Observers are notified under no lock; one that was removed may
/// still be running on another thread.
class MORVANE_EXPORT NSUserDefaults final : public NSObject {
  public:
    static NSUserDefaults& standardUserDefaults();

    explicit NSUserDefaults(std::shared_ptr<DefaultsStore> store);
    ~NSUserDefaults() override;

    /// True for a stored "true", "yes" or "1"; otherwise, and without a stored value, false.
    bool boolForKey(std::string_view key) const;
    /// Null on success. A value that could not be stored counts in this process, until the store is
    /// changed by someone else.
    NSErrorRef setBool(bool value, std::string_view key);

    /// `keyPath.name` is the key. An observer is not owned.
    void addObserver(NSKeyValueObserver* observer, const NSKeyPath& keyPath);
    /// Undoes the latest such registration. Throws NSInvalidArgumentException if there is none.
    void removeObserver(NSKeyValueObserver* observer, const NSKeyPath& keyPath);

    /// For tests: reads and writes there from now on, and notifies nobody of the difference. Null
    /// puts the system's store in place.
    void setStore(std::shared_ptr<DefaultsStore> store);

  private:
    struct Registration {
        NSKeyValueObserver* observer;
        const NSKeyPath* keyPath;
    };

    void storeChanged(const DefaultsStore* store);
    void watchStore();
    std::vector<Registration> takeOver(DefaultsStore::Values values, std::string_view setKey);
    void notify(const std::vector<Registration>& registrations);

    mutable std::mutex mutex_;
    std::shared_ptr<DefaultsStore> store_;
    bool watching_ = false;
    DefaultsStore::Values values_;
    std::vector<Registration> registrations_;
};

/// A key file in the user's configuration folder. Defined by the Linux platform.
std::shared_ptr<DefaultsStore> systemDefaultsStore();

}  // namespace morvane
