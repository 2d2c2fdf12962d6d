#include <MorvaneOperation/platform/host/KDLocalizedString.h>
#include <libintl.h>

namespace morvane {

KDLocalizedString::Lookup systemLocalizedStrings() {
    return [](const std::string& key, const std::string& table) {
        return std::string(dgettext(table.c_str(), key.c_str()));
    };
}

}  // namespace morvane
