// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/xpc/Frame.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

/// Reads messages from a stream that brings the input, a few bytes at a time, and then ends. The
/// first byte is how many.
namespace {

using namespace morvane;

class InputStream final : public StreamSocket {
  public:
    InputStream(Bytes input, std::size_t atMost) : input_(input), atMost_(atMost) {}

    std::size_t receive(std::span<std::uint8_t> into, const Deadline&) override {
        const auto count = std::min({into.size(), input_.size(), atMost_});
        std::copy_n(input_.begin(), count, into.begin());
        input_ = input_.subspan(count);
        return count;
    }
    std::optional<std::size_t> send(std::span<const Bytes>) override { return std::nullopt; }
    void shutdown() override {}
    std::optional<PeerCredentials> peer() const override { return std::nullopt; }

  private:
    Bytes input_;
    const std::size_t atMost_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    InputStream stream({data + 1, size - 1}, std::size_t{data[0]} + 1);
    FrameReader reader(stream);
    std::size_t left = size - 1;
    while (const auto message = reader.next()) {
        // No message is made of less than was sent for it.
        const auto length = FrameHeader::size + message->selector.size() + message->body.size();
        if (length > left)
            std::abort();
        left -= length;
    }
    return 0;
}
