// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSError.h>

#include <algorithm>
#include <utility>

namespace morvane {
namespace {

const std::string* stringForKey(const NSErrorUserInfo& userInfo, const char* key) {
    const auto found = userInfo.find(key);
    return found == userInfo.end() ? nullptr : std::get_if<std::string>(&found->second);
}

Phrase phraseOf(const std::string& text, const NSErrorUserInfo& userInfo, const char* phraseKey) {
    const auto* code = stringForKey(userInfo, phraseKey);
    return code ? Phrase::decoded(*code, text) : Phrase(text);
}

void put(NSErrorUserInfo& userInfo, const Phrase& phrase, const char* key, const char* phraseKey) {
    if (phrase.empty())
        return;
    userInfo.insert_or_assign(key, phrase.english());
    if (!phrase.code().empty())
        userInfo.insert_or_assign(phraseKey, phrase.code());
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

NSErrorRef NSError::errorWithDescription(std::string domain, std::int64_t code,
                                         const Phrase& description, const Phrase& suggestion,
                                         NSErrorUserInfo userInfo) {
    put(userInfo, description, NSLocalizedDescriptionKey, MVDescriptionPhraseKey);
    put(userInfo, suggestion, NSLocalizedRecoverySuggestionErrorKey, MVRecoverySuggestionPhraseKey);
    return errorWithDomain(std::move(domain), code, std::move(userInfo));
}

NSError::NSError(std::string domain, std::int64_t code, NSErrorUserInfo userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

Phrase NSError::description() const {
    if (const auto* text = stringForKey(userInfo_, NSLocalizedDescriptionKey))
        return phraseOf(*text, userInfo_, MVDescriptionPhraseKey);
    // The C library's text; a code that is no int has none.
    if (domain_ == NSPOSIXErrorDomain && std::in_range<int>(code_))
        return Phrase::ofSystemError(static_cast<int>(code_));
    return phrase("The operation could not be completed (%1 error %2).", domain_, code_);
}

std::string NSError::localizedDescription() const {
    return description().localized();
}

std::optional<std::string> NSError::localizedRecoverySuggestion() const {
    if (const auto* text = stringForKey(userInfo_, NSLocalizedRecoverySuggestionErrorKey))
        return phraseOf(*text, userInfo_, MVRecoverySuggestionPhraseKey).localized();
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
