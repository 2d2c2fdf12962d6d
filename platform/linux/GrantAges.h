#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>

/// How long the grants have been known that the system's policy service keeps. It keeps them for
/// five minutes; a right holds for less.
namespace morvane {

/// Any thread.
class GrantAges {
  public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::seconds rightLifetime{45};

    /// Whether the grant `id` was first seen longer ago than a right holds; one that is seen for
    /// the first time is young. An empty `id` is an answer that rests on no kept grant, and young.
    bool isExpired(const std::string& id, Time now = std::chrono::steady_clock::now());
    void forget(const std::string& id);
    /// The grants seen, which are forgotten.
    std::map<std::string, Time> takeAll();

  private:
    std::mutex mutex_;
    std::map<std::string, Time> firstSeen_;
};

}  // namespace morvane
