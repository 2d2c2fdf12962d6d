// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSKeyValueObserving.h>

#include <functional>
#include <memory>
#include <vector>

namespace morvane {

class NSTreeNode;

/// An observation that ends with its owner.
///
///     auto entry = MVAclEntry::newEntryForDirectory(true);
///     auto row = MVObservation::of(entry, MVAclEntry::observableKeyPaths(),
///                                  [](const NSKeyPath&) { redraw(); });
///     auto box = MVObservation::ofBox(*entry->permissions()[0], [] { redraw(); });
///
/// It does not own what it observes: either may go first. When it is destroyed it ends at once,
/// even if that happens inside its own function. Main thread.
class MORVANE_EXPORT MVObservation final : private NSKeyValueObserver {
    struct Private {
        explicit Private() = default;
    };

  public:
    /// Is told which property was set.
    using Changed = std::function<void(const NSKeyPath& keyPath)>;

    /// Has `changed` called each time one of the properties of `object` was set.
    [[nodiscard]] static std::unique_ptr<MVObservation> of(
        const std::shared_ptr<NSObservable>& object, const std::vector<const NSKeyPath*>& keyPaths,
        Changed changed);
    /// Has `changed` called each time the state of the node's check box was set; null if the node
    /// has no check box.
    [[nodiscard]] static std::unique_ptr<MVObservation> ofBox(const NSTreeNode& node,
                                                              std::function<void()> changed);
    ~MVObservation();
    MVObservation(const MVObservation&) = delete;
    MVObservation& operator=(const MVObservation&) = delete;

    /// Public for std::make_unique only; use of().
    MVObservation(Private, const std::shared_ptr<NSObservable>& object,
                  const std::vector<const NSKeyPath*>& keyPaths, Changed changed);

  private:
    struct MORVANE_INTERNAL State;
    void observeValueForKeyPath(const NSKeyPath& keyPath, NSObject& object) override;

    std::unique_ptr<State> state_;
};

}  // namespace morvane
