// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <compare>
#include <map>
#include <mutex>
#include <string>

/// How long the grants have been known that the system's policy service keeps. It keeps them for
/// five minutes; a right holds for less.
namespace morvane {

/// A grant that the policy service keeps. It counts its ids anew whenever it starts, so the name
/// that the bus has given it belongs to them.
struct PolicyGrant {
    std::string authority;
    /// Empty for an answer that rests on no kept grant.
    std::string id;
    auto operator<=>(const PolicyGrant&) const = default;
};

/// Any thread.
class GrantAges {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// With a `file`, in a folder that nobody else can write to, the ages outlast this process: it
    /// is read now, and written whenever a grant is seen for the first time.
    explicit GrantAges(std::string file = {}, Time now = std::chrono::steady_clock::now());

    static constexpr std::chrono::seconds rightLifetime{45};

    /// Whether `grant` was first seen longer ago than a right holds; one that is seen for the first
    /// time is young, and so is an answer that rests on no grant.
    bool isExpired(const PolicyGrant& grant, Time now = std::chrono::steady_clock::now());
    void forget(const PolicyGrant& grant);

  private:
    bool store() const;

    const std::string file_;
    std::mutex mutex_;
    std::map<PolicyGrant, Time> firstSeen_;
    /// Where that has failed it is tried again whenever a grant is seen.
    bool isStored_ = true;
};

}  // namespace morvane
