// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

/// For the rows encode-1000-entries and items-100k of the bench: many megabytes are written once,
/// from their start to their end, into memory that is new to the process. The system hands that out
/// by the page, which takes longer than to write the pages; large pages are 512 times as large. All
/// of it is defined by the Linux platform.
namespace morvane {

/// The bytes from `memory` on will be written soon, most of them: the system may hand them out in
/// large pages. Nothing happens where it cannot.
void willBeWritten(void* memory, std::size_t size) noexcept;

/// What large memory comes in; a power of two.
inline constexpr std::size_t largePage = std::size_t{2} << 20;

/// Memory of its own for `size` bytes, a multiple of largePage, which starts at such a multiple. It
/// is in large pages where the system has them, and takes no more than was written of it, rounded
/// up to these. Null if there is none.
void* takeLargeMemory(std::size_t size) noexcept;
/// The same bytes with room for `newSize`, mostly without a copy. Null if there is none; then
/// `memory` stays as it is.
void* growLargeMemory(void* memory, std::size_t size, std::size_t newSize) noexcept;
/// Gives all of it back, `size` is what it was taken or grown to. A few of them are kept for the
/// next that are taken; the system may use their memory for others meanwhile.
void releaseLargeMemory(void* memory, std::size_t size) noexcept;

}  // namespace morvane
