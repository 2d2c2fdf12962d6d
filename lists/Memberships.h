// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/PosixAclReduction.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace morvane {

/// Looks up the groups that users are in, once for each user.
class Memberships {
  public:
    explicit Memberships(const PosixAclTarget& target) : target_(target) {}

    const std::vector<std::uint32_t>& of(std::uint32_t uid) {
        const auto [found, isNew] = groups_.try_emplace(uid);
        if (isNew && goesOn()) {
            auto& groups = found->second;
            groups =
                target_.groupsOf
                    ? target_.groupsOf(uid)
                    : CBIdentityAuthority::defaultIdentityAuthority().database().groupsOfUser(uid);
        }
        return found->second;
    }
    bool isCancelled() const { return cancelled_; }

  private:
    bool goesOn() {
        if (target_.goesOn && !cancelled_)
            cancelled_ = !target_.goesOn();
        return !cancelled_;
    }

    const PosixAclTarget& target_;
    std::unordered_map<std::uint32_t, std::vector<std::uint32_t>> groups_;
    bool cancelled_ = false;
};

}  // namespace morvane
