#pragma once

/// Marks what the shared library exports; everything else stays inside it.
#define MORVANE_EXPORT __attribute__((visibility("default")))
/// Keeps a class inside that is named in a public header, but is not part of the library's face.
#define MORVANE_INTERNAL __attribute__((visibility("hidden")))
