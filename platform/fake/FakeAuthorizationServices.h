// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/security/AuthorizationServices.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace morvane {

/// An authorization that a test scripts, and that records each call with its arguments.
class FakeAuthorizationServices final : public AuthorizationServices {
  public:
    class Reference final : public AuthorizationReference {};
    struct SetCall {
        AuthorizationRef reference;
        std::string name;
        AuthorizationRule rule;
        std::string descriptionKey;
    };
    struct CopyCall {
        AuthorizationRef reference;
        std::vector<AuthorizationItem> rights;
        std::uint32_t flags;
    };
    struct BlessCall {
        std::string domain;
        std::string label;
        AuthorizationRef reference;
    };

    // The script.
    OSStatus createStatus = 0;
    /// By right; a right that is not here is not defined.
    std::map<std::string, OSStatus> getStatus;
    std::map<std::string, OSStatus> setStatus;
    OSStatus copyStatus = 0;
    std::optional<std::int64_t> blessCode;
    /// Called while the user is asked.
    std::function<void()> whenAsked;

    // What was called.
    std::vector<std::string> calls;
    std::vector<std::uint32_t> createFlags;
    std::vector<SetCall> sets;
    std::vector<CopyCall> copies;
    std::vector<BlessCall> blesses;
    /// How often the user was asked: a right that was granted is not asked for again.
    int prompts = 0;
    std::vector<std::pair<AuthorizationRef, std::uint32_t>> frees;
    AuthorizationRef reference = std::make_shared<Reference>();

    OSStatus AuthorizationCreate(std::uint32_t flags, AuthorizationRef* made) override {
        calls.push_back("AuthorizationCreate");
        createFlags.push_back(flags);
        if (createStatus == 0)
            *made = reference;
        return createStatus;
    }
    OSStatus AuthorizationRightGet(const std::string& name) override {
        calls.push_back("AuthorizationRightGet " + name);
        const auto found = getStatus.find(name);
        return found == getStatus.end() ? errAuthorizationDenied : found->second;
    }
    OSStatus AuthorizationRightSet(const AuthorizationRef& with, const std::string& name,
                                   const AuthorizationRule& rule,
                                   const std::string& descriptionKey) override {
        calls.push_back("AuthorizationRightSet " + name);
        sets.push_back({with, name, rule, descriptionKey});
        const auto found = setStatus.find(name);
        return found == setStatus.end() ? 0 : found->second;
    }
    OSStatus AuthorizationCopyRights(const AuthorizationRef& from,
                                     const std::vector<AuthorizationItem>& rights,
                                     std::uint32_t flags) override {
        calls.push_back("AuthorizationCopyRights");
        copies.push_back({from, rights, flags});
        bool isNew = false;
        for (const auto& right : rights)
            isNew = held_.count(right.name) == 0 || isNew;
        if (isNew) {
            ++prompts;
            if (whenAsked)
                whenAsked();
        }
        if (copyStatus == 0) {
            for (const auto& right : rights)
                held_.insert(right.name);
        }
        return copyStatus;
    }
    OSStatus AuthorizationFree(const AuthorizationRef& freed, std::uint32_t flags) override {
        calls.push_back("AuthorizationFree");
        frees.emplace_back(freed, flags);
        return 0;
    }
    std::string SecCopyErrorMessageString(OSStatus status) override {
        return "text of " + std::to_string(status);
    }
    std::optional<std::int64_t> SMJobBless(const std::string& domain, const std::string& label,
                                           const AuthorizationRef& with) override {
        calls.push_back("SMJobBless");
        blesses.push_back({domain, label, with});
        return blessCode;
    }

  private:
    std::set<std::string> held_;
};

}  // namespace morvane
