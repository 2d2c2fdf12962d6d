// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>

#include <utility>

namespace morvane {

NSException::NSException(std::string name, std::string reason)
    : name_(std::move(name)), reason_(std::move(reason)), what_(name_ + ": " + reason_) {}

NSException::~NSException() = default;

void throwRangeException(std::size_t index, std::size_t count) {
    throw NSException(NSRangeException, "Index " + std::to_string(index) +
                                            " is beyond the bounds of an array of " +
                                            std::to_string(count) + " elements.");
}

const std::string& NSException::name() const {
    return name_;
}

const std::string& NSException::reason() const {
    return reason_;
}

const char* NSException::what() const noexcept {
    return what_.c_str();
}

}  // namespace morvane
