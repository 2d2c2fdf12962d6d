// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/host/KDLocalizedString.h>
#include <libintl.h>

namespace morvane {

KDLocalizedString::Lookup systemLocalizedStrings() {
    return [](const std::string& key, const std::string& table) {
        // A text with a NUL would be cut there; no catalogue has one.
        if (key.find('\0') != std::string::npos)
            return key;
        return std::string(dgettext(table.c_str(), key.c_str()));
    };
}

}  // namespace morvane
