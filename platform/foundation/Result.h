// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <type_traits>
#include <utility>
#include <variant>

/// What a call gives, or why it gives nothing.
///
///     Result<std::string> name = Failure{NSError::errorWithDomain(NSPOSIXErrorDomain, ENOENT)};
///     if (!name)
///         show(name.error());
///     name = std::string("notes.txt");
///     assert(name && *name == "notes.txt");
///
/// A call that has nothing to give returns the error itself: null, or 0, means that it is done.
namespace morvane {

/// Tells an error from a value of the same type.
template <class E>
struct Failure {
    E error;
};
template <class E>
Failure(E) -> Failure<E>;

/// `E` is an NSError for what people read, or an errno value between a call of the system and
/// whoever puts it into words. Dereferencing a result that is moved from moves its value out.
/// Looking at the value of a failure, or at the error of a value, throws std::bad_variant_access.
template <class T, class E = NSErrorRef>
class [[nodiscard]] Result {
  public:
    template <class U = T, class = std::enable_if_t<std::is_convertible_v<U&&, T>>>
    Result(U&& value) : held_(std::in_place_index<0>, std::forward<U>(value)) {}
    template <class F>
    Result(Failure<F> failure) : held_(std::in_place_index<1>, std::move(failure.error)) {}

    explicit operator bool() const { return held_.index() == 0; }
    const T& operator*() const& { return std::get<0>(held_); }
    T& operator*() & { return std::get<0>(held_); }
    T&& operator*() && { return std::get<0>(std::move(held_)); }
    const T* operator->() const { return &std::get<0>(held_); }
    T* operator->() { return &std::get<0>(held_); }
    const E& error() const { return std::get<1>(held_); }

  private:
    std::variant<T, E> held_;
};

}  // namespace morvane
