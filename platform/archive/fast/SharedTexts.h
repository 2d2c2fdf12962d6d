// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

/// For the row archive-encode-entry of the bench: the texts that one list has once however often
/// they occur (keys and class names). Most are found by their address, without a look at the text.
namespace morvane {

class SharedTexts {
  public:
    using Ref = std::uint32_t;

    /// Forgets all texts.
    void clear() {
        texts_.clear();
        ++list_;
    }
    static constexpr Ref none = 0xffffffff;
    /// `none` for a text that the list does not have.
    [[gnu::always_inline]] Ref find(std::string_view text) const {
        const auto at = placeOf(text.data());
        for (const auto i : {at, at ^ 1}) {
            const auto& recent = recent_[i];
            if (recent.list == list_ && recent.text == text.data() && recent.size == text.size())
                return recent.ref;
        }
        // A text that was seen in this list has left its mark, unless others have taken its places.
        return recent_[at].list == list_ && recent_[at ^ 1].list == list_ ? findSlowly(text) : none;
    }
    /// `text` lives until clear().
    void add(std::string_view text, Ref ref) {
        auto at = placeOf(text.data());
        if (recent_[at].list == list_)
            at ^= 1;
        recent_[at] = {text.data(), static_cast<std::uint32_t>(text.size()), ref, list_};
        texts_.push_back({text, ref});
    }

  private:
    static constexpr std::size_t places = 256;
    struct Text {
        std::string_view text;
        Ref ref;
    };
    struct Recent {
        const char* text = nullptr;
        std::uint32_t size = 0;
        Ref ref = 0;
        std::uint64_t list = 0;
    };
    /// One of the two places of a text.
    static std::size_t placeOf(const char* text) {
        const auto address = reinterpret_cast<std::uintptr_t>(text);
        return (address ^ address >> 8) % places;
    }
    [[gnu::noinline]] Ref findSlowly(std::string_view text) const {
        for (const auto& known : texts_) {
            if (known.text == text)
                return known.ref;
        }
        return none;
    }

    std::vector<Text> texts_;
    std::array<Recent, places> recent_;
    std::uint64_t list_ = 1;
};

}  // namespace morvane
