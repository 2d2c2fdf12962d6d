// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

/// For the row encode-1000-entries of the bench: an archive of many megabytes is written once, from
/// its start to its end, into memory that is new to the process. The system hands that out by the
/// page, which took longer than to write the pages.
namespace morvane {

/// The bytes from `memory` on will be written soon, most of them: the system may hand them out in
/// large pieces. Nothing happens where it cannot. Defined by the Linux platform.
void willBeWritten(void* memory, std::size_t size) noexcept;

}  // namespace morvane
