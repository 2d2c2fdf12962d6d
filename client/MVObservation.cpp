// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclPermission.h>
#include <MorvaneOperation/MVObservation.h>
#include <MorvaneOperation/MVTreeNode.h>

#include <utility>

namespace morvane {

struct MVObservation::State {
    std::weak_ptr<NSObservable> object;
    std::vector<const NSKeyPath*> keyPaths;
    std::shared_ptr<const Changed> changed;
};

std::unique_ptr<MVObservation> MVObservation::of(const std::shared_ptr<NSObservable>& object,
                                                 const std::vector<const NSKeyPath*>& keyPaths,
                                                 Changed changed) {
    return std::make_unique<MVObservation>(Private(), object, keyPaths, std::move(changed));
}

std::unique_ptr<MVObservation> MVObservation::ofBox(const NSTreeNode& node,
                                                    std::function<void()> changed) {
    if (!MVTreeNode::permissionOf(node))
        return nullptr;
    return of(std::static_pointer_cast<MVAclPermission>(node.representedObject()),
              {&MVAclPermission::stateKeyPath},
              [changed = std::move(changed)](const NSKeyPath&) { changed(); });
}

MVObservation::MVObservation(Private, const std::shared_ptr<NSObservable>& object,
                             const std::vector<const NSKeyPath*>& keyPaths, Changed changed)
    : state_(new State{object, keyPaths, std::make_shared<const Changed>(std::move(changed))}) {
    std::size_t added = 0;
    try {
        for (; added != keyPaths.size(); ++added)
            object->addObserver(this, *keyPaths[added]);
    } catch (...) {
        while (added != 0)
            object->removeObserver(this, *keyPaths[--added]);
        throw;
    }
}

MVObservation::~MVObservation() {
    if (const auto object = state_->object.lock()) {
        for (const auto* keyPath : state_->keyPaths)
            object->removeObserver(this, *keyPath);
    }
}

void MVObservation::observeValueForKeyPath(const NSKeyPath& keyPath, NSObject&) {
    // The call may end this observation.
    const auto changed = state_->changed;
    (*changed)(keyPath);
}

}  // namespace morvane
