// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileSizeInfo.h>
#include <MorvaneOperation/MVFileSizeItem.h>
#include <glib.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Rows.h"

namespace bench {
namespace {

using namespace morvane;

/// Sizes of every magnitude, the same ones each time.
std::vector<std::int64_t> someSizes() {
    constexpr std::size_t count = 4096;
    std::mt19937_64 random(1);
    std::vector<std::int64_t> sizes;
    for (std::size_t i = 0; i < count; ++i)
        sizes.push_back(static_cast<std::int64_t>(random() >> (17 + random() % 46)));
    return sizes;
}

/// Calls `work` with one of `values` after the other.
template <class Values, class Work>
std::function<double(std::size_t)> overAll(const Values& values, Work work) {
    return [&values, work, next = std::size_t{0}](std::size_t count) mutable {
        return timed([&] {
            for (std::size_t i = 0; i < count; ++i) {
                work(values[next]);
                next = (next + 1) % values.size();
            }
        });
    };
}

/// The least that makes such a text.
std::string scaled(std::int64_t size) {
    struct Unit {
        double bytes;
        const char* label;
    };
    static constexpr std::array<Unit, 4> units{
        {{1e12, " TB"}, {1e9, " GB"}, {1e6, " MB"}, {1e3, " KB"}}};
    char text[32];
    const auto bytes = static_cast<double>(size);
    for (const auto& unit : units) {
        if (bytes >= unit.bytes) {
            const auto end = std::to_chars(text, std::end(text), bytes / unit.bytes,
                                           std::chars_format::fixed, 1);
            std::string result(text, end.ptr);
            result += unit.label;
            return result;
        }
    }
    const auto end = std::to_chars(text, std::end(text), size);
    std::string result(text, end.ptr);
    result += " bytes";
    return result;
}

}  // namespace

Lines sizeText(const Options& options) {
    const auto sizes = someSizes();
    const auto& info = *MVFileSizeInfo::sharedFileSizeInfo();
    return compare(
        {.row = "size-text",
         .ours = {"", overAll(sizes, [&](auto s) { keep(info.stringWithFileSize(s, true)); })},
         .peers = {{"scale + to_chars", overAll(sizes, [](auto s) { keep(scaled(s)); })},
                   {"g_format_size",
                    overAll(sizes,
                            [](auto s) { g_free(g_format_size(static_cast<guint64>(s))); })}},
         .required = Requirement::atMostTimes(1.5),
         .limit = {},
         .note = {}},
        options);
}

Lines displayInfo(const Options& options) {
    const auto sizes = someSizes();
    std::vector<std::shared_ptr<MVFileSizeItem>> items;
    for (auto size : sizes)
        items.push_back(MVFileSizeItem::initWithSize(size));
    return compare(
        {.row = "display-info",
         .ours = {"", overAll(items, [](const auto& item) { keep(item->displayInfo()); })},
         .peers = {{"g_format_size_full", overAll(sizes,
                                                  [](auto s) {
                                                      g_free(g_format_size_full(
                                                          static_cast<guint64>(s),
                                                          G_FORMAT_SIZE_LONG_FORMAT));
                                                  })}},
         .required = {},
         .limit = {},
         .note = {}},
        options);
}

}  // namespace bench
