// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/fast/ArchiveFront.h>

/// For the rows archive-encode-entry and archive-decode-entry of the bench.
namespace morvane {

const ArchiveFront& ArchiveFront::common() {
    static constexpr std::string_view texts[] = {
        "$null",    "$version", "$archiver",  "NSKeyedArchiver", "$top",
        "$objects", "$class",   "$classname", "$classes",        "NSObject",
    };
    // Never destroyed: other threads may decode while the process ends.
    static const auto& front = *new ArchiveFront(texts);
    return front;
}

ArchiveFront::ArchiveFront(std::span<const std::string_view> keys,
                           std::span<const NSClass* const> classes, const NSBriefCoding* brief)
    : PropertyListFront(common(), nullptr), classes_(classes.begin(), classes.end()) {
    for (const auto key : keys)
        addText(key);
    std::vector<std::vector<std::uint32_t>> ancestries;
    for (const auto* c : classes_) {
        auto& names = ancestries.emplace_back();
        for (const auto* k = c; k; k = k->superclass) {
            const auto known = find(k->name);
            names.push_back(!k->superclass ? rootClassName : known ? *known : addText(k->name));
        }
    }
    firstClass_ = count();
    for (const auto& names : ancestries) {
        const auto ancestors = addArray(names);
        const std::uint32_t description[] = {classNameKey, classesKey, names.front(), ancestors};
        addDictionary(description);
    }
    // Their references have one byte.
    if (brief)
        recent_ = std::make_unique<RecentArchives>(*brief, *classes_.at(0), bytes(1).size());
}

}  // namespace morvane
