// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/InstalledPlaces.h>
#include <dlfcn.h>
#include <link.h>

#include <array>
#include <filesystem>
#include <system_error>

namespace morvane {
namespace {

struct Places {
    std::string programs;
    std::string data;
    std::string code;
};

/// Returns the folder of the library, or of the program that has it built in; empty if it is
/// unknown.
std::filesystem::path folderOfThisCode() {
    static const char anchor = 0;
    Dl_info info{};
    void* map = nullptr;
    if (dladdr1(&anchor, &info, &map, RTLD_DL_LINKMAP) == 0 || !map)
        return {};
    const char* const name = static_cast<const link_map*>(map)->l_name;
    std::error_code error;
    // For the program itself the name is empty.
    const auto file = std::filesystem::canonical(name && *name ? name : "/proc/self/exe", error);
    return error ? std::filesystem::path() : file.parent_path();
}

Places findPlaces() {
    struct Distance {
        const char* programs;
        const char* data;
    };
    // These lead there from the folder of libraries and from that of programs.
    constexpr std::array distances{Distance{MORVANE_LIBEXEC_FROM_LIB, MORVANE_DATA_FROM_LIB},
                                   Distance{MORVANE_LIBEXEC_FROM_BIN, MORVANE_DATA_FROM_BIN}};
    const auto here = folderOfThisCode();
    if (!here.empty()) {
        for (const auto& distance : distances) {
            const auto programs = (here / distance.programs).lexically_normal();
            std::error_code error;
            if (std::filesystem::is_directory(programs, error))
                return {programs.string(), (here / distance.data).lexically_normal().string(),
                        here.string()};
        }
    }
    return {MORVANE_LIBEXEC_DIR, MORVANE_DATA_DIR, here.empty() ? MORVANE_LIB_DIR : here.string()};
}

const Places& places() {
    static const auto* const found = new Places(findPlaces());
    return *found;
}

}  // namespace

const std::string& packageProgramFolder() {
    return places().programs;
}

const std::string& packageCodeFolder() {
    return places().code;
}

const std::string& packageDataFolder() {
    return places().data;
}

}  // namespace morvane
