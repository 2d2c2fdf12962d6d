// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/host/KDLocalizedString.h>
#include <MorvaneOperation/platform/linux/InstalledPlaces.h>
#include <libintl.h>
#include <stdlib.h>

#include <mutex>

namespace morvane {
namespace {

/// The name of the library's catalogues, and of the folder that has them for a library that is not
/// installed.
constexpr const char* catalogue = "morvaneoperation";
constexpr const char* folderVariable = "MORVANE_LOCALE_DIR";

/// gettext reads a catalogue once, when it is first asked for a text in its language.
void bindCatalogue() {
    static std::once_flag bound;
    std::call_once(bound, [] {
        const char* const folder = secure_getenv(folderVariable);
        bindtextdomain(catalogue, folder ? folder : (packageDataFolder() + "/locale").c_str());
        // Texts are UTF-8 here, whatever the terminal has.
        bind_textdomain_codeset(catalogue, "UTF-8");
    });
}

bool hasNul(const std::string& text) {
    return text.find('\0') != std::string::npos;
}

}  // namespace

KDLocalizedString::Lookup systemLocalizedStrings() {
    return [](const std::string& key, const std::string& table) {
        // A text with a NUL would be cut there; no catalogue has one. The empty one has the
        // catalogue's description.
        if (key.empty() || hasNul(key) || hasNul(table))
            return key;
        bindCatalogue();
        if (table.empty())
            return std::string(dgettext(catalogue, key.c_str()));
        // In a catalogue, a context stands before its text like this.
        const auto whole = table + '\4' + key;
        const char* const text = dgettext(catalogue, whole.c_str());
        return text == whole.c_str() ? key : std::string(text);
    };
}

std::string systemLocalizedCount(const std::string& one, const std::string& many,
                                 std::uint64_t count) {
    if (one.empty() || hasNul(one) || hasNul(many))
        return count == 1 ? one : many;
    bindCatalogue();
    return dngettext(catalogue, one.c_str(), many.c_str(), count);
}

}  // namespace morvane
