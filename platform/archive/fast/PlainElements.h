// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/fast/NarrowList.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// For the row items-100k of the bench: the elements of a large array which is all that the archive
/// holds are mostly objects of one class that holds integers and booleans only, written alike. One
/// of them is read as any object is. Of those that have the same references to their keys and their
/// class, the values are read ahead, several objects at a time: what one reference leads to is
/// looked up while the next ones are read. Whatever is different, or would have to be refused, is
/// read as any object is. Part of NSKeyedUnarchiverState.h.
namespace morvane {

class NSKeyedUnarchiver::State::PlainElements {
  public:
    PlainElements(State& state, const Value& array) : state_(state), array_(array) {}

    /// The object, whose class `allowed` has, was read as any other: those that are written like it
    /// will be known.
    void learn(std::uint64_t uid, const NSObject& object, std::string_view key, Classes allowed) {
        const auto& c = object.objectClass();
        if (coding_ || !c.plainCoding || interruptions_ > mostInterruptions ||
            !NarrowList::isOne(state_.list))
            return;
        const auto& list = state_.list;
        Dictionary dictionary(list.element<Kind::dictionary>(state_.objects, uid));
        const auto& value = dictionary.value;
        const auto& fields = c.plainCoding->fields;
        // In the order of writing, and the class last.
        if (fields.size() > NSPlainCoding::mostFields || value.count != fields.size() + 1 ||
            &state_.classOf(dictionary, allowed, key) != &c)
            return;
        for (std::uint32_t i = 0; i < fields.size(); ++i) {
            if (!(list.text(value, i) == fields[i].key))
                return;
        }
        coding_ = c.plainCoding;
        known_ = value;
    }

    /// The i-th element; null if it has to be read as any other.
    [[gnu::always_inline]] std::shared_ptr<NSObject> read(NSKeyedUnarchiver& coder,
                                                          std::uint64_t i) {
        if (!coding_)
            return nullptr;
        if (i - first_ >= ahead_)
            readAhead(i);
        const auto k = i - first_;
        if (k >= ahead_) {
            coding_ = nullptr;
            return nullptr;
        }
        // More than any object costs.
        constexpr std::uint64_t enough = 4096;
        auto& budget = state_.budget;
        if (budget.objects == 0 || budget.bytes < enough || budget.depth == 0 ||
            !state_.rebuilt.isNew(uids_[k]))
            return nullptr;
        --budget.objects;
        return coding_->make(coder, values_[k]);
    }
    /// The UID of the i-th element, which read() has made.
    std::uint64_t uidOf(std::uint64_t i) const { return uids_[i - first_]; }

  private:
    static constexpr std::size_t mostAhead = 32;
    /// Of an array that has other elements between more often, the rest is read without this.
    static constexpr std::size_t mostInterruptions = 64;

    /// Reads the values of the elements from the i-th on, as far as they are like the known one.
    [[gnu::noinline]] void readAhead(std::uint64_t first) {
        const auto most = std::min<std::uint64_t>(mostAhead, array_.count - first);
        const NarrowList list(state_.list);
        const auto array = array_.bytes;
        const auto objects = state_.objects;
        const auto* const known = known_.bytes;
        const auto pairs = known_.count;
        const auto classReference = list.reference(known, 2 * pairs - 1);
        first_ = first;
        for (ahead_ = 0; ahead_ < most; ++ahead_) {
            const auto* const reference = list.at(list.reference(array, first + ahead_));
            if (!reference)
                break;
            const auto uid = list.uidAt(reference);
            if (!uid || *uid == 0 || *uid >= objects.count)
                break;
            const auto* const value = list.at(list.reference(objects.bytes, *uid));
            if (!value)
                break;
            const auto* const references = list.dictionaryAt(value, pairs);
            if (!references ||
                !PropertyListReader::sameBytes(references, known, pairs * list.refSize()) ||
                list.reference(references, 2 * pairs - 1) != classReference ||
                !readFields(list, references, values_[ahead_]))
                break;
            uids_[ahead_] = *uid;
        }
        interruptions_ += ahead_ < most;
    }

    [[gnu::always_inline]] bool readFields(const NarrowList& list, NarrowList::Bytes references,
                                           NSPlainCoding::Values& values) const {
        const auto count = coding_->fields.size();
        for (std::size_t i = 0; i < count; ++i) {
            const auto* const p = list.at(list.reference(references, count + 1 + i));
            if (!p)
                return false;
            const auto value = coding_->fields[i].kind == NSPlainCoding::Kind::integer
                                   ? list.integerAt(p)
                                   : list.booleanAt(p);
            if (!value)
                return false;
            values[i] = *value;
        }
        return true;
    }

    State& state_;
    const Value array_;
    /// Null if no object is known.
    const NSPlainCoding* coding_ = nullptr;
    /// Its dictionary.
    Value known_;
    /// The elements that were read ahead.
    std::uint64_t first_ = 0;
    std::size_t ahead_ = 0;
    std::size_t interruptions_ = 0;
    std::array<std::uint64_t, mostAhead> uids_;
    std::array<NSPlainCoding::Values, mostAhead> values_;
};

}  // namespace morvane
