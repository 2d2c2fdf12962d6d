// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/xpc/Frame.h>

#include <algorithm>
#include <string>
#include <string_view>

/// Requests as bytes, for peers that are raw streams in a test's hands.
namespace morvane {

inline NSData archiveOfText(const std::string& text) {
    NSKeyedArchiver coder;
    coder.encodeString(std::string_view(text), "0");
    return coder.finishEncoding();
}

inline NSData requestFrame(std::string_view selector, const NSData& body) {
    FrameHeader header;
    header.id = 7;
    header.selectorLength = static_cast<std::uint8_t>(selector.size());
    header.payloadLength = static_cast<std::uint32_t>(selector.size() + body.size());
    const auto bytes = header.bytes();
    NSData frame(bytes.size() + header.payloadLength);
    auto* end = std::copy(bytes.begin(), bytes.end(), frame.data());
    end = std::copy(selector.begin(), selector.end(), end);
    std::copy(body.begin(), body.end(), end);
    return frame;
}

inline NSData echoRequest(const std::string& text) {
    return requestFrame("echo:reply:", archiveOfText(text));
}

}  // namespace morvane
