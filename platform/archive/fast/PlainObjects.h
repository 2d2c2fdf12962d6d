// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/PropertyListWriter.h>
#include <MorvaneOperation/platform/archive/fast/ArchiveFront.h>
#include <MorvaneOperation/platform/foundation/NSObject.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

/// For the row items-100k of the bench: an object of integers and booleans in a large list. They
/// are written together with its dictionary and its UID, and the references to its keys and its
/// class are those of the object before it.
namespace morvane {

class PlainObjects {
  public:
    using Ref = LargeList::Ref;

    /// Forgets the class that is known.
    void clear() { c_ = nullptr; }
    /// Writes the object, which is of class `c` and has that UID, to the list, which is large.
    /// Returns the reference to its dictionary; that to its UID is the next. `classReference()` is
    /// asked for if the object before was of another class.
    template <class ClassReference>
    Ref write(PropertyListWriter& list, const NSObject& object, const NSClass& c, std::uint32_t uid,
              ClassReference&& classReference) {
        using namespace property_list_bytes;
        auto& large = *list.large();
        if (c_ != &c)
            learn(list, c, classReference);
        NSPlainCoding::Values all;
        c.plainCoding->get(object, all);
        const auto& fields = c.plainCoding->fields;
        const auto count = fields.size();
        std::array<Ref, NSPlainCoding::mostFields> references;
        for (std::size_t i = 0; i < count; ++i) {
            if (fields[i].kind == NSPlainCoding::Kind::boolean)
                references[i] = list.boolean(all[i] != 0);
        }
        return large.addSeveral(count + 2, mostBytes, [&](LargeList::Several& values) {
            for (std::size_t i = 0; i < count; ++i) {
                if (fields[i].kind == NSPlainCoding::Kind::integer) {
                    references[i] = values.next();
                    values.end = putInteger(values.end, static_cast<std::uint64_t>(all[i]));
                }
            }
            const auto refs = large.refs();
            if (refSize_ != refs.size)
                makeFront(refs, count);
            const auto dictionary = values.next();
            std::memcpy(values.end, front_.data(), front_.size());
            auto* p = values.end + 1 + (count + 1) * refs.size;
            for (std::size_t i = 0; i < count; ++i)
                p = refs.putNumber(p, references[i]);
            values.end = refs.putNumber(p, classReference_);
            values.next();
            values.end = putUid(values.end, uid);
            return dictionary;
        });
    }

  private:
    /// The fields and the class.
    static constexpr std::size_t mostKeys = NSPlainCoding::mostFields + 1;
    using Front = std::array<std::uint8_t, 1 + mostKeys * sizeof(Ref)>;
    static constexpr std::size_t mostBytes =
        mostKeys * (property_list_bytes::mostIntegerBytes + sizeof(Ref)) + sizeof(Front);

    template <class ClassReference>
    [[gnu::noinline]] void learn(PropertyListWriter& list, const NSClass& c,
                                 ClassReference&& classReference) {
        c_ = nullptr;  // one of these may throw
        std::size_t count = 0;
        for (const auto& field : c.plainCoding->fields)
            keys_[count++] = list.sharedString(field.key);
        keys_[count] = classKey;
        classReference_ = static_cast<Ref>(list.large()->refs().numberOf(classReference()));
        refSize_ = 0;
        c_ = &c;
    }

    void makeFront(const LargeList::Refs& refs, std::size_t fields) {
        auto* p = property_list_bytes::putMarker(front_.data(), 0xD0,
                                                 static_cast<std::uint32_t>(fields + 1));
        for (std::size_t i = 0; i <= fields; ++i)
            p = refs.put(p, keys_[i]);
        refSize_ = refs.size;
    }

    const NSClass* c_ = nullptr;
    std::array<Ref, mostKeys> keys_{};
    Ref classReference_ = 0;
    /// The first bytes of each dictionary, up to its values, and the size of its references.
    Front front_{};
    unsigned refSize_ = 0;
};

}  // namespace morvane
