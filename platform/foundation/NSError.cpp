// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSError.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace morvane {
namespace {

const std::string* stringForKey(const NSErrorUserInfo& userInfo, const char* key) {
    const auto found = userInfo.find(key);
    return found == userInfo.end() ? nullptr : std::get_if<std::string>(&found->second);
}

bool equalErrors(const NSErrorRef& a, const NSErrorRef& b) {
    return a == b || (a && a->isEqual(b.get()));
}

bool equalValues(const NSErrorValue& a, const NSErrorValue& b) {
    if (a.index() != b.index())
        return false;
    if (const auto* error = std::get_if<NSErrorRef>(&a))
        return equalErrors(*error, std::get<NSErrorRef>(b));
    if (const auto* errors = std::get_if<std::vector<NSErrorRef>>(&a)) {
        const auto& others = std::get<std::vector<NSErrorRef>>(b);
        return std::equal(errors->begin(), errors->end(), others.begin(), others.end(),
                          equalErrors);
    }
    return a == b;
}

}  // namespace

const NSClass& NSError::classObject() {
    static const NSClass c{"NSError", &NSObject::classObject(), nullptr};
    return c;
}

NSErrorRef NSError::errorWithDomain(std::string domain, std::int64_t code,
                                    NSErrorUserInfo userInfo) {
    return std::make_shared<const NSError>(std::move(domain), code, std::move(userInfo));
}

NSError::NSError(std::string domain, std::int64_t code, NSErrorUserInfo userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

std::string NSError::localizedDescription() const {
    if (const auto* text = stringForKey(userInfo_, NSLocalizedDescriptionKey))
        return *text;
    // The C library's text; a code that is no int has none.
    if (domain_ == NSPOSIXErrorDomain && std::in_range<int>(code_))
        return std::generic_category().message(static_cast<int>(code_));
    return "The operation could not be completed (" + domain_ + " error " + std::to_string(code_) +
           ").";
}

std::optional<std::string> NSError::localizedRecoverySuggestion() const {
    if (const auto* text = stringForKey(userInfo_, NSLocalizedRecoverySuggestionErrorKey)) {
        return *text;
    }
    return std::nullopt;
}

bool NSError::isEqual(const NSObject* other) const {
    const auto* error = dynamic_cast<const NSError*>(other);
    if (!error || error->domain_ != domain_ || error->code_ != code_ ||
        error->userInfo_.size() != userInfo_.size()) {
        return false;
    }
    auto theirs = error->userInfo_.begin();
    for (const auto& [key, value] : userInfo_) {
        if (key != theirs->first || !equalValues(value, theirs->second))
            return false;
        ++theirs;
    }
    return true;
}

const std::string& NSError::domain() const {
    return domain_;
}

std::int64_t NSError::code() const {
    return code_;
}

const NSErrorUserInfo& NSError::userInfo() const {
    return userInfo_;
}

}  // namespace morvane
