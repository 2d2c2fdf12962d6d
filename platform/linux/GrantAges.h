// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <compare>
#include <map>
#include <mutex>
#include <string>

/// Records when each grant that the system's policy service keeps was first seen. The service keeps
/// a grant for five minutes; a right of this library expires sooner.
namespace morvane {

/// A grant that the policy service keeps. The service numbers its grants anew whenever it starts,
/// so its unique name on the bus is part of the identity.
struct PolicyGrant {
    std::string authority;
    /// This is empty for an answer that is based on no kept grant.
    std::string id;
    auto operator<=>(const PolicyGrant&) const = default;
};

/// It may be used on any thread.
class GrantAges {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// With a `file`, which must be in a folder that nobody else can write to, the ages outlast
    /// this process: the file is read now, and written whenever a grant is seen for the first time.
    explicit GrantAges(std::string file = {}, Time now = std::chrono::steady_clock::now());

    static constexpr std::chrono::seconds rightLifetime{45};

    /// Whether `grant` was first seen longer ago than a right holds; a grant that is seen for the
    /// first time has not expired, nor has an answer that is based on no grant.
    bool isExpired(const PolicyGrant& grant, Time now = std::chrono::steady_clock::now());
    void forget(const PolicyGrant& grant);

  private:
    bool store() const;

    const std::string file_;
    std::mutex mutex_;
    std::map<PolicyGrant, Time> firstSeen_;
    /// If writing has failed, it is tried again whenever a grant is seen.
    bool isStored_ = true;
};

}  // namespace morvane
