// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <exception>
#include <string>

namespace morvane {

/// A programming error: a name that code can test, and a reason for people.
///
///     throw NSException(NSRangeException, "index 4 beyond bounds [0 .. 2]");
///
/// Failures of operations are never exceptions; they are NSError objects.
class MORVANE_EXPORT NSException : public std::exception {
  public:
    NSException(std::string name, std::string reason);
    ~NSException() override;

    const std::string& name() const;
    const std::string& reason() const;
    /// "NAME: REASON".
    const char* what() const noexcept override;

  private:
    std::string name_;
    std::string reason_;
    std::string what_;
};

inline constexpr const char* NSRangeException = "NSRangeException";
inline constexpr const char* NSInvalidArgumentException = "NSInvalidArgumentException";
/// A part of the library itself is missing, or is not of this library's make.
inline constexpr const char* NSInternalInconsistencyException = "NSInternalInconsistencyException";

/// Throws NSRangeException, naming the index and the count that it does not fit.
[[noreturn]] MORVANE_EXPORT void throwRangeException(std::size_t index, std::size_t count);

}  // namespace morvane
