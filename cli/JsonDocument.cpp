// SPDX-License-Identifier: MIT
#include "JsonDocument.h"

#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "FileFacts.h"

namespace morvane {

namespace {

std::string base64(std::string_view bytes) {
    static constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr unsigned sixBits = 0x3F;
    std::string text;
    for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
        unsigned group = 0;
        for (std::size_t i = 0; i != 3; ++i)
            group = group << 8U | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
        for (std::size_t i = 0; i != 4; ++i)
            text += i <= bytes.size() ? digits[group >> (18 - 6 * i) & sixBits] : '=';
    }
    return text;
}

/// The name of an errno value, such as "ENOENT".
Json nameOf(const std::string& domain, std::int64_t code) {
    const char* const name =
        domain == NSPOSIXErrorDomain ? strerrorname_np(static_cast<int>(code)) : nullptr;
    return name ? Json(name) : Json(nullptr);
}

Json jsonOfError(const Outcome& outcome) {
    // An exit status other than 0 need not mean a failure, but for instance that lists differ.
    if (outcome.exitCode == ExitSuccess ||
        (outcome.exitCode == ExitDifferent && outcome.message.empty()))
        return nullptr;
    // The text of standard error without the name of the program: the reason, and what helps.
    std::istringstream lines(outcome.message);
    std::string why;
    std::getline(lines, why);
    constexpr std::string_view program = "morvane: ";
    if (why.starts_with(program))
        why.erase(0, program.size());
    Json advice = Json::array();
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with(program))  // which another item's failure begins with
            advice.push_back(line.substr(std::min(line.find_first_not_of(' '), line.size())));
    }
    const auto& error = outcome.error;
    return {{"message", why},
            {"advice", std::move(advice)},
            {"domain", error ? Json(error->domain()) : Json(nullptr)},
            {"code", error ? Json(error->code()) : Json(nullptr)},
            {"name", error ? nameOf(error->domain(), error->code()) : Json(nullptr)}};
}

std::string textOf(const Json& json, int indent) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace) + '\n';
}

/// Moves the members into the object, as they may be long lists.
void put(Json& object, Json members) {
    for (auto& [key, value] : members.items())
        object[key] = std::move(value);
}

Json ended(Json object, Json members, const Outcome& outcome) {
    object["exitStatus"] = outcome.exitCode;
    object["error"] = jsonOfError(outcome);
    put(object, std::move(members));
    return object;
}

Json begun(std::string_view command) {
    return {{"version", jsonVersion}, {"command", command.empty() ? Json(nullptr) : Json(command)}};
}

}  // namespace

std::string jsonDocument(std::string_view command, Json members, const Outcome& outcome) {
    constexpr int indent = 2;
    return textOf(ended(begun(command), std::move(members), outcome), indent);
}

std::string jsonDocument(std::string_view command, const Outcome& outcome) {
    return jsonDocument(command, Json::object(), outcome);
}

std::string jsonLine(std::string_view command, std::string_view event, Json members) {
    constexpr int oneLine = -1;
    auto object = begun(command);
    object["event"] = event;
    put(object, std::move(members));
    return textOf(object, oneLine);
}

std::string lastJsonLine(std::string_view command, Json members, const Outcome& outcome) {
    return jsonLine(command, "end", ended(Json::object(), std::move(members), outcome));
}

std::string lastJsonLine(std::string_view command, const Outcome& outcome) {
    return lastJsonLine(command, Json::object(), outcome);
}

Json jsonOfPath(std::string_view path) {
    return {{"path", path},
            {"pathBytes", base64(path)},
            {"url", NSURL::fileURLWithPath(path).absoluteString()}};
}

Json jsonOfFailedItem(std::string_view path, std::string_view why) {
    auto item = jsonOfPath(path);
    item["message"] = why;
    return item;
}

Json jsonOfOwner(std::uint32_t id, bool isGroup) {
    const auto name = nameOfOwner(id, isGroup);
    return {{"id", id}, {"name", name ? Json(*name) : Json(nullptr)}};
}

Json jsonOfCode(std::int64_t posixCode) {
    if (posixCode == 0)
        return nullptr;
    const auto error = NSError::errorWithDomain(NSPOSIXErrorDomain, posixCode);
    return {{"message", error->description().english()},
            {"advice", Json::array()},
            {"domain", error->domain()},
            {"code", posixCode},
            {"name", nameOf(error->domain(), posixCode)}};
}

}  // namespace morvane
