// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <MorvaneOperation/platform/linux/InstalledPlaces.h>
#include <MorvaneOperation/platform/linux/PolicyAuthority.h>
#include <MorvaneOperation/platform/linux/PolicyFile.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>

namespace morvane {
namespace {

constexpr const char* actionFolder = "/usr/share/polkit-1/actions";
/// Returns the path of the package's file, which has all of this library's rights. If it is in the
/// folder of polkit's actions, polkit reads it there.
std::string packagePolicy() {
    return packageDataFolder() + "/polkit-1/actions/io.github.morvaneoperation.policy";
}

std::string textOfFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string xml(std::string_view text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::string fileText(const std::string& action, const std::string& prompt,
                     const std::string& answer, const std::string& annotations) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE policyconfig PUBLIC \"-//freedesktop//DTD PolicyKit Policy Configuration "
           "1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/PolicyKit/1/policyconfig.dtd\">\n"
           "<policyconfig>\n"
           "  <action id=\"" +
           xml(action) +
           "\">\n"
           "    <description>" +
           xml(prompt) +
           "</description>\n"
           "    <message>" +
           xml(prompt) +
           "</message>\n"
           "    <defaults>\n"
           "      <allow_any>" +
           answer + "</allow_any>\n      <allow_inactive>" + answer +
           "</allow_inactive>\n      <allow_active>" + answer +
           "</allow_active>\n"
           "    </defaults>\n" +
           annotations +
           "  </action>\n"
           "</policyconfig>\n";
}

}  // namespace

std::string policyFileText(const std::string& right, const AuthorizationRule& rule,
                           const std::string& prompt) {
    // The user authenticates as one of the administrators that polkit knows. A grant has to be kept
    // for the time between this process's question and the helper's.
    const std::string answer =
        rule.ruleClass == "user" && rule.group == "admin" ? "auth_admin_keep" : "no";
    return fileText(right, prompt, answer,
                    "    <annotate key=\"org.freedesktop.policykit.imply\">" +
                        std::string(impliedAction) + "</annotate>\n");
}

std::string impliedPolicyFileText() {
    return fileText(impliedAction, "Morvane has been granted one of its rights.", "no", "");
}

int writePolicyFile(const std::string& right, const std::string& ownText) {
    const auto ofPackage = textOfFile(packagePolicy());
    const bool isOfPackage =
        ofPackage.find("<action id=\"" + xml(right) + "\">") != std::string::npos;
    const auto& text = isOfPackage ? ofPackage : ownText;
    const auto name = isOfPackage ? std::filesystem::path(packagePolicy()).filename().string()
                                  : right + ".policy";
    const std::string path = std::string(actionFolder) + "/" + name;
    if (textOfFile(path) == text)
        return 0;  // polkit has not noticed the file yet.
    std::string temporary = std::string(actionFolder) + "/." + name + ".XXXXXX";
    const FileDescriptor file(mkostemp(temporary.data(), O_CLOEXEC));
    if (!file)
        return errno;
    std::string_view rest = text;
    while (!rest.empty()) {
        const auto written = write(file.get(), rest.data(), rest.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            break;
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    if (rest.empty() && fchmod(file.get(), 0644) == 0 && fsync(file.get()) == 0 &&
        rename(temporary.c_str(), path.c_str()) == 0)
        return 0;
    const int code = errno;
    unlink(temporary.c_str());
    return code;
}

}  // namespace morvane
