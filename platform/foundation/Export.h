#pragma once

/// Marks what the shared library exports; everything else stays inside it.
#define MORVANE_EXPORT __attribute__((visibility("default")))
