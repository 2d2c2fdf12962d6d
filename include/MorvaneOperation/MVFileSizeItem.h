// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSColor.h>
#include <MorvaneOperation/platform/foundation/NSImage.h>
#include <MorvaneOperation/platform/foundation/NSKeyValueObserving.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace morvane {

class NSKeyedUnarchiver;

/// One row of a size result: a file or folder, its size, and what a list shows of it.
///
///     auto item = MVFileSizeItem::initWithSize(123456789);
///     item->setUrl(NSURL::fileURLWithPath("/home/me/Films"));
///     show(item->displayInfo());   // 123.5 MB (123,456,789 bytes)
///
/// Only `size` and `busy` cross a connection; everything else is filled in on the receiving side
/// from the URL. Every setter notifies its observers; displaySize and displayInfo are computed when
/// read and have no observers. Used on one thread at a time.
class MORVANE_EXPORT MVFileSizeItem final : public NSObservable {
  public:
    static const NSKeyPath busyKeyPath;
    static const NSKeyPath initializedKeyPath;
    static const NSKeyPath leafKeyPath;
    static const NSKeyPath sizeKeyPath;
    static const NSKeyPath urlKeyPath;
    static const NSKeyPath pathKeyPath;
    static const NSKeyPath iconKeyPath;
    static const NSKeyPath nameKeyPath;
    static const NSKeyPath colorKeyPath;

    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }
    static bool supportsSecureCoding() { return true; }

    /// An item of unknown size.
    static std::shared_ptr<MVFileSizeItem> init() { return initWithSize(-1); }
    /// A busy item named "----". `size` is in bytes; a negative one is unknown.
    static std::shared_ptr<MVFileSizeItem> initWithSize(std::int64_t size);
    /// A missing size reads as 0, a missing busy flag as false.
    static std::shared_ptr<NSObject> initWithCoder(NSKeyedUnarchiver& coder);
    void encodeWithCoder(NSKeyedArchiver& coder) const override;

    /// Use initWithSize().
    explicit MVFileSizeItem(std::int64_t size, bool busy = true) : size_(size), busy_(busy) {}
    ~MVFileSizeItem() override;

    /// Whether the size is still being computed. Cleared by the host only.
    bool busy() const;
    void setBusy(bool busy);
    /// For the host's use.
    bool initialized() const;
    void setInitialized(bool initialized);
    /// Whether the item is not a directory; false until the URL is set.
    bool isLeaf() const;
    void setLeaf(bool leaf);
    /// Bytes; negative when unknown.
    std::int64_t size() const;
    void setSize(std::int64_t size);

    const std::optional<NSURL>& url() const;
    /// Also sets path, name, icon and leaf from what is at the URL; what cannot be read there
    /// becomes empty (and leaf true). Asks the file system and may block.
    void setUrl(std::optional<NSURL> url);

    const std::optional<std::string>& path() const;
    void setPath(std::optional<std::string> path);
    const std::optional<NSImage>& icon() const;
    void setIcon(std::optional<NSImage> icon);
    const std::optional<std::string>& name() const;
    void setName(std::optional<std::string> name);
    /// The host's choice.
    const std::optional<NSColor>& color() const;
    void setColor(std::optional<NSColor> color);

    /// The size as MVFileSizeInfo shows it, bytes allowed; "--" when unknown.
    std::string displaySize() const;
    /// "1.5 KB (1,536 bytes)", the number grouped as the user's locale does it; "-- (--)" when
    /// unknown.
    std::string displayInfo() const;

  private:
    struct Display {
        std::optional<NSURL> url;
        std::optional<std::string> path;
        std::optional<NSImage> icon;
        std::optional<std::string> name = "----";
        std::optional<NSColor> color;
    };

    static const Display& placeholder();
    const Display& display() const;
    Display& mutableDisplay();

    // Items arrive by the hundred thousand, and most are never shown: what only a shown item needs
    // is allocated when it is first set.
    std::unique_ptr<Display> display_;
    std::int64_t size_;
    bool busy_;
    bool initialized_ = false;
    bool leaf_ = false;
};

}  // namespace morvane
