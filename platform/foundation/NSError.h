// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSObject.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace morvane {

class NSError;
using NSErrorRef = std::shared_ptr<const NSError>;
using NSErrorValue =
    std::variant<std::string, std::int64_t, NSURL, NSErrorRef, std::vector<NSErrorRef>>;
using NSErrorUserInfo = std::map<std::string, NSErrorValue, std::less<>>;

/// Domains.
inline constexpr const char* NSPOSIXErrorDomain = "NSPOSIXErrorDomain";
inline constexpr const char* NSOSStatusErrorDomain = "NSOSStatusErrorDomain";
inline constexpr const char* NSCocoaErrorDomain = "NSCocoaErrorDomain";

/// Keys of the user info.
inline constexpr const char* NSLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr const char* NSLocalizedRecoverySuggestionErrorKey =
    "NSLocalizedRecoverySuggestion";
/// What is needed to say the two texts in another language (Phrase::code()). One that does not say
/// the same in English counts for nothing: whoever puts another text into a copy need not know it.
inline constexpr const char* MVDescriptionPhraseKey = "MVDescriptionPhrase";
inline constexpr const char* MVRecoverySuggestionPhraseKey = "MVRecoverySuggestionPhrase";
inline constexpr const char* NSURLErrorKey = "NSURL";
inline constexpr const char* NSFilePathErrorKey = "NSFilePath";
inline constexpr const char* NSUnderlyingErrorKey = "NSUnderlyingError";
/// An array of errors, where there are several.
inline constexpr const char* NSMultipleUnderlyingErrorsKey = "NSMultipleUnderlyingErrorsKey";

/// Codes of NSCocoaErrorDomain that this library gives.
enum : std::int64_t {
    /// An archive is damaged, too large, or holds a class that is not allowed where it stands.
    NSCoderReadCorruptError = 4864,
    /// The peer went away after a request was sent; whether it was carried out is unknown.
    NSXPCConnectionInterrupted = 4097,
    /// The connection cannot be used (any more); the request was not sent.
    NSXPCConnectionInvalid = 4099,
    /// The reply came, but was refused by decoding or never given by the peer.
    NSXPCConnectionReplyInvalid = 4101,
};

/// A failure of an operation: a domain, a code within it, and what else is known.
///
///     auto error = NSError::errorWithDomain(NSPOSIXErrorDomain, EACCES, {{NSURLErrorKey, url}});
///
/// Errors are immutable and shared; a null NSErrorRef means success. They may be used on any
/// thread.
class MORVANE_EXPORT NSError final : public NSObject {
  public:
    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }

    static NSErrorRef errorWithDomain(std::string domain, std::int64_t code,
                                      NSErrorUserInfo userInfo = {});
    /// With a description, and a suggestion that is not empty, of which the user info has the
    /// English texts and their phrases.
    static NSErrorRef errorWithDescription(std::string domain, std::int64_t code,
                                           const Phrase& description, const Phrase& suggestion = {},
                                           NSErrorUserInfo userInfo = {});

    const std::string& domain() const;
    std::int64_t code() const;
    const NSErrorUserInfo& userInfo() const;

    /// What the error says: the text under NSLocalizedDescriptionKey; without one, the system's
    /// text for a POSIX code, or a sentence that names domain and code.
    Phrase description() const;
    /// description() in the language of this process.
    std::string localizedDescription() const;
    /// The text under NSLocalizedRecoverySuggestionErrorKey, if there is one, in the language of
    /// this process.
    std::optional<std::string> localizedRecoverySuggestion() const;

    /// Same domain, code and user info.
    bool isEqual(const NSObject* other) const override;

    /// Public for std::make_shared only; use errorWithDomain().
    NSError(std::string domain, std::int64_t code, NSErrorUserInfo userInfo);

  private:
    std::string domain_;
    std::int64_t code_;
    NSErrorUserInfo userInfo_;
};

}  // namespace morvane
