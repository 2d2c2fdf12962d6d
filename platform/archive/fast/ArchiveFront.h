// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/fast/PropertyListFront.h>

/// For the rows archive-encode-entry and archive-decode-entry of the bench: the texts of every
/// keyed archive, by their number in those that are written here. An entry is some twenty archives
/// within one, and each has them.
namespace morvane {

enum ArchiveText : std::uint32_t {
    nullText,
    versionKey,
    archiverKey,
    archiverName,
    topKey,
    objectsKey,
    classKey,
    classNameKey,
    classesKey,
    rootClassName,
};

inline const PropertyListFront& archiveFront() {
    static constexpr std::string_view texts[] = {
        "$null",    "$version", "$archiver",  "NSKeyedArchiver", "$top",
        "$objects", "$class",   "$classname", "$classes",        "NSObject",
    };
    // Never destroyed: other threads may decode while the process ends.
    static const auto& front = *new PropertyListFront(texts);
    return front;
}

}  // namespace morvane
