#pragma once

#include <MorvaneOperation/platform/archive/PropertyListFront.h>

/// The texts of every keyed archive, by their number in those that are written here.
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
    static const PropertyListFront front(texts);
    return front;
}

}  // namespace morvane
